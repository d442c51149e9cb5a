// An independent reading of a memory configuration file, written from its
// line rules: the file is taken in the pieces fgets gives a 128-byte buffer,
// up to the piece that ends past its first MiB, each piece is a C string up
// to its first NUL, and the numbers follow the C library's "%d" (decimal,
// saturated to long, then cut to int).
#ifndef QUENDAL_TESTS_FUZZ_REFERENCE_CONFIG_READER_H
#define QUENDAL_TESTS_FUZZ_REFERENCE_CONFIG_READER_H

#include <stddef.h>

#include <string>
#include <vector>

namespace QuendalFuzz {

struct ReferenceLimit {
  std::string name;
  unsigned long limit;
};

struct ReferenceConfig {
  unsigned int chunks;
  // Pieces read, in order; a piece files at most one limit.
  std::vector<std::string> pieces;
  // For each piece, whether it filed a limit.
  std::vector<bool> filesLimit;
  // The limits filed, in file order.
  std::vector<ReferenceLimit> limits;
};

ReferenceConfig ReadReferenceConfig(const std::string& file);

}  // namespace QuendalFuzz

#endif
