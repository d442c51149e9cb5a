// Copies of the accounting table and the sums: the library's query and the
// exported one.
#include <string.h>

#include "accounting/lasting_table.h"
#include "accounting/table_copies.h"
#include "heap/heap_init.h"
#include "quendal/accounting.h"
#include "quendal/heap.h"

namespace Quendal {
namespace Accounting {

unsigned long CopyHeapAlloc(unsigned long& count, QDCurrentHeapAlloc* records,
                            unsigned long capacity, QDSumHeapAlloc& sums) {
  // The sums come first so that they are delivered for an empty table too.
  sums.maxAddStorage = *getMaxAddStorage();
  sums.sumMaxVal = *getSumMaxVal();
  sums.curAddStorage = *getCurAddStorage();
  sums.curVal = *getCurVal();

  AllocMemoryTable::ModuleMemMap& table = *getModuleMemMap();
  if (ModuleMemMapEnded()) {
    count = 0;
    return 0;
  }
  table.StartIteration();
  count = table.GetCount();
  if (count == 0 || records == 0) {
    return 0;
  }
  unsigned long written = 0;
  unsigned long key = 0;
  AllocMemoryTable::mapHeapAllocData value;
  bool hasSuccessor = false;
  while (table.NextEntry(key, value, hasSuccessor) &&
         ShouldCopyEntry(written, hasSuccessor, capacity)) {
    QDCurrentHeapAlloc& record = records[written];
    record.moduleId = static_cast<uint16_t>(key >> 16);
    record.subModuleId = static_cast<uint16_t>(key & 0xFFFF);
    record.used = value.used;
    record.maxUsed = value.maxUsed;
    record.count = value.count;
    ++written;
    if (!hasSuccessor) {
      break;
    }
  }
  return written;
}

}  // namespace Accounting
}  // namespace Quendal

bool AllocMemoryTable::getHeapAlloc(unsigned long& count, QDCurrentHeapAlloc* records,
                                    QDSumHeapAlloc& sums) QD_NOTHROW {
  Quendal::Accounting::CopyHeapAlloc(count, records, QDAccountingCopySlots, sums);
  return count != 0;
}

extern "C" unsigned long QDgetHeapAlloc(QDCurrentHeapAlloc* records,
                                        QDSumHeapAlloc* sums) QD_NOTHROW {
  Quendal::Heap::EnsureHeapInitialized();
  if (sums == 0) {
    return QDgetHeapAllocNullSums;
  }
  memset(sums, 0, sizeof(*sums));
  if (records != 0) {
    memset(records, 0, QDAccountingArraySlots * sizeof(*records));
  }
  unsigned long count = 0;
  // The caller's array has 256 records: a table of exactly 257 entries must
  // not spill its last record past it.
  Quendal::Accounting::CopyHeapAlloc(count, records, QDAccountingArraySlots, *sums);
  return count != 0 ? count : QDgetHeapAllocEmptyTable;
}
