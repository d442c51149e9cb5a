// FastLock on Linux: a futex word. Taking a free lock is one compare-and-swap
// and releasing an uncontended one another; the kernel is entered only when
// a thread has to sleep or a sleeper has to be woken.
//
// The word holds: kLocked while a thread holds the lock; kSleepers while
// threads may sleep on the word, so the release must wake one; kHandOff
// while the lock, still marked locked, waits for a starving waiter to claim
// it; above them, the number of starving waiters.
//
// Normally a released lock is free for whoever comes first, and the thread
// that released it often takes it back before a waiter notices: that keeps
// the throughput of busy threads, but a waiter can lose every round. So a
// waiter that has waited longer than kStarvationNs counts itself starving,
// and while any waiter starves the release does not free the lock: it hands
// it over, and only a starving waiter may claim it. Newcomers and the
// releasing thread find it held. Only a starving waiter that is awake and
// looking is counted, so a hand-over always finds one to claim it; the last
// starving waiter to get the lock ends the hand-overs.
#ifndef QUENDAL_PLATFORM_NATIVE_FAST_LOCK_H
#define QUENDAL_PLATFORM_NATIVE_FAST_LOCK_H

#include <linux/futex.h>
#include <stdint.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/monotonic_clock.h"
#include "platform/thread_identity.h"

namespace Quendal {
namespace Platform {

class FastLock {
 public:
  FastLock() : m_state(0), m_handOffAt(0) {}

  inline __attribute__((always_inline)) void Lock() {
    int expected = 0;
    if (__builtin_expect(__atomic_compare_exchange_n(&m_state, &expected, kLocked, false,
                                                     __ATOMIC_ACQUIRE, __ATOMIC_RELAXED),
                         1)) {
      return;
    }
    LockContended();
  }

  inline __attribute__((always_inline)) void Unlock() {
    int expected = kLocked;
    if (__builtin_expect(__atomic_compare_exchange_n(&m_state, &expected, 0, false,
                                                     __ATOMIC_RELEASE, __ATOMIC_RELAXED),
                         1)) {
      return;
    }
    UnlockContended();
  }

  // Whether some thread sleeps on the lock or starves for it; for its
  // holder, which sees other waiters only while they look.
  bool HasWaiters() const { return __atomic_load_n(&m_state, __ATOMIC_RELAXED) != kLocked; }

  // The child of fork has only the forking thread, so nobody sleeps on the
  // word or starves for it, and there is nobody to wake.
  void ReleaseInChild() { __atomic_store_n(&m_state, 0, __ATOMIC_RELAXED); }

 private:
  enum { kLocked = 1, kSleepers = 2, kHandOff = 4, kStarving = 8 };

  // The heap's critical sections are short: a holder often leaves within a
  // few hundred cycles, so a waiter first looks at the word a few times
  // before it pays for sleeping and for the unlocker's wake-up call. The
  // looks are spaced out, doubling the pause each time (about 2,300 pauses
  // in all, tens of microseconds): a waiter that read the word all the time
  // would pull its cache line away from the holder at every turn, and two
  // threads busy on the heap would hand the line to and fro on each call
  // (measured: 0.17 of one thread's throughput with a tight spin, 0.93 with
  // these pauses; docs/BENCHMARKS.md).
  enum { kProbes = 16, kMaxDelay = 256, kUntimedProbes = 4 };
  // Some ten critical sections of the heap: busy threads still mostly take
  // the lock as it comes, and a waiter's delay stays near the bound (with a
  // second thread hammering the heap, the 99th percentile of a call was
  // 2.5 us with 1 us here, 4.5 us with 3 us; docs/BENCHMARKS.md). A
  // starving waiter looks at the word every kStarvingDelay pauses for
  // kStarvingSpins looks (tens of microseconds), then sleeps.
  static const uint64_t kStarvationNs = 1000;
  static const uint32_t kStaleHandOffUs = 50;
  enum { kStarvingDelay = 8, kStarvingSpins = 256 };

  // Takes the lock if state lets this waiter: a free lock, or a hand-over
  // to a starving one. A waiter that has slept marks sleepers either way:
  // the release that woke it cleared the mark, and others may still sleep.
  bool TryTake(int state, bool starving, int sleptMark) {
    int desired;
    if ((state & kLocked) == 0) {
      desired = state | kLocked | sleptMark;
    } else if ((state & kHandOff) != 0 && (starving || HandOffIsStale())) {
      desired = (state & ~kHandOff) | sleptMark;
    } else {
      return false;
    }
    if (starving) {
      desired -= kStarving;
    }
    return __atomic_compare_exchange_n(&m_state, &state, desired, false, __ATOMIC_ACQUIRE,
                                       __ATOMIC_RELAXED);
  }

