// A fence split in two unequal halves. The light half is free: it only keeps
// the compiler from moving memory accesses across it. The heavy half, run by
// another thread, acts as a full memory barrier executed at that moment on
// every thread of the process that is running, so a light half on one side
// and a heavy half on the other order memory as two full fences would. The
// heavy half costs a system call and interrupts the other processors; it
// suits a protocol where one side runs all the time and the other rarely.
// Each system brings its own native_asymmetric_fence.h, declaring
//
//   bool RegisterHeavyFence(); // true when HeavyFence works in this process
//   void HeavyFence();         // only after RegisterHeavyFence said true
#ifndef QUENDAL_PLATFORM_ASYMMETRIC_FENCE_H
#define QUENDAL_PLATFORM_ASYMMETRIC_FENCE_H

#include "native_asymmetric_fence.h"

namespace Quendal {
namespace Platform {

inline void LightFence() {
  __atomic_signal_fence(__ATOMIC_SEQ_CST);
}

}  // namespace Platform
}  // namespace Quendal

#endif
