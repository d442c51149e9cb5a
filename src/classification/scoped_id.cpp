// Stack objects that make a module current for their thread while they live.
#include "quendal/classification.h"

namespace Quendal {
namespace Classification {

// GetId makes sure the thread key exists, so a scope built before any heap
// call (and so before the heap's Init) still uses the library's own key.
ScopedId::ScopedId(ModuleId module, unsigned short subModuleId, const char* file, long line)
    : m_previous(GetId()),
      m_moduleId(module),
      m_subModuleId(subModuleId),
      m_file(file),
      m_line(line) {
  SetId(this);
}

// No check that this is the current scope: whatever was current at
// construction comes back, as scopes nest by their lifetimes on the stack.
ScopedId::~ScopedId() {
  SetId(m_previous);
}

const ScopedId* ScopedId::GetCurrent() {
  return GetId();
}

const char* ScopedId::LookUpName(unsigned short id) {
  return LookUpModuleName(id);
}

void ScopedId::SetOnNewIdCallback(void (*callback)(const char*, unsigned short)) {
  SetNewIdCallback(callback);
}

}  // namespace Classification
}  // namespace Quendal