  // Waits as before while the wait is short: a few looks, then sleeping on
  // the word. Past kStarvationNs the waiter counts itself starving and
  // looks often, so that a hand-over finds it awake. The count shares the
  // word with the lock bit and the hand-over bit: a release either saw the
  // count and hands over, or came first and left the lock free to see; and
  // a starving waiter that gives up spinning leaves the count only while no
  // hand-over waits for it, then sleeps as the others do until a release
  // wakes it.
  __attribute__((noinline)) void LockContended() {
    // Most waits end within the first few looks; the clock, which costs
    // about a critical section to read, starts after them.
    uint64_t start = 0;
    bool starving = false;
    int sleptMark = 0;
    unsigned delay = 1;
    int probes = 0;
    unsigned spins = 0;
    for (;;) {
      int state = __atomic_load_n(&m_state, __ATOMIC_RELAXED);
      if (TryTake(state, starving, sleptMark)) {
        return;
      }
      if (!starving) {
        if (probes == kUntimedProbes && start == 0) {
          start = MonotonicNanoseconds();
        }
        if (start != 0 && MonotonicNanoseconds() - start >= kStarvationNs) {
          __atomic_add_fetch(&m_state, kStarving, __ATOMIC_RELAXED);
          starving = true;
          spins = 0;
        } else if (probes < kProbes) {
          // The clock is read between pauses too, so that the longer
          // pauses do not overshoot the bound.
          for (unsigned k = 0; k < delay; ++k) {
            PauseProcessor();
            if ((k & 31) == 31 && start != 0 && MonotonicNanoseconds() - start >= kStarvationNs) {
              break;
            }
          }
          if (delay < kMaxDelay) {
            delay *= 2;
          }
          ++probes;
        } else if ((state & kLocked) != 0) {
          SleepWhileLocked(state);
          sleptMark = kSleepers;
        }
      } else if (spins < kStarvingSpins) {
        for (unsigned k = 0; k < kStarvingDelay; ++k) {
          PauseProcessor();
        }
        ++spins;
      } else if ((state & (kLocked | kHandOff)) == kLocked) {
        int desired = (state - kStarving) | kSleepers;
        if (__atomic_compare_exchange_n(&m_state, &state, desired, false, __ATOMIC_RELAXED,
                                        __ATOMIC_RELAXED)) {
          starving = false;
          syscall(SYS_futex, &m_state, FUTEX_WAIT_PRIVATE, desired, 0, 0, 0);
          sleptMark = kSleepers;
        }
      }
    }
  }

  // Sleeps on the word while it says locked, marking it so that the release
  // that frees it wakes one sleeper.
  void SleepWhileLocked(int state) {
    if ((state & kSleepers) == 0 &&
        !__atomic_compare_exchange_n(&m_state, &state, state | kSleepers, false, __ATOMIC_RELAXED,
                                     __ATOMIC_RELAXED)) {
      return;
    }
    syscall(SYS_futex, &m_state, FUTEX_WAIT_PRIVATE, state | kSleepers, 0, 0, 0);
  }

  // A hand-over nobody claimed for kStaleHandOffNs: its starving waiter was
  // switched out while it looked, and any waiter may take the lock rather
  // than wait for it to run again. It stays counted and starving.
  bool HandOffIsStale() const {
    return Microseconds() - __atomic_load_n(&m_handOffAt, __ATOMIC_RELAXED) >= kStaleHandOffUs;
  }

  // Wraps every 71 minutes, harmlessly for differences of microseconds.
  static uint32_t Microseconds() { return static_cast<uint32_t>(MonotonicNanoseconds() / 1000); }

  __attribute__((noinline)) void UnlockContended() {
    int state = __atomic_load_n(&m_state, __ATOMIC_RELAXED);
    if (state >= kStarving) {
      __atomic_store_n(&m_handOffAt, Microseconds(), __ATOMIC_RELAXED);
    }
    for (;;) {
      // The lock stays marked locked: its next holder is a starving waiter.
      int desired = state >= kStarving ? state | kHandOff : 0;
      if (__atomic_compare_exchange_n(&m_state, &state, desired, false, __ATOMIC_RELEASE,
                                      __ATOMIC_RELAXED)) {
        break;
      }
    }
    if (state < kStarving && (state & kSleepers) != 0) {
      syscall(SYS_futex, &m_state, FUTEX_WAKE_PRIVATE, 1, 0, 0, 0);
    }
  }

  FastLock(const FastLock&);
  FastLock& operator=(const FastLock&);

  int m_state;
  // When the last hand-over was made.
  uint32_t m_handOffAt;
};

}  // namespace Platform
}  // namespace Quendal

#endif
