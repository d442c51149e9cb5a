// The heap's lock, biased to the thread that uses the heap.
//
// In most processes one thread makes nearly all heap calls while the others
// wait for something else. That thread can own the lock's bias: while it
// does, its Enter and Leave are plain loads and stores to memory only it
// writes, with no atomic read-modify-write and no barrier. Any other thread
// that wants the lock first revokes the bias, paying for both sides with an
// asymmetric fence, then takes the FastLock underneath, which every thread
// uses while nobody owns the bias.
//
// Protocol. The lock keeps a table of records, one per thread that ever
// owned the bias: the thread's identity (its thread pointer) and a busy
// flag that only that thread writes. bias points at the owner's record, or
// at the lock's own record whose identity 0 matches no thread.
//
//   owner's Enter:  r = bias; if r.identity == me:
//                     r.busy = 1; light fence; if bias == r: inside (biased)
//                     r.busy = 0 (release); go the slow way
//   owner's Leave:  r.busy = 0 (release)
//   slow Enter:     take the FastLock; if bias points at r, not unbiased:
//                     bias = unbiased; heavy fence; wait until r.busy == 0
//                     (acquire); inside (locked)
//   slow Leave:     perhaps bias = my record (policy below); release the
//                     FastLock
//
// bias changes only under the FastLock; a record's identity is written once,
// under the FastLock, by the thread it names, and never changes (the table
// is cleared only in a child of fork, which has one thread).
//
// Why mutual exclusion holds. Threads on the slow way exclude each other by
// the FastLock. A thread that goes the slow way while the bias is r
// revokes it before it enters. The owner O of r stores busy then loads bias;
// the revoker R stores bias then loads busy. R's heavy fence acts as a full
// barrier in O at some point P of O's instruction stream, and as one in R
// between its store and its load. If P falls after O's load of bias, O's
// store of busy = 1 was visible before the fence returned, so R sees busy
// = 1 and waits for O's release store of 0, which O makes after its
// section: O's section happens before R's. If P falls before O's store of
// busy, O's load of bias comes after R's store, sees the lock unbiased, and
// O goes the slow way, where it waits for the FastLock R holds. If P falls
// between them it is a full fence between O's store and load, and with R's
// fence this is the store-buffering pattern with fences on both sides,
// which cannot read the old value on both sides: one of the two cases
// above. A thread that is not running when R fences has passed a full
// barrier when it was switched out. The light fence keeps the compiler
// from moving O's accesses across these points; the processor's ordering is
// the heavy fence's work. O's release store of busy = 0 orders its section
// before R's acquire load that sees it (a plain store on x86, one-way on
// 64-bit ARM; on 32-bit ARM it costs a barrier, which a second heavy fence
// per revocation could replace).
//
// A thread that read bias == r long ago and was held up before its store
// can wake after r was revoked and even after the bias went to another
// thread: it writes only its own record's busy, which nobody waits on
// unless bias points there, and bias points at its record again only after
// the thread itself set it, on its own slow Leave. That is why busy is one
// flag per thread and not one per lock: a stale store to a shared flag
// could clear it under another owner. Records are never handed to another
// thread for the same reason; a thread that exits leaves its record with
// busy 0 (it left its section), so a revoker never waits for a dead owner,
// and a new thread with the same thread pointer simply reuses it. When the
// table is full, threads without a record never own the bias.
//
// Policy. The slow way counts the acquisitions the same thread makes in a
// row; after kFirstRun of them the thread takes the bias on its next slow
// Leave. A revocation soon after the bias was given (within kLongBiasNs)
// doubles the run needed, up to kMaxRun, so threads that take turns finely
// stop paying a revocation per call; a bias that lasted longer brings it
// back to kFirstRun. The heavy fence is registered the first time a bias
// would be given; where the system refuses it (or ThreadSanitizer is
// built), no bias is ever given and the lock is the FastLock alone.
//
// While the process has only one thread (as the C library sees it) Enter
// takes nothing at all.
#ifndef QUENDAL_HEAP_BIASED_LOCK_H
#define QUENDAL_HEAP_BIASED_LOCK_H

