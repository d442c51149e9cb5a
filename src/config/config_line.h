// One line of the memory configuration file and what it asks the reader to do.
// Kept apart from the file handling so that a line can be checked on its own.
#ifndef QUENDAL_CONFIG_CONFIG_LINE_H
#define QUENDAL_CONFIG_CONFIG_LINE_H

#include <stddef.h>

namespace Quendal {
namespace Config {

// The reader's line buffer: at most 127 characters of a physical line at a time.
const int kLineBufferSize = 128;

// Every module name is filed in a buffer of this size.
const size_t kNameBufferSize = 128;

enum LineKind {
  // A comment, a module line without "LIMIT", or one without a name: the
  // reader goes on to the next line without testing the stream.
  kSkippedLine,
  // A module line with a name and a limit: one entry for the limit map.
  kModuleLimitLine,
  // A module line whose "LIMIT" is not followed by a number: nothing is filed.
  kBadModuleLine,
  // A pool line whose three numbers parsed: its chunk count replaces the
  // current one.
  kPoolLine,
  // Any other line, a blank one included: no effect.
  kIgnoredLine
};

// Why a line has no effect, told by the code that decides it; kHasEffect for
// the kinds that do something (a comment is skipped on purpose, not ignored).
enum IgnoredBecause {
  kHasEffect,
  kComment,
  // Nothing but white space, or nothing at all.
  kBlank,
  // White space in column 1 before a pool key, a module key or "//": the
  // keys are only recognised in column 1.
  kLeadingSpace,
  // A line that starts with none of "//", "MODULE_NAME" and "CHUNKS".
  kUnknownStart,
  // A pool line that ends before its third number.
  kTooFewNumbers,
  // A pool line whose text after the parsed numbers is not the next key
  // ("CHUNK_SIZE" after the first, "SEG_SIZE" after the second).
  kMissingPoolKey,
  // A number of a pool line, or a module limit, that does not parse as a
  // decimal integer.
  kBadNumber,
  // A module line without "LIMIT" behind its key.
  kNoLimitKey,
  // A module line with nothing but spaces before its first "LIMIT" (or a
  // name that begins with "LIMIT").
  kEmptyName
};

struct ConfigLine {
  LineKind kind;
  IgnoredBecause ignoredBecause;
  // Pool lines: how many of the three numbers parsed before the line was
  // given up (3 for kPoolLine); 0 for other lines.
  int poolNumbers;
  // kModuleLimitLine: the name inside the parsed line (not terminated there)
  // and its length, at least 1.
  const char* name;
  size_t nameLength;
  // kModuleLimitLine: the limit, a 32-bit value whatever the width of long.
  unsigned long limit;
  // kPoolLine: the CHUNKS number. CHUNK_SIZE and SEG_SIZE are parsed only to
  // validate the line and are not kept.
  unsigned int chunks;
};

// Classifies one terminated line (with or without its newline). Never reads
// past the terminator.
ConfigLine ParseConfigLine(const char* line);

// True when the reader tests the stream for an error and for the end of the
// file after a line of this kind.
inline bool ChecksStreamAfter(LineKind kind) {
  return kind != kSkippedLine;
}

}  // namespace Config
}  // namespace Quendal

#endif
