#include <stdlib.h>
#include <string.h>

#include "config/config_line.h"
#include "config/config_lines.h"
#include "config/first_call_flag.h"
#include "config/mem_file_path.h"
#include "config/module_limits.h"
#include "config/pool_values.h"
#include "platform/file.h"
#include "quendal/config_file_reader.h"

namespace {

using Quendal::Config::ConfigLine;

const unsigned int kDefaultChunks = Quendal::Config::kDefaultChunks;
const unsigned int kDefaultChunkSize = Quendal::Config::kChunkSize;
const unsigned int kDefaultSegSize = Quendal::Config::kLargestPooledSize;

unsigned char g_firstCallFlag = 0;

// Copies the line's name into a buffer of its own and files it; a name that
// cannot be filed is released at once.
void FileModuleName(const ConfigLine& parsed) {
  const size_t bufferSize = Quendal::Config::kNameBufferSize;
  char* name = static_cast<char*>(malloc(bufferSize));
  if (name == 0) {
    return;
  }
  name[0] = '\0';
  name[bufferSize - 1] = '\0';
  size_t length = parsed.nameLength < bufferSize ? parsed.nameLength : bufferSize - 1;
  strncpy(name, parsed.name, length);
  name[length] = '\0';
  if (!Quendal::Config::FileModuleLimit(name, parsed.limit)) {
    free(name);
  }
}

// What the reader does with each line: files module limits and takes the
// chunk count of every complete pool line, so the last one stands.
class ValueCollector : public Quendal::Config::LineVisitor {
 public:
  explicit ValueCollector(unsigned int& chunks) : m_chunks(chunks) {}

  virtual void Visit(const char* /*line*/, const ConfigLine& parsed) {
    if (parsed.kind == Quendal::Config::kModuleLimitLine) {
      FileModuleName(parsed);
    } else if (parsed.kind == Quendal::Config::kPoolLine) {
      m_chunks = parsed.chunks;
    }
  }

 private:
  unsigned int& m_chunks;
};

}  // namespace

namespace Quendal {
namespace Config {

unsigned char ReaderFirstCallFlag() {
  return g_firstCallFlag;
}

}  // namespace Config
}  // namespace Quendal

namespace ConfigFileReader {

int ReadConfigValues(unsigned int& chunks, unsigned int& chunkSize,
                     unsigned int& segSize) QD_NOTHROW {
  g_firstCallFlag = 1;
  char path[Quendal::Config::kPathBufferSize];
  path[0] = '\0';
  int pathLength = GetExecutablePathWithoutExtension(path, Quendal::Config::kPathBufferSize);
  chunks = kDefaultChunks;
  chunkSize = kDefaultChunkSize;
  segSize = kDefaultSegSize;
  // Without the executable's path, or when its ".mem" name would not fit the
  // buffer, there is no file to read.
  if (!Quendal::Config::AppendMemExtension(path, pathLength)) {
    return 0;
  }
  // Only a regular file configures the heap: a FIFO or a device under the
  // name would block the first heap call or never end, and counts as no file.
  FILE* file = Quendal::Platform::OpenRegularFile(path);
  if (file == 0) {
    return 0;
  }
  ValueCollector collector(chunks);
  Quendal::Config::WalkConfigLines(file, collector);
  Quendal::Platform::CloseFile(file);
  return 0;
}

}  // namespace ConfigFileReader
