#include <stdlib.h>
#include <string.h>

#include "config/mem_file_path.h"
#include "platform/executable_path.h"
#include "quendal/config_file_reader.h"

namespace {

// The scratch size when the file system names no longest path.
const long kFallbackPathLength = 256;

}  // namespace

namespace ConfigFileReader {

int GetExecutablePathWithoutExtension(char* buffer, int length) QD_NOTHROW {
  if (buffer == 0 || length < 1) {
    return -1;
  }
  long scratchSize = Quendal::Platform::MaxPathLength();
  if (scratchSize < 1) {
    scratchSize = kFallbackPathLength;
  }
  char* scratch = static_cast<char*>(malloc(static_cast<size_t>(scratchSize)));
  if (scratch == 0) {
    return -1;
  }
  int result = -1;
  if (Quendal::Platform::CommandName(scratch, static_cast<size_t>(scratchSize)) != 0) {
    // An unterminated path could not be searched for its last dot.
    const char* terminator =
        static_cast<const char*>(memchr(scratch, '\0', static_cast<size_t>(scratchSize)));
    if (terminator != 0) {
      result = Quendal::Config::CopyPathWithoutExtension(scratch, buffer, length);
    }
  }
  free(scratch);
  return result;
}

}  // namespace ConfigFileReader
