// The module-name log: its table, switching it on and off, the new-id
// callback and the current scope's ids.
#include <stdio.h>
#include <string.h>

#include <new>

#include "quendal/classification.h"
#include "quendal/module_log.h"

using Quendal::Classification::ScopedId;

IDModuleMap& getIDModuleMap() {
  static IDModuleMap table;
  return table;
}

namespace QDLog {

SetClassIdCb::SetClassIdCb() {
  ScopedId::SetOnNewIdCallback(OnNewModule);
  // Drops any bucket table already there: entries made before are lost from
  // the table although its count keeps them.
  getIDModuleMap().AllocBucketTable(41);
}

SetClassIdCb::~SetClassIdCb() {
  IDModuleMap& table = getIDModuleMap();
  table.StartIteration();
  unsigned short id = 0;
  const char* name = 0;
  bool hasSuccessor = false;
  while (table.NextEntry(id, name, hasSuccessor)) {
    // The entry keeps its place but no longer points at the freed buffer:
    // copies made later show the module as "M_<id>".
    table.CursorValue() = 0;
    delete[] name;
  }
}

void OnNewModule(const char* name, unsigned short id) QD_NOTHROW {
  // Without a buffer the entry holds null, which copies show as "M_<id>".
  char* buffer = new (std::nothrow) char[64];
  if (buffer != 0) {
    const size_t length = name != 0 ? strlen(name) : 0;
    if (name != 0 && length < 64) {
      memcpy(buffer, name, length + 1);
    } else {
      snprintf(buffer, 64, "_%d", id);
    }
  }
  // A repeated id overwrites the old buffer's address without freeing it.
  getIDModuleMap()[id] = buffer;
}

void ReadScopeId(unsigned short& moduleId, unsigned short& subModuleId) QD_NOTHROW {
  moduleId = 0;
  subModuleId = 0;
  const ScopedId* scope = ScopedId::GetCurrent();
  if (scope == 0) {
    return;
  }
  moduleId = scope->GetModuleId();
  subModuleId = scope->GetSubModuleId();
}

}  // namespace QDLog
