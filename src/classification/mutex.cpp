// The registry's lock, a thin owner of one plain platform mutex.
#include "quendal/classification.h"

#include "platform/mutex.h"

namespace Quendal {
namespace Classification {

Mutex::Mutex() {
  Platform::InitMutex(&m_mutex, Platform::kPlainMutex);
}

Mutex::~Mutex() {
  Platform::DestroyMutex(&m_mutex);
}

void Mutex::Lock() {
  Platform::LockMutex(&m_mutex);
}

void Mutex::Unlock() {
  Platform::UnlockMutex(&m_mutex);
}

}  // namespace Classification
}  // namespace Quendal
