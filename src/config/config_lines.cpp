#include "config/config_lines.h"

#include "platform/file.h"

namespace Quendal {
namespace Config {

WalkEnd WalkConfigLines(FILE* file, LineVisitor& visitor) {
  char line[kLineBufferSize];
  line[0] = '\0';
  line[sizeof(line) - 1] = '\0';
  while (Platform::ReadLine(line, kLineBufferSize, file) != 0) {
    long position = Platform::ReadPosition(file);
    if (position < 0 || position > kMaxFileBytes) {
      return kStoppedAtBound;
    }
    ConfigLine parsed = ParseConfigLine(line);
    visitor.Visit(line, parsed);
    if (!ChecksStreamAfter(parsed.kind)) {
      continue;
    }
    if (Platform::FileError(file) != 0) {
      return kStoppedOnError;
    }
    if (Platform::FileAtEnd(file) != 0) {
      return kStoppedAtEnd;
    }
  }
  return kNoMoreLines;
}

}  // namespace Config
}  // namespace Quendal
