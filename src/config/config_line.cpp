#include "config/config_line.h"

#include <ctype.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

namespace Quendal {
namespace Config {

namespace {

const char kModuleKey[] = "MODULE_NAME";
const size_t kModuleKeyLength = sizeof(kModuleKey) - 1;
const char kLimitKey[] = "LIMIT";
const char kPoolKey[] = "CHUNKS";

ConfigLine MakeLine(LineKind kind) {
  ConfigLine line;
  line.kind = kind;
  line.ignoredBecause = kHasEffect;
  line.poolNumbers = 0;
  line.name = 0;
  line.nameLength = 0;
  line.limit = 0;
  line.chunks = 0;
  return line;
}

ConfigLine MakeIgnoredLine(LineKind kind, IgnoredBecause reason) {
  ConfigLine line = MakeLine(kind);
  line.ignoredBecause = reason;
  return line;
}

// White space as the scan's format skips it.
const char* SkipSpace(const char* text) {
  while (*text != '\0' && isspace(static_cast<unsigned char>(*text))) {
    ++text;
  }
  return text;
}

bool StartsWith(const char* text, const char* key) {
  return strncmp(text, key, strlen(key)) == 0;
}

// Why a line that is neither a comment nor a module line is no pool line.
// reached holds the offsets the scan got to: behind "CHUNKS", the first
// number, "CHUNK_SIZE", the second number and "SEG_SIZE", -1 where it did not.
IgnoredBecause WhyNoPoolLine(const char* line, const int* reached) {
  if (reached[0] < 0) {
    const char* text = SkipSpace(line);
    if (*text == '\0') {
      return kBlank;
    }
    if (text != line && (StartsWith(text, kPoolKey) || StartsWith(text, kModuleKey) ||
                         (text[0] == '/' && text[1] == '/'))) {
      return kLeadingSpace;
    }
    return kUnknownStart;
  }
  int last = 0;
  while (last < 4 && reached[last + 1] >= 0) {
    ++last;
  }
  if (*SkipSpace(line + reached[last]) == '\0') {
    return kTooFewNumbers;
  }
  // Even offsets lie behind a key, where a number was due; odd ones behind a
  // number, where the next key was due.
  return last % 2 == 0 ? kBadNumber : kMissingPoolKey;
}

ConfigLine ParseModuleLine(const char* line) {
  const char* found = strstr(line + kModuleKeyLength, kLimitKey);
  if (found == 0) {
    return MakeIgnoredLine(kSkippedLine, kNoLimitKey);
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
    return MakeIgnoredLine(kSkippedLine, kEmptyName);
  }
  int limit = 0;
  if (sscanf(found, "LIMIT %d", &limit) != 1) {
    return MakeIgnoredLine(kBadModuleLine, kBadNumber);
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
  // The offsets the scan reaches, to tell why a line fails; %n converts
  // nothing and is not counted, so the format matches as
  // "CHUNKS %d  CHUNK_SIZE %d SEG_SIZE %d".
  int reached[5] = {-1, -1, -1, -1, -1};
  // The pool line counts only with all three numbers, though only the first
  // is used: the chunk size and the largest pooled size stay fixed.
  int count = sscanf(line, "CHUNKS%n %d%n  CHUNK_SIZE%n %d%n SEG_SIZE%n %d", &reached[0], &chunks,
                     &reached[1], &reached[2], &chunkSize, &reached[3], &reached[4], &segSize);
  if (count != 3) {
    ConfigLine ignored = MakeIgnoredLine(kIgnoredLine, WhyNoPoolLine(line, reached));
    ignored.poolNumbers = count > 0 ? count : 0;
    return ignored;
  }
  ConfigLine parsed = MakeLine(kPoolLine);
  parsed.poolNumbers = 3;
  parsed.chunks = static_cast<unsigned int>(chunks);
  return parsed;
}

}  // namespace

ConfigLine ParseConfigLine(const char* line) {
  if (line[0] == '/' && line[1] == '/') {
    return MakeIgnoredLine(kSkippedLine, kComment);
  }
  if (strncmp(line, kModuleKey, kModuleKeyLength) == 0) {
    return ParseModuleLine(line);
  }
  return ParsePoolLine(line);
}

}  // namespace Config
}  // namespace Quendal
