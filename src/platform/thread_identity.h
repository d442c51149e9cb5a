// Who is running: the calling thread and its process, for the heap's
// start-up gate, which must tell its own holder from other threads, and a
// holder that stayed behind in the parent of a forked child from a live one.
#ifndef QUENDAL_PLATFORM_THREAD_IDENTITY_H
#define QUENDAL_PLATFORM_THREAD_IDENTITY_H

#include <pthread.h>
#include <sched.h>
#include <stdint.h>
#include <time.h>
#include <unistd.h>

namespace Quendal {
namespace Platform {

// Never 0 for a running thread, on Linux (a descriptor's address) as on QNX
// (a thread number from 1).
inline uintptr_t CurrentThreadIdentity() {
  return (uintptr_t)pthread_self();
}

inline long CurrentProcessId() {
  return static_cast<long>(getpid());
}

// Gives the processor away while another thread finishes something that
// takes a while (reading a file): first a few yields, then sleeps growing to
// a millisecond, so that a waiter neither burns a core nor oversleeps much.
inline void WaitAWhile(unsigned round) {
  if (round < 16) {
    sched_yield();
    return;
  }
  unsigned shift = round - 16 < 6 ? round - 16 : 6;
  struct timespec pause;
  pause.tv_sec = 0;
  pause.tv_nsec = 16000L << shift;
  nanosleep(&pause, 0);
}

}  // namespace Platform
}  // namespace Quendal

#endif
