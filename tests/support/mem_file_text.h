// Text for ".mem" files of the tests: filler of an exact size, for files
// that reach the reader's bound.
#ifndef QUENDAL_TESTS_SUPPORT_MEM_FILE_TEXT_H
#define QUENDAL_TESTS_SUPPORT_MEM_FILE_TEXT_H

#include <stddef.h>

#include <string>

namespace QuendalTest {

// How much of a ".mem" file the reader reads.
const size_t kMemFileReadBound = 1048576;

// Comment lines that make exactly bytes bytes (at least 3).
inline std::string CommentLines(size_t bytes) {
  std::string lines;
  while (bytes > 0) {
    size_t length = bytes < 100 ? bytes : 100;
    // No line shorter than "//\n" is left for the end.
    if (bytes - length > 0 && bytes - length < 3) {
      length = bytes - 3;
    }
    lines += "//" + std::string(length - 3, '-') + "\n";
    bytes -= length;
  }
  return lines;
}

}  // namespace QuendalTest

#endif
