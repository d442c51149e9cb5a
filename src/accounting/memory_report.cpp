// The memory report: build flags, one row per accounting entry, the sums.
#include <stdio.h>

#include "accounting/report_rows.h"
#include "accounting/table_copies.h"
#include "quendal/accounting.h"
#include "quendal/config_file_reader.h"

namespace {

// Working storage in static memory rather than on the caller's stack (about
// 22 KB); reused by every report. One slot beyond 256 each for the last entry
// that a table of exactly 257 entries yields.
QDCurrentHeapAlloc reportRecords[QDAccountingCopySlots];
unsigned short reportIds[QDAccountingCopySlots];
char reportNames[QDAccountingCopySlots][64];

const unsigned long kMaxRows = 256;

unsigned long AtMost(unsigned long value, unsigned long limit) {
  return value < limit ? value : limit;
}

}  // namespace

void AllocMemoryTable::dumpModules(FILE* stream, unsigned short) QD_NOTHROW {
  if (stream == 0) {
    return;
  }
  fputs("\nQUENDAL_HEAP_DEBUGGER; not defined\n", stream);
  fputs("TRACE_QDALLOCS; not defined\n", stream);
  fputs("USE_MEMTABLE; not defined\n", stream);
  fputs("USE_MEMALLOC_CHECKER; not defined\n", stream);
  fputs("DUMP_AT_END; not defined\n\n", stream);
  fputs("ModuleID;SubMId;Used;MaxUsed;Limit;Count;;;\n", stream);

  using namespace Quendal::Accounting;
  QDSumHeapAlloc sums;
  unsigned long recordCount = 0;
  const unsigned long records =
      CopyHeapAlloc(recordCount, reportRecords, QDAccountingCopySlots, sums);
  unsigned long pairCount = 0;
  const unsigned long pairs =
      CopyModuleIdMapping(pairCount, reportIds, reportNames, QDAccountingCopySlots);

  // Only what the copies wrote is read: their counts may exceed it.
  const unsigned long rows = AtMost(records, kMaxRows);
  const unsigned long namedPairs = AtMost(pairs, kMaxRows);
  for (unsigned long i = 0; i < rows; ++i) {
    const QDCurrentHeapAlloc& record = reportRecords[i];
    const char* name = FindModuleName(reportIds, reportNames, namedPairs, record.moduleId);
    if (name == 0) {
      WriteNamelessRow(stream, record);
      continue;
    }
    // Limits are filed under the reader's own name buffers, so a copy of the
    // name finds none in practice: such rows show -9999.
    unsigned long limit = 0;
    const bool limitFound = ConfigFileReader::GetConfigModuleLimit(name, limit);
    WriteNamedRow(stream, name, record, limitFound, limit);
  }
  WriteSumsTrailer(stream, sums);
}