#include <stdint.h>

#include "platform/asymmetric_fence.h"
#include "platform/fast_lock.h"
#include "platform/monotonic_clock.h"
#include "platform/single_threaded.h"
#include "platform/thread_identity.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

class BiasedLock {
 public:
  // What Enter did, for the matching Leave: nothing, the FastLock, or the
  // owner's record.
  typedef uintptr_t Token;

  // firstRun and maxRun bound the run of acquisitions after which a thread
  // takes the bias (the heap uses the defaults; a test moves the bias on
  // every change of hands with 1 and 1).
  explicit BiasedLock(uint32_t firstRun = kFirstRun, uint32_t maxRun = kMaxRun)
      : m_firstRun(firstRun), m_maxRun(maxRun) {
    ForgetBias();
  }

  QD_ALWAYS_INLINE Token Enter() {
    if (QD_LIKELY(Platform::IsSingleThreaded())) {
      return kNothingTaken;
    }
    Record* record = __atomic_load_n(&m_bias, __ATOMIC_RELAXED);
    if (QD_LIKELY(__atomic_load_n(&record->identity, __ATOMIC_RELAXED) ==
                  Platform::CurrentThreadPointer())) {
      __atomic_store_n(&record->busy, 1, __ATOMIC_RELAXED);
      Platform::LightFence();
      if (QD_LIKELY(__atomic_load_n(&m_bias, __ATOMIC_RELAXED) == record)) {
        Platform::LightFence();
        return reinterpret_cast<Token>(record);
      }
      __atomic_store_n(&record->busy, 0, __ATOMIC_RELEASE);
    }
    return EnterSlowly();
  }

  QD_ALWAYS_INLINE void Leave(Token token) {
    if (QD_LIKELY(token > kFastLockTaken)) {
      __atomic_store_n(&reinterpret_cast<Record*>(token)->busy, 0, __ATOMIC_RELEASE);
      return;
    }
    if (token == kFastLockTaken) {
      LeaveSlowly();
    }
  }

  // For fork: takes the FastLock and revokes any bias, the caller's own
  // included, also in a process that has only one thread, so that no
  // thread is inside and the child can start afresh. Leave(token) ends it.
  QD_NOINLINE Token EnterForFork() {
    m_lock.Lock();
    Record* record = __atomic_load_n(&m_bias, __ATOMIC_RELAXED);
    if (record != &m_unbiased) {
      Revoke(record, Platform::CurrentThreadPointer());
    }
    // Fork ends any run, so its Leave gives no bias.
    m_holder = 0;
    m_run = 0;
    return kFastLockTaken;
  }

  // In the child of fork, after EnterForFork in the parent: the child's one
  // thread frees the lock and forgets every record, since the threads they
  // name do not exist there.
  void ReleaseInChild() {
    m_lock.ReleaseInChild();
    ForgetBias();
  }

  // Whether the calling thread owns the bias: for tests.
  bool IsBiasedToCaller() const {
    return __atomic_load_n(&__atomic_load_n(&m_bias, __ATOMIC_RELAXED)->identity,
                           __ATOMIC_RELAXED) == Platform::CurrentThreadPointer();
  }

 private:
  struct Record {
    uintptr_t identity;
    int busy;
  };

  enum { kNothingTaken = 0, kFastLockTaken = 1 };
  enum { kRecords = 64 };
  enum FenceState { kFenceUnknown, kFenceReady, kFenceRefused };
  enum { kFirstRun = 64, kMaxRun = 1 << 16 };
  // Long enough that one revocation (a few microseconds) is lost in it.
  static const uint64_t kLongBiasNs = 1000000;

