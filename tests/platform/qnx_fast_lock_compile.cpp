// Compiles every member of the QNX FastLock on the build machine.
#include "platform/fast_lock.h"

void QuendalQnxFastLockCompiles() {
  static Quendal::Platform::FastLock lock;
  lock.Lock();
  lock.Unlock();
  lock.Lock();
  lock.ReleaseInChild();
}
