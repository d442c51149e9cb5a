// The module-name log and the accounting table reached after their end at
// exit while the module registry still lives: from the destructor of a static
// built after the registry and before the tables, which therefore runs after
// the tables' end and before the registry's. A new name looked up there still
// gets an id and reaches the log's new-id callback. Prints each answer; a
// failed check ends the program with status 1.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "quendal/accounting.h"
#include "quendal/classification.h"
#include "quendal/module_log.h"

namespace {

using namespace Quendal::Classification;

unsigned short g_ids[QDAccountingCopySlots];
char g_names[QDAccountingCopySlots][64];
QDCurrentHeapAlloc g_records[QDAccountingCopySlots];

void Check(bool condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "failed: %s\n", what);
    fflush(stderr);
    _exit(1);
  }
}

// The dump closes its stream, so it gets a stream of its own on standard
// output.
void DumpNames() {
  fflush(stdout);
  FILE* stream = fdopen(dup(STDOUT_FILENO), "w");
  Check(stream != nullptr, "stream for the dump");
  QDLog::dump_map_to_file(stream);
}

void Queries(const char* who) {
  const unsigned long mapped = QDgetModuleIdMapping(g_ids, g_names);
  unsigned long pairs = 99;
  const bool pairsCopied = AllocMemoryTable::getModuleIdMapping(pairs, g_ids, g_names);
  QDSumHeapAlloc sums;
  const unsigned long heapAlloc = QDgetHeapAlloc(g_records, &sums);
  unsigned long records = 99;
  const bool recordsCopied = AllocMemoryTable::getHeapAlloc(records, g_records, sums);
  printf(
      "%s: mapping %lu, copy %s %lu, heap alloc %lu, copy %s %lu, current sum %d, "
      "log table %u, accounting table %u, messages %u\n",
      who, mapped, pairsCopied ? "true" : "false", pairs, heapAlloc,
      recordsCopied ? "true" : "false", records, static_cast<int>(sums.curVal),
      static_cast<unsigned>(getIDModuleMap().GetCount()),
      static_cast<unsigned>(getModuleMemMap()->GetCount()),
      static_cast<unsigned>(getMessagesWritten()->GetSize()));
  DumpNames();
  AllocMemoryTable::dumpModules(stdout, 0);
  fflush(stdout);
}

class LateUser {
 public:
  LateUser() {}
  ~LateUser() {
    const unsigned short known = LookUpModuleId("audio");
    const unsigned short fresh = LookUpModuleId("late");
    printf("late: ids %u %u\n", known, fresh);
    Queries("late");
  }
};

}  // namespace

int main() {
  // The registry first, the late user next, then the log's table (built
  // inside the log's switch) and the accounting table: the process's end
  // destroys them in the reverse order.
  getmoduleRegistry();
  static LateUser lateUser;
  static QDLog::SetClassIdCb moduleLog;
  (*getModuleMemMap())[1UL << 16 | 2].used = 64;
  *getCurVal() = 64;

  Check(LookUpModuleId("audio") == 1, "first name");
  Check(LookUpModuleId("video") == 2, "second name");
  Queries("before exit");
  return 0;
}
