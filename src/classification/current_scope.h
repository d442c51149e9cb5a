// The thread key that holds each thread's innermost live ScopedId.
#ifndef QUENDAL_CLASSIFICATION_CURRENT_SCOPE_H
#define QUENDAL_CLASSIFICATION_CURRENT_SCOPE_H

#include "platform/thread_key.h"

namespace Quendal {
namespace Classification {

// Zero until Init creates the key; the key's slot in every thread holds a
// const ScopedId* or null.
extern Platform::ThreadKey currentScopeKey;

// Owns currentScopeKey: the one object of the process creates the key when
// it is built and deletes it when the library is unloaded or the process
// ends.
class PthreadKeyInitialization {
 public:
  PthreadKeyInitialization();
  ~PthreadKeyInitialization();

  // Returns the one object, building it (and so the key) on the first call,
  // also when several threads make that call together.
  static PthreadKeyInitialization& getPthreadKeyInitialization();

 private:
  PthreadKeyInitialization(const PthreadKeyInitialization&);
  PthreadKeyInitialization& operator=(const PthreadKeyInitialization&);
};

}  // namespace Classification
}  // namespace Quendal

#endif
