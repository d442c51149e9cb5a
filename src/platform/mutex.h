// POSIX mutexes of the library: the module registry's lock, and the heap's
// lock where the system has no cheaper one.
#ifndef QUENDAL_PLATFORM_MUTEX_H
#define QUENDAL_PLATFORM_MUTEX_H

#include <pthread.h>

namespace Quendal {
namespace Platform {

enum MutexKind {
  // Default attributes: not recursive.
  kPlainMutex,
  // The platform's recursive type (PTHREAD_MUTEX_RECURSIVE, value 2 on QNX).
  kRecursiveMutex,
  // Not recursive, set explicitly (PTHREAD_MUTEX_NORMAL): the cheapest lock,
  // for a mutex that no path takes twice on one thread.
  kNormalMutex
};

// Initialises mutex as kind. Results are not checked: a failed mutex call has
// no error path in the library.
inline void InitMutex(pthread_mutex_t* mutex, MutexKind kind) {
  if (kind == kPlainMutex) {
    pthread_mutex_init(mutex, 0);
    return;
  }
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes,
                            kind == kNormalMutex ? PTHREAD_MUTEX_NORMAL : PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

inline void LockMutex(pthread_mutex_t* mutex) {
  pthread_mutex_lock(mutex);
}

inline void UnlockMutex(pthread_mutex_t* mutex) {
  pthread_mutex_unlock(mutex);
}

inline void DestroyMutex(pthread_mutex_t* mutex) {
  pthread_mutex_destroy(mutex);
}

}  // namespace Platform
}  // namespace Quendal

#endif
