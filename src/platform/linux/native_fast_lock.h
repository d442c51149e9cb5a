// FastLock on Linux: a futex word with three states, 0 free, 1 held, 2 held
// with possible sleepers. Taking a free lock is one compare-and-swap and
// releasing it one exchange; the kernel is entered only when a thread has to
// sleep or a sleeper has to be woken.
#ifndef QUENDAL_PLATFORM_NATIVE_FAST_LOCK_H
#define QUENDAL_PLATFORM_NATIVE_FAST_LOCK_H

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Quendal {
namespace Platform {

class FastLock {
 public:
  FastLock() : m_state(0) {}

  inline __attribute__((always_inline)) void Lock() {
    int expected = 0;
    if (__builtin_expect(__atomic_compare_exchange_n(&m_state, &expected, 1, false,
                                                     __ATOMIC_ACQUIRE, __ATOMIC_RELAXED),
                         1)) {
      return;
    }
    LockContended();
  }

  inline __attribute__((always_inline)) void Unlock() {
    if (__builtin_expect(__atomic_exchange_n(&m_state, 0, __ATOMIC_RELEASE) == 2, 0)) {
      WakeOne();
    }
  }

  // The child of fork has only the forking thread, so nobody sleeps on the
  // word and there is nobody to wake.
  void ReleaseInChild() { __atomic_store_n(&m_state, 0, __ATOMIC_RELAXED); }

 private:
  // The heap's critical sections are short: a holder often leaves within a
  // few hundred cycles, so a waiter first looks at the word a few times
  // before it pays for sleeping and for the unlocker's wake-up call. The
  // looks are spaced out, doubling the pause each time (about 2,300 pauses
  // in all, tens of microseconds): a waiter that read the word all the time
  // would pull its cache line away from the holder at every turn, and two
  // threads busy on the heap would hand the line to and fro on each call
  // (measured: 0.17 of one thread's throughput with a tight spin, 0.93 with
  // these pauses; docs/BENCHMARKS.md).
  enum { kProbes = 16, kMaxDelay = 256 };

  __attribute__((noinline)) void LockContended() {
    unsigned delay = 1;
    for (int probe = 0; probe < kProbes; ++probe) {
      for (unsigned k = 0; k < delay; ++k) {
        Pause();
      }
      if (__atomic_load_n(&m_state, __ATOMIC_RELAXED) == 0) {
        int expected = 0;
        if (__atomic_compare_exchange_n(&m_state, &expected, 1, false, __ATOMIC_ACQUIRE,
                                        __ATOMIC_RELAXED)) {
          return;
        }
      }
      if (delay < kMaxDelay) {
        delay *= 2;
      }
    }
    // From here on the word says 2 whenever this thread may sleep, so the
    // unlock that frees it wakes one sleeper. Taking the lock this way leaves
    // it at 2 even when nobody else waits: one wake-up call too many at worst.
    while (__atomic_exchange_n(&m_state, 2, __ATOMIC_ACQUIRE) != 0) {
      syscall(SYS_futex, &m_state, FUTEX_WAIT_PRIVATE, 2, 0, 0, 0);
    }
  }

  __attribute__((noinline)) void WakeOne() {
    syscall(SYS_futex, &m_state, FUTEX_WAKE_PRIVATE, 1, 0, 0, 0);
  }

  static inline void Pause() {
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#else
    __asm__ __volatile__("" ::: "memory");
#endif
  }

  FastLock(const FastLock&);
  FastLock& operator=(const FastLock&);

  int m_state;
};

}  // namespace Platform
}  // namespace Quendal

#endif
