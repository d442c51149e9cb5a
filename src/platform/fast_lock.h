// The heap's lock: a non-recursive lock that is never destroyed, cheap when
// uncontended. Each system brings its own native_fast_lock.h (the build puts
// the system's folder on the include path), declaring
//
//   class FastLock {
//    public:
//     FastLock();            // unlocked
//     void Lock();
//     void Unlock();
//     bool HasWaiters() const; // for the holder: others wait (may say false)
//     void ReleaseInChild(); // frees it in a child forked while it was held
//   };
#ifndef QUENDAL_PLATFORM_FAST_LOCK_H
#define QUENDAL_PLATFORM_FAST_LOCK_H

#include "native_fast_lock.h"

#endif
