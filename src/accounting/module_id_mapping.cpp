// Flat copies of the module-name log: ids beside 64-character names, and the
// "<id>;<name>;" dump.
#include <stdio.h>
#include <string.h>

#include "accounting/lasting_table.h"
#include "accounting/table_copies.h"
#include "heap/heap_init.h"
#include "quendal/accounting.h"
#include "quendal/heap.h"
#include "quendal/module_log.h"

namespace {

// The log's buffers are 64 bytes, so the search for the terminator stops at
// the buffer's end; a name that fills it has no usable text.
bool IsUsableName(const char* name) {
  if (name == 0) {
    return false;
  }
  for (size_t i = 0; i < 64; ++i) {
    if (name[i] == '\0') {
      return true;
    }
  }
  return false;
}

void CopyName(char* target, const char* name, unsigned short id) {
  if (IsUsableName(name)) {
    memcpy(target, name, strlen(name) + 1);
  } else {
    snprintf(target, 64, "M_%d", id);
  }
}

}  // namespace

namespace Quendal {
namespace Accounting {

unsigned long CopyModuleIdMapping(unsigned long& count, unsigned short* ids, char (*names)[64],
                                  unsigned long capacity) {
  count = 0;
  IDModuleMap& table = getIDModuleMap();
  if (IdModuleMapEnded()) {
    return 0;
  }
  table.StartIteration();
  count = table.GetCount();
  if (count == 0) {
    return 0;
  }
  unsigned long written = 0;
  unsigned short id = 0;
  const char* name = 0;
  bool hasSuccessor = false;
  while (table.NextEntry(id, name, hasSuccessor) &&
         ShouldCopyEntry(written, hasSuccessor, capacity)) {
    if (ids != 0) {
      ids[written] = id;
    }
    if (names != 0) {
      CopyName(names[written], name, id);
    }
    ++written;
    if (!hasSuccessor) {
      break;
    }
  }
  return written;
}

}  // namespace Accounting
}  // namespace Quendal

bool AllocMemoryTable::getModuleIdMapping(unsigned long& count, unsigned short* ids,
                                          char (*names)[64]) QD_NOTHROW {
  Quendal::Accounting::CopyModuleIdMapping(count, ids, names, QDAccountingCopySlots);
  return count != 0;
}

extern "C" unsigned long QDgetModuleIdMapping(unsigned short* ids, char (*names)[64]) QD_NOTHROW {
  Quendal::Heap::EnsureHeapInitialized();
  unsigned long count = 0;
  // The caller's arrays have 256 slots: a log of exactly 257 entries must not
  // spill its last pair past them.
  Quendal::Accounting::CopyModuleIdMapping(count, ids, names, QDAccountingArraySlots);
  return count != 0 ? count : QDgetModuleIdMappingEmptyTable;
}

namespace QDLog {

void dump_map_to_file(FILE* stream) QD_NOTHROW {
  if (stream == 0) {
    return;
  }
  // Room for the 257th pair that a log of exactly 257 entries yields.
  unsigned short ids[QDAccountingCopySlots];
  char names[QDAccountingCopySlots][64];
  unsigned long count = 0;
  const unsigned long written =
      Quendal::Accounting::CopyModuleIdMapping(count, ids, names, QDAccountingCopySlots);
  // Only the pairs written are printed: the count may exceed them (more than
  // 257 entries, or entries whose buckets were discarded).
  for (unsigned long i = 0; i < written; ++i) {
    fprintf(stream, "%d;%s;\n", ids[i], names[i]);
  }
  fflush(stream);
  fclose(stream);
}

}  // namespace QDLog
