// Flat copies of the accounting table and the module-name log, shared by the
// queries, the name dump and the memory report.
#ifndef QUENDAL_ACCOUNTING_TABLE_COPIES_H
#define QUENDAL_ACCOUNTING_TABLE_COPIES_H

#include "quendal/accounting.h"

namespace Quendal {
namespace Accounting {

// Entry index of a walk is copied unless it lies past 255 while further
// entries follow (so a table of exactly 257 entries is copied whole, a longer
// one up to 256), and never at or beyond the capacity of the caller's arrays.
// The first entry that is not copied ends the walk.
inline bool ShouldCopyEntry(unsigned long index, bool hasSuccessor, unsigned long capacity) {
  if (hasSuccessor && index > 255) {
    return false;
  }
  return index < capacity;
}

// Copies the four sums into sums, sets count to the accounting table's entry
// count and writes up to capacity records (none when records is null).
// Returns the number of records written, which may be below count.
unsigned long CopyHeapAlloc(unsigned long& count, QDCurrentHeapAlloc* records,
                            unsigned long capacity, QDSumHeapAlloc& sums);

// Sets count to the module-name log's entry count and writes up to capacity
// id and name pairs (null arrays are skipped). Returns the number of pairs
// written, which may be below count.
unsigned long CopyModuleIdMapping(unsigned long& count, unsigned short* ids, char (*names)[64],
                                  unsigned long capacity);

}  // namespace Accounting
}  // namespace Quendal

#endif
