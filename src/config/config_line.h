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

struct ConfigLine {
  LineKind kind;
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
