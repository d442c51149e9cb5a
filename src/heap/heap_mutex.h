// The heap's lock.
#ifndef QUENDAL_HEAP_HEAP_MUTEX_H
#define QUENDAL_HEAP_HEAP_MUTEX_H

#include "heap/biased_lock.h"
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
  typedef BiasedLock::Token Token;

  Mutex() : m_forkToken(0) { Platform::GuardAcrossFork(Platform::kHeapLockRank, this, &forkCalls); }

  QD_ALWAYS_INLINE Token Enter() { return m_lock.Enter(); }
  QD_ALWAYS_INLINE void Leave(Token token) { m_lock.Leave(token); }

  BiasedLock& GetLock() { return m_lock; }

 private:
  // The fork guard serialises forks, so one token serves them all.
  static void Acquire(void* mutex) {
    Mutex* self = static_cast<Mutex*>(mutex);
    self->m_forkToken = self->m_lock.EnterForFork();
  }
  static void Release(void* mutex) {
    Mutex* self = static_cast<Mutex*>(mutex);
    self->m_lock.Leave(self->m_forkToken);
  }
  static void ReleaseInChild(void* mutex) { static_cast<Mutex*>(mutex)->m_lock.ReleaseInChild(); }

  Mutex(const Mutex&);
  Mutex& operator=(const Mutex&);

  static const Platform::ForkLockCalls forkCalls;

  BiasedLock m_lock;
  BiasedLock::Token m_forkToken;
};

}  // namespace Heap
}  // namespace Quendal

#endif
