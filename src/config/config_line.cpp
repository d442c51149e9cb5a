#include "config/config_line.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

namespace Quendal {
namespace Config {

namespace {

const char kModuleKey[] = "MODULE_NAME";
const size_t kModuleKeyLength = sizeof(kModuleKey) - 1;
const char kLimitKey[] = "LIMIT";

ConfigLine MakeLine(LineKind kind) {
  ConfigLine line;
  line.kind = kind;
  line.name = 0;
  line.nameLength = 0;
  line.limit = 0;
  line.chunks = 0;
  return line;
}

ConfigLine ParseModuleLine(const char* line) {
  const char* found = strstr(line + kModuleKeyLength, kLimitKey);
  if (found == 0) {
    return MakeLine(kSkippedLine);
  }
  // Only the space character frames a name; tabs and inner spaces belong to it.
  const char* start = line + kModuleKeyLength;
  while (*start == ' ') {
    ++start;
  }
  const char* end = found - 1;
  while (end >= start && *end == ' ') {
    --end;
  }
  // Nothing but spaces before the first "LIMIT" (or a name that itself begins
  // with "LIMIT") leaves no name to file.
  if (end < start) {
    return MakeLine(kSkippedLine);
  }
  int limit = 0;
  if (sscanf(found, "LIMIT %d", &limit) != 1) {
    return MakeLine(kBadModuleLine);
  }
  ConfigLine parsed = MakeLine(kModuleLimitLine);
  parsed.name = start;
  parsed.nameLength = static_cast<size_t>(end - start) + 1;
  // Through uint32_t so that "-1" is 4294967295 where long has 64 bits too.
  parsed.limit = static_cast<uint32_t>(limit);
  return parsed;
}

ConfigLine ParsePoolLine(const char* line) {
  int chunks = 0;
  int chunkSize = 0;
  int segSize = 0;
  // The pool line counts only with all three numbers, though only the first
  // is used: the chunk size and the largest pooled size stay fixed.
  if (sscanf(line, "CHUNKS %d  CHUNK_SIZE %d SEG_SIZE %d", &chunks, &chunkSize, &segSize) != 3) {
    return MakeLine(kIgnoredLine);
  }
  ConfigLine parsed = MakeLine(kPoolLine);
  parsed.chunks = static_cast<unsigned int>(chunks);
  return parsed;
}

}  // namespace

ConfigLine ParseConfigLine(const char* line) {
  if (line[0] == '/' && line[1] == '/') {
    return MakeLine(kSkippedLine);
  }
  if (strncmp(line, kModuleKey, kModuleKeyLength) == 0) {
    return ParseModuleLine(line);
  }
  return ParsePoolLine(line);
}

}  // namespace Config
}  // namespace Quendal
