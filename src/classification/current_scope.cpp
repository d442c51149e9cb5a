// Each thread's current module scope, kept in one thread-specific slot.
#include "classification/current_scope.h"

#include "quendal/classification.h"

namespace Quendal {
namespace Classification {

Platform::ThreadKey currentScopeKey = Platform::ThreadKey();

namespace {

// Set once the key is deleted at exit or unload. The slot accessors then
// leave the key alone: its number may already name another component's key.
bool scopeKeyDeleted = false;

}  // namespace

PthreadKeyInitialization::PthreadKeyInitialization() {
  Platform::CreateThreadKey(&currentScopeKey);
}

PthreadKeyInitialization::~PthreadKeyInitialization() {
  scopeKeyDeleted = true;
  Platform::DeleteThreadKey(currentScopeKey);
}

PthreadKeyInitialization& PthreadKeyInitialization::getPthreadKeyInitialization() {
  static PthreadKeyInitialization pthreadInitializer;
  return pthreadInitializer;
}

void Init() {
  PthreadKeyInitialization::getPthreadKeyInitialization();
}

// Before the first Init the zero key value may belong to another component
// of the process, so the slot accessors make sure our own key exists; after
// the first call this costs only the one-time guard's check. Once the key
// is deleted no scope is current and none becomes current.
const ScopedId* GetId() {
  Init();
  if (scopeKeyDeleted) {
    return 0;
  }
  return static_cast<const ScopedId*>(Platform::GetThreadValue(currentScopeKey));
}

void SetId(const ScopedId* scope) {
  Init();
  if (scopeKeyDeleted) {
    return;
  }
  Platform::SetThreadValue(currentScopeKey, scope);
}

}  // namespace Classification
}  // namespace Quendal
