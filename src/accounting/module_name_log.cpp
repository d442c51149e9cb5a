// The module-name log: its table, switching it on and off, the new-id
// callback and the current scope's ids.
#include <stdio.h>
#include <string.h>

#include <new>

#include "accounting/lasting_table.h"
#include "quendal/classification.h"
#include "quendal/module_log.h"

using Quendal::Classification::ScopedId;

namespace {

// Outside the static that ends at exit, so that both outlive it.
Quendal::Accounting::TableStorage<IDModuleMap> idModuleStorage;
bool idModuleMapEnded = false;

}  // namespace

IDModuleMap& getIDModuleMap() {
  static Quendal::Accounting::MapLifetime<IDModuleMap> table(idModuleStorage, idModuleMapEnded);
  return table.GetMap();
}

namespace Quendal {
namespace Accounting {

bool IdModuleMapEnded() {
  return idModuleMapEnded;
}

}  // namespace Accounting
}  // namespace Quendal

namespace QDLog {

SetClassIdCb::SetClassIdCb() {
  ScopedId::SetOnNewIdCallback(OnNewModule);
  IDModuleMap& table = getIDModuleMap();
  // An ended table stays empty: a bucket table made now would never be freed.
  if (idModuleMapEnded) {
    return;
  }
  // Drops any bucket table already there: entries made before are lost from
  // the table although its count keeps them.
  table.AllocBucketTable(41);
}

SetClassIdCb::~SetClassIdCb() {
  IDModuleMap& table = getIDModuleMap();
  if (idModuleMapEnded) {
    return;
  }
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
  // A name that comes after the table's end at exit, while the registry still
  // lives, is not filed: its buffer would never be freed.
  if (idModuleMapEnded) {
    return;
  }
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
