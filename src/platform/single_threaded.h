// Whether the process has only ever had one thread, as the C library sees
// it. The heap skips its lock while this holds: with no second thread there
// is nobody to exclude, and a thread created later sees the flag cleared
// before it runs.
#ifndef QUENDAL_PLATFORM_SINGLE_THREADED_H
#define QUENDAL_PLATFORM_SINGLE_THREADED_H

// Any C library header defines the library's own identification macros.
#include <unistd.h>

#include "platform/target_choices.h"

#if defined(__GLIBC__) && !defined(QUENDAL_QNX_CHOICES) && \
    (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 32))
#include <sys/single_threaded.h>
#define QUENDAL_HAS_LIBC_SINGLE_THREADED 1
#endif

namespace Quendal {
namespace Platform {

// True while no second thread can exist in the process. glibc clears its
// flag before the first pthread_create returns and never sets it again, so
// a false answer stays false. Platforms without such a flag (QNX among
// them, and the portable build that runs QNX's choices) always answer
// false, and their heap always locks.
inline bool IsSingleThreaded() {
#if defined(QUENDAL_HAS_LIBC_SINGLE_THREADED)
  return __libc_single_threaded != 0;
#else
  return false;
#endif
}

}  // namespace Platform
}  // namespace Quendal

#endif
