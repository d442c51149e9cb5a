// A clock that only moves forward, for measuring how long a thread has
// waited; its start is arbitrary.
#ifndef QUENDAL_PLATFORM_MONOTONIC_CLOCK_H
#define QUENDAL_PLATFORM_MONOTONIC_CLOCK_H

#include <stdint.h>
#include <time.h>

namespace Quendal {
namespace Platform {

inline uint64_t MonotonicNanoseconds() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace Platform
}  // namespace Quendal

#endif
