// The heavy half of the asymmetric fence on Linux: the private expedited
// membarrier command (Linux 4.14 on), which interrupts every processor that
// runs a thread of this process and has it execute a full barrier; a thread
// that is not running passes one when it is next scheduled. The process must
// register once; a kernel without the command refuses the registration.
//
// ThreadSanitizer cannot see the barrier the kernel runs in other threads,
// and would report every use of the fence as a data race: built for it, the
// fence says it is not available.
#ifndef QUENDAL_PLATFORM_NATIVE_ASYMMETRIC_FENCE_H
#define QUENDAL_PLATFORM_NATIVE_ASYMMETRIC_FENCE_H

#include <sys/syscall.h>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
#define QUENDAL_NO_HEAVY_FENCE 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QUENDAL_NO_HEAVY_FENCE 1
#endif
#endif
#if !defined(SYS_membarrier)
#define QUENDAL_NO_HEAVY_FENCE 1
#endif

namespace Quendal {
namespace Platform {

// The command numbers of <linux/membarrier.h>, which older kernel headers
// lack.
enum { kMembarrierPrivateExpedited = 1 << 3, kMembarrierRegisterPrivateExpedited = 1 << 4 };

inline bool RegisterHeavyFence() {
#if defined(QUENDAL_NO_HEAVY_FENCE)
  return false;
#else
  return syscall(SYS_membarrier, kMembarrierRegisterPrivateExpedited, 0, 0) == 0;
#endif
}

// Once registered the command cannot fail: its result is not looked at.
inline void HeavyFence() {
#if !defined(QUENDAL_NO_HEAVY_FENCE)
  syscall(SYS_membarrier, kMembarrierPrivateExpedited, 0, 0);
#endif
}

}  // namespace Platform
}  // namespace Quendal

#endif
