// The reader's walk over the lines of an open ".mem" file, apart from what it
// does with each line, so that a tool can follow the very same walk.
#ifndef QUENDAL_CONFIG_CONFIG_LINES_H
#define QUENDAL_CONFIG_CONFIG_LINES_H

#include <stdio.h>

#include "config/config_line.h"

namespace Quendal {
namespace Config {

// The walk takes at most the file's first kMaxFileBytes bytes (1 MiB): far
// more than any configuration holds, and an end to a file that keeps
// growing while it is read. A read that would end past them is not used,
// and nothing after it is read.
const long kMaxFileBytes = 1048576;

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
  kStoppedAtEnd,
  // A read ended past the first kMaxFileBytes bytes (or the stream could not
  // tell where it was): that read was not used.
  kStoppedAtBound
};

// Reads file through the platform layer kLineBufferSize - 1 characters at a
// time, parses each piece that ends within the first kMaxFileBytes bytes and
// hands it to visitor; after every line but a skipped one it tests the
// stream for an error, then for its end, and stops at either.
WalkEnd WalkConfigLines(FILE* file, LineVisitor& visitor);

}  // namespace Config
}  // namespace Quendal

#endif
