// The platform's fundamental alignment, the alignment malloc guarantees:
// 8 on 32-bit ARM, 16 on i386 and x86-64. Spelt out as a type so that the
// C++03 build, which has no std::max_align_t, gets the same value.
#ifndef QUENDAL_UTIL_MAX_ALIGN_H
#define QUENDAL_UTIL_MAX_ALIGN_H

#include <stddef.h>

namespace Quendal {

struct MaxAlign {
  long long wide;
  long double extended;
  void* pointer;
#if defined(__i386__) && (defined(__GNUC__) || defined(__clang__))
  // i386 gives the quad float 16-byte alignment, and so does its malloc.
  __float128 quad;
#endif
};

static const size_t kMaxAlign = __alignof__(MaxAlign);

// Rounds value up to a multiple of kMaxAlign.
inline size_t RoundUpToMaxAlign(size_t value) {
  return (value + kMaxAlign - 1) / kMaxAlign * kMaxAlign;
}

// Zero-initialised static storage, aligned for any type, in which a singleton
// is constructed in place.
template <class T>
union AlignedStorage {
  unsigned char bytes[sizeof(T)];
  MaxAlign aligner;
};

}  // namespace Quendal

#endif
