// The reader's walk over the lines of an open ".mem" file, apart from what it
// does with each line, so that a tool can follow the very same walk.
#ifndef QUENDAL_CONFIG_CONFIG_LINES_H
#define QUENDAL_CONFIG_CONFIG_LINES_H

#include <stdio.h>

#include "config/config_line.h"

namespace Quendal {
namespace Config {

// Told about every line the walk parses, in file order.
class LineVisitor {
 public:
  // line: what one read returned, terminated (at most kLineBufferSize - 1
  // characters, its newline included when the read reached it).
  virtual void Visit(const char* line, const ConfigLine& parsed) = 0;

 protected:
  ~LineVisitor() {}
};

// How the walk ended.
enum WalkEnd {
  // A read returned no line (the end of the file, or a read error).
  kNoMoreLines,
  // The error test after a line reported an error.
  kStoppedOnError,
  // The end-of-file test after a line reported the end.
  kStoppedAtEnd
};

// Reads file through the platform layer kLineBufferSize - 1 characters at a
// time, parses each piece and hands it to visitor; after every line but a
// skipped one it tests the stream for an error, then for its end, and stops
// at either.
WalkEnd WalkConfigLines(FILE* file, LineVisitor& visitor);

}  // namespace Config
}  // namespace Quendal

#endif
