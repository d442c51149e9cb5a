// Each thread's current module scope, kept in one thread-specific slot.
#include "classification/current_scope.h"

#include "quendal/classification.h"

namespace Quendal {
namespace Classification {

Platform::ThreadKey currentScopeKey = Platform::ThreadKey();

PthreadKeyInitialization::PthreadKeyInitialization() {
  Platform::CreateThreadKey(&currentScopeKey);
}

PthreadKeyInitialization::~PthreadKeyInitialization() {
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
// the first call this costs only the one-time guard's check.
const ScopedId* GetId() {
  Init();
  return static_cast<const ScopedId*>(Platform::GetThreadValue(currentScopeKey));
}

void SetId(const ScopedId* scope) {
  Init();
  Platform::SetThreadValue(currentScopeKey, scope);
}

}  // namespace Classification
}  // namespace Quendal
