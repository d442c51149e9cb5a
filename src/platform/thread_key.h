// Thread-specific slots: one pointer per thread under a process-wide key.
#ifndef QUENDAL_PLATFORM_THREAD_KEY_H
#define QUENDAL_PLATFORM_THREAD_KEY_H

#include <pthread.h>

#include "platform/own_work.h"

namespace Quendal {
namespace Platform {

typedef pthread_key_t ThreadKey;

// Creates a key whose slots start null in every thread and have no destructor.
inline void CreateThreadKey(ThreadKey* key) {
  OwnWorkScope ownWork;
  pthread_key_create(key, 0);
}

// The same with a destructor, which a thread that ends calls with its slot's
// value when that is not null.
inline void CreateThreadKeyWithDestructor(ThreadKey* key, void (*destructor)(void*)) {
  OwnWorkScope ownWork;
  pthread_key_create(key, destructor);
}

inline void DeleteThreadKey(ThreadKey key) {
  pthread_key_delete(key);
}

// The C library may allocate a thread's slots on its first value.
inline void SetThreadValue(ThreadKey key, const void* value) {
  OwnWorkScope ownWork;
  pthread_setspecific(key, value);
}

inline void* GetThreadValue(ThreadKey key) {
  return pthread_getspecific(key);
}

}  // namespace Platform
}  // namespace Quendal

#endif
