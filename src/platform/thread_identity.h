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

// The calling thread's thread pointer where the compiler reads it in one
// instruction (a segment base on x86, the thread register on ARM): unique
// among running threads, never 0, fixed for the thread's life, and valid in
// a library loaded by dlopen, unlike a thread-local variable of the
// initial-exec kind. Elsewhere the thread's descriptor, as above.
inline uintptr_t CurrentThreadPointer() {
#if defined(__linux__) && \
    (defined(__x86_64__) || defined(__i386__) || defined(__arm__) || defined(__aarch64__))
  return reinterpret_cast<uintptr_t>(__builtin_thread_pointer());
#else
  return CurrentThreadIdentity();
#endif
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

// Lets a processor that shares its core rest a moment in a busy wait.
inline void PauseProcessor() {
#if defined(__i386__) || defined(__x86_64__)
  __builtin_ia32_pause();
#else
  __asm__ __volatile__("" ::: "memory");
#endif
}

// Waits for another thread to leave a section of a few hundred
// instructions: first looks again after pauses, then as WaitAWhile, for a
// thread that was switched out inside.
inline void WaitBriefly(unsigned round) {
  if (round < 64) {
    for (unsigned k = 0; k < 16; ++k) {
      PauseProcessor();
    }
    return;
  }
  WaitAWhile(round - 64);
}

}  // namespace Platform
}  // namespace Quendal

#endif
