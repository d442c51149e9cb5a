// Compiles every member of the QNX FastLock, and the heap's lock over it, on
// the build machine.
#include "heap/biased_lock.h"
#include "platform/fast_lock.h"

void QuendalQnxFastLockCompiles() {
  static Quendal::Platform::FastLock lock;
  lock.Lock();
  lock.Unlock();
  lock.Lock();
  static_cast<void>(lock.HasWaiters());
  lock.ReleaseInChild();
  static Quendal::Heap::BiasedLock biased;
  biased.Leave(biased.Enter());
  biased.Leave(biased.EnterForFork());
  biased.EnterForFork();
  biased.ReleaseInChild();
}
