// Compiler hints and checks that also work in the C++03 build.
#ifndef QUENDAL_UTIL_COMPILER_H
#define QUENDAL_UTIL_COMPILER_H

#if defined(__GNUC__) || defined(__clang__)
#define QD_LIKELY(x) __builtin_expect(!!(x), 1)
#define QD_UNLIKELY(x) __builtin_expect(!!(x), 0)
#define QD_NOINLINE __attribute__((noinline))
#define QD_ALWAYS_INLINE inline __attribute__((always_inline))
// Starts loading the cache line at address for a read soon to come.
#define QD_PREFETCH(address) __builtin_prefetch(address)
#else
#define QD_LIKELY(x) (x)
#define QD_UNLIKELY(x) (x)
#define QD_NOINLINE
#define QD_ALWAYS_INLINE inline
#define QD_PREFETCH(address) ((void)(address))
#endif

#define QD_CONCAT_IMPL(a, b) a##b
#define QD_CONCAT(a, b) QD_CONCAT_IMPL(a, b)

// A compile-time check usable at namespace and class scope in C++03.
#define QD_STATIC_ASSERT(condition)                                              \
  typedef char QD_CONCAT(quendal_static_assert_, __LINE__)[(condition) ? 1 : -1] \
      __attribute__((unused))

#endif
