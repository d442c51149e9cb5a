// A byte buffer for guarded-block tests, filled with a pattern so that bytes
// the markers must not touch can be recognised.
#ifndef QUENDAL_TESTS_VALIDATION_GUARDED_BLOCK_H
#define QUENDAL_TESTS_VALIDATION_GUARDED_BLOCK_H

#include <cstdint>
#include <cstring>
#include <vector>

namespace quendal_test {

const unsigned char kFill = 0xA5;

class GuardedBlock {
 public:
  // A block of size bytes with room of kSlack filled bytes before and after.
  explicit GuardedBlock(std::size_t size) : bytes_(size + 2 * kSlack, kFill), size_(size) {}

  unsigned char* block() { return bytes_.data() + kSlack; }
  unsigned char& operator[](std::size_t offset) { return block()[offset]; }

  // The 32-bit length field at offset 0, in host byte order.
  std::uint32_t StoredLength() {
    std::uint32_t length;
    std::memcpy(&length, block(), sizeof(length));
    return length;
  }
  void SetStoredLength(std::uint32_t length) { std::memcpy(block(), &length, sizeof(length)); }

  // True when every byte in [begin, end) of the block still holds kFill.
  bool Untouched(std::ptrdiff_t begin, std::ptrdiff_t end) {
    for (std::ptrdiff_t offset = begin; offset < end; ++offset) {
      if (block()[offset] != kFill) {
        return false;
      }
    }
    return true;
  }
  bool BytesBeforeUntouched() { return Untouched(-static_cast<std::ptrdiff_t>(kSlack), 0); }
  bool BytesAfterUntouched() {
    return Untouched(static_cast<std::ptrdiff_t>(size_),
                     static_cast<std::ptrdiff_t>(size_ + kSlack));
  }

 private:
  static const std::size_t kSlack = 16;
  std::vector<unsigned char> bytes_;
  std::size_t size_;
};

}  // namespace quendal_test

#endif
