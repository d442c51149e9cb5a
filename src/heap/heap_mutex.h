// The heap's lock.
#ifndef QUENDAL_HEAP_HEAP_MUTEX_H
#define QUENDAL_HEAP_HEAP_MUTEX_H

#include "platform/fast_lock.h"
#include "platform/fork_guard.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

// No path takes the heap's lock twice on one thread, so it need not be
// recursive. It is never destroyed: allocations made while the process tears
// down still take it. Fork takes and releases it, so that a child forked while
// another thread was inside the pool finds the pool whole and the lock free.
class Mutex {
 public:
  Mutex() { Platform::GuardAcrossFork(Platform::kHeapLockRank, &m_lock, &forkCalls); }

  QD_ALWAYS_INLINE void Lock() { m_lock.Lock(); }
  QD_ALWAYS_INLINE void Unlock() { m_lock.Unlock(); }

 private:
  static void Acquire(void* lock) { static_cast<Platform::FastLock*>(lock)->Lock(); }
  static void Release(void* lock) { static_cast<Platform::FastLock*>(lock)->Unlock(); }
  static void ReleaseInChild(void* lock) {
    static_cast<Platform::FastLock*>(lock)->ReleaseInChild();
  }

  Mutex(const Mutex&);
  Mutex& operator=(const Mutex&);

  static const Platform::ForkLockCalls forkCalls;

  Platform::FastLock m_lock;
};

}  // namespace Heap
}  // namespace Quendal

#endif