  void ForgetBias() {
    m_unbiased.identity = 0;
    m_unbiased.busy = 0;
    for (int index = 0; index < kRecords; ++index) {
      m_records[index].identity = 0;
      m_records[index].busy = 0;
    }
    __atomic_store_n(&m_bias, &m_unbiased, __ATOMIC_RELAXED);
    m_holder = 0;
    m_run = 0;
    m_runNeeded = m_firstRun;
    m_biasedSince = 0;
    // The child of fork registers again: the registration is the process's.
    m_fence = kFenceUnknown;
  }

  QD_NOINLINE Token EnterSlowly() {
    uintptr_t self = Platform::CurrentThreadPointer();
    m_lock.Lock();
    Record* record = __atomic_load_n(&m_bias, __ATOMIC_RELAXED);
    if (record != &m_unbiased) {
      Revoke(record, self);
    }
    if (m_holder == self) {
      if (m_run < m_maxRun) {
        ++m_run;
      }
    } else {
      m_holder = self;
      m_run = 1;
    }
    return kFastLockTaken;
  }

  // The bias goes to the thread that leaves, never to another: only its
  // own program order, not the release of the FastLock, carries what
  // happened under the lock to its biased entries.
  QD_NOINLINE void LeaveSlowly() {
    if (m_run >= m_runNeeded && m_holder == Platform::CurrentThreadPointer()) {
      GiveBiasToHolder();
    }
    m_lock.Unlock();
  }

  void Revoke(Record* record, uintptr_t self) {
    __atomic_store_n(&m_bias, &m_unbiased, __ATOMIC_RELAXED);
    m_holder = 0;
    m_run = 0;
    if (__atomic_load_n(&record->identity, __ATOMIC_RELAXED) == self) {
      return;
    }
    Platform::HeavyFence();
    for (unsigned round = 0; __atomic_load_n(&record->busy, __ATOMIC_ACQUIRE) != 0; ++round) {
      Platform::WaitBriefly(round);
    }
    if (Platform::MonotonicNanoseconds() - m_biasedSince >= kLongBiasNs) {
      m_runNeeded = m_firstRun;
    } else if (m_runNeeded < m_maxRun) {
      m_runNeeded = m_runNeeded * 2 < m_maxRun ? m_runNeeded * 2 : m_maxRun;
    }
  }

  void GiveBiasToHolder() {
    m_run = 0;
    if (m_fence == kFenceUnknown) {
      m_fence = Platform::RegisterHeavyFence() ? kFenceReady : kFenceRefused;
    }
    if (m_fence != kFenceReady) {
      m_runNeeded = m_maxRun;
      return;
    }
    // Another thread already waits: it would revoke the bias at once.
    if (m_lock.HasWaiters()) {
      return;
    }
    Record* record = RecordOf(m_holder);
    if (record == 0) {
      return;
    }
    m_biasedSince = Platform::MonotonicNanoseconds();
    __atomic_store_n(&m_bias, record, __ATOMIC_RELAXED);
  }

  // The record of thread, claimed for it if it has none; null when the
  // table is full.
  Record* RecordOf(uintptr_t thread) {
    Record* free = 0;
    for (int index = 0; index < kRecords; ++index) {
      uintptr_t identity = __atomic_load_n(&m_records[index].identity, __ATOMIC_RELAXED);
      if (identity == thread) {
        return &m_records[index];
      }
      if (identity == 0 && free == 0) {
        free = &m_records[index];
      }
    }
    if (free != 0) {
      __atomic_store_n(&free->identity, thread, __ATOMIC_RELAXED);
    }
    return free;
  }

  BiasedLock(const BiasedLock&);
  BiasedLock& operator=(const BiasedLock&);

  Record* m_bias;
  Record m_unbiased;
  Platform::FastLock m_lock;
  // The rest is read and written under m_lock only.
  uint32_t m_firstRun;
  uint32_t m_maxRun;
  uintptr_t m_holder;
  uint32_t m_run;
  uint32_t m_runNeeded;
  uint64_t m_biasedSince;
  FenceState m_fence;
  Record m_records[kRecords];
};

}  // namespace Heap
}  // namespace Quendal

#endif
