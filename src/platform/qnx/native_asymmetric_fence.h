// QNX has no way for one thread to make the others run a barrier, so the
// heavy half is never available there and the heap's lock stays the POSIX
// mutex on every call.
#ifndef QUENDAL_PLATFORM_NATIVE_ASYMMETRIC_FENCE_H
#define QUENDAL_PLATFORM_NATIVE_ASYMMETRIC_FENCE_H

namespace Quendal {
namespace Platform {

inline bool RegisterHeavyFence() {
  return false;
}

inline void HeavyFence() {}

}  // namespace Platform
}  // namespace Quendal

#endif
