// FastLock on QNX: a POSIX mutex of the explicit normal type, the cheapest
// the system offers for a lock no path takes twice on one thread.
#ifndef QUENDAL_PLATFORM_NATIVE_FAST_LOCK_H
#define QUENDAL_PLATFORM_NATIVE_FAST_LOCK_H

#include <pthread.h>

#include "platform/mutex.h"

namespace Quendal {
namespace Platform {

class FastLock {
 public:
  FastLock() { InitMutex(&m_mutex, kNormalMutex); }
  void Lock() { LockMutex(&m_mutex); }
  void Unlock() { UnlockMutex(&m_mutex); }
  // The mutex does not tell; the heap never gives its bias on QNX anyway.
  bool HasWaiters() const { return false; }
  // The child's only thread is the one that locked it before fork.
  void ReleaseInChild() { UnlockMutex(&m_mutex); }

 private:
  FastLock(const FastLock&);
  FastLock& operator=(const FastLock&);

  pthread_mutex_t m_mutex;
};

}  // namespace Platform
}  // namespace Quendal

#endif
