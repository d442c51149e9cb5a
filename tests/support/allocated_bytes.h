// Bytes the C library's allocator has handed out and not taken back, to see
// whether an entry called malloc, under sanitizers as well. Exact for glibc
// only with its per-thread cache off (GLIBC_TUNABLES=glibc.malloc.tcache_count=0):
// cached blocks count as in use.
#ifndef QUENDAL_TESTS_SUPPORT_ALLOCATED_BYTES_H
#define QUENDAL_TESTS_SUPPORT_ALLOCATED_BYTES_H

#include <malloc.h>
#include <stddef.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QUENDAL_TEST_SANITIZED_ALLOCATOR 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QUENDAL_TEST_SANITIZED_ALLOCATOR 1
#endif

// Declared here rather than through <sanitizer/...> headers, which GCC's
// Debian packages do not ship.
#ifdef QUENDAL_TEST_SANITIZED_ALLOCATOR
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#endif
#if defined(__SANITIZE_ADDRESS__)
#define QUENDAL_TEST_LEAK_CHECKED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QUENDAL_TEST_LEAK_CHECKED 1
#endif
#endif
#ifdef QUENDAL_TEST_LEAK_CHECKED
extern "C" void __lsan_disable(void);
extern "C" void __lsan_enable(void);
#endif

namespace QuendalTest {

inline size_t AllocatedBytes() {
#ifdef QUENDAL_TEST_SANITIZED_ALLOCATOR
  return __sanitizer_get_current_allocated_bytes();
#else
  return mallinfo2().uordblks;
#endif
}

// Blocks allocated while it lives are not reported as leaks: for the blocks
// the library drops by design.
class [[maybe_unused]] LeaksIgnored {
 public:
#ifdef QUENDAL_TEST_LEAK_CHECKED
  LeaksIgnored() {
    __lsan_disable();
  }
  ~LeaksIgnored() {
    __lsan_enable();
  }
#endif
};

}  // namespace QuendalTest

#endif
