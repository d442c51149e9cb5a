#include <stdlib.h>
#include <string.h>

#include "config/config_line.h"
#include "config/first_call_flag.h"
#include "config/module_limits.h"
#include "platform/file.h"
#include "quendal/config_file_reader.h"

namespace {

using Quendal::Config::ConfigLine;

const unsigned int kDefaultChunks = 650;
const unsigned int kDefaultChunkSize = 2048;
const unsigned int kDefaultSegSize = 1024;

const int kPathBufferSize = 256;
const char kExtension[] = ".mem";
const int kExtensionLength = sizeof(kExtension) - 1;

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
  char path[kPathBufferSize];
  path[0] = '\0';
  int pathLength = GetExecutablePathWithoutExtension(path, kPathBufferSize);
  chunks = kDefaultChunks;
  chunkSize = kDefaultChunkSize;
  segSize = kDefaultSegSize;
  // Without the executable's path, or when its ".mem" name would not fit the
  // buffer, there is no file to read.
  if (pathLength < 0 || pathLength + kExtensionLength >= kPathBufferSize) {
    return 0;
  }
  strcat(path, kExtension);
  FILE* file = Quendal::Platform::OpenFile(path, "r");
  if (file == 0) {
    return 0;
  }
  char line[Quendal::Config::kLineBufferSize];
  line[0] = '\0';
  line[sizeof(line) - 1] = '\0';
  while (Quendal::Platform::ReadLine(line, Quendal::Config::kLineBufferSize, file) != 0) {
    ConfigLine parsed = Quendal::Config::ParseConfigLine(line);
    if (parsed.kind == Quendal::Config::kModuleLimitLine) {
      FileModuleName(parsed);
    } else if (parsed.kind == Quendal::Config::kPoolLine) {
      chunks = parsed.chunks;
    }
    if (!Quendal::Config::ChecksStreamAfter(parsed.kind)) {
      continue;
    }
    if (Quendal::Platform::FileError(file) != 0 || Quendal::Platform::FileAtEnd(file) != 0) {
      break;
    }
  }
  Quendal::Platform::CloseFile(file);
  return 0;
}

}  // namespace ConfigFileReader
