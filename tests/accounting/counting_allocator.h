// An allocator for the container templates that counts, records and can
// refuse what the containers ask of it, and lets a test look at a container
// at the moment it frees memory.
#ifndef QUENDAL_TESTS_ACCOUNTING_COUNTING_ALLOCATOR_H
#define QUENDAL_TESTS_ACCOUNTING_COUNTING_ALLOCATOR_H

#include <stdlib.h>

#include <functional>
#include <vector>

namespace quendal_test {

struct CountingAllocator {
  static void* Alloc(size_t size) {
    if (refuse) {
      return nullptr;
    }
    sizes.push_back(size);
    return malloc(size);
  }
  static void Free(void* memory) {
    ++frees;
    if (onFree) {
      onFree(memory);
    }
    free(memory);
  }
  static void Reset() {
    sizes.clear();
    frees = 0;
    refuse = false;
    onFree = nullptr;
  }

  // Sizes of the allocations made, in order.
  static inline std::vector<size_t> sizes;
  static inline int frees = 0;
  static inline bool refuse = false;
  static inline std::function<void(void*)> onFree;
};

}  // namespace quendal_test

#endif
