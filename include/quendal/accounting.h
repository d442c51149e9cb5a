// Per-module accounting: a table of memory use per module and sub-module,
// four process-wide sums, the queries that copy them out, and the memory
// report. In this build no allocation is recorded here: the table stays empty
// and the sums stay zero unless the caller writes them through the accessors.
//
//   QDCurrentHeapAlloc records[256];
//   QDSumHeapAlloc sums;
//   unsigned long n = QDgetHeapAlloc(records, &sums);  // QDgetHeapAllocEmptyTable here
//   AllocMemoryTable::dumpModules(stdout, 0);
#ifndef QUENDAL_ACCOUNTING_H
#define QUENDAL_ACCOUNTING_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "quendal/containers.h"
#include "quendal/export.h"

// One entry of the accounting table as the queries hand it out. The layout is
// the same on every target: 20 bytes, no padding.
struct QDCurrentHeapAlloc {
  uint16_t moduleId;     // upper 16 bits of the table key
  uint16_t subModuleId;  // lower 16 bits of the table key
  int32_t used;
  int32_t maxUsed;
  int32_t count;
  uint32_t reserved;  // set to 0 by QDgetHeapAlloc, never written otherwise
};

// The four process-wide sums, in this order, 16 bytes on every target.
struct QDSumHeapAlloc {
  int32_t maxAddStorage;  // report column "MaxAddStore"
  int32_t sumMaxVal;      // report column "MaxSum"
  int32_t curAddStorage;  // report column "AdditionalStore"
  int32_t curVal;         // report column "CurrentSum"
};

#if defined(__cplusplus) && __cplusplus >= 201103L
#define QUENDAL_ACCOUNTING_LAYOUT(condition, name) static_assert(condition, #name)
#else
#define QUENDAL_ACCOUNTING_LAYOUT(condition, name) typedef char name[(condition) ? 1 : -1]
#endif
QUENDAL_ACCOUNTING_LAYOUT(sizeof(QDCurrentHeapAlloc) == 20, QDCurrentHeapAlloc_is_20_bytes);
QUENDAL_ACCOUNTING_LAYOUT(offsetof(QDCurrentHeapAlloc, used) == 4, QDCurrentHeapAlloc_used_at_4);
QUENDAL_ACCOUNTING_LAYOUT(offsetof(QDCurrentHeapAlloc, reserved) == 16,
                          QDCurrentHeapAlloc_reserved_at_16);
QUENDAL_ACCOUNTING_LAYOUT(sizeof(QDSumHeapAlloc) == 16, QDSumHeapAlloc_is_16_bytes);
QUENDAL_ACCOUNTING_LAYOUT(offsetof(QDSumHeapAlloc, curVal) == 12, QDSumHeapAlloc_curVal_at_12);
#undef QUENDAL_ACCOUNTING_LAYOUT

// QDgetHeapAlloc's answer when the accounting table is empty (-1 as a 32-bit
// signed number), the same value on every target.
const unsigned long QDgetHeapAllocEmptyTable = 4294967295UL;
// QDgetHeapAlloc's answer when the sums pointer is null (-2 as a 32-bit
// signed number).
const unsigned long QDgetHeapAllocNullSums = 4294967294UL;
// QDgetModuleIdMapping's answer when the module-name log is empty.
const unsigned long QDgetModuleIdMappingEmptyTable = 4294967295UL;
// The number of slots the exported C queries fill at most: their callers
// provide arrays of this many records, ids and names.
const unsigned int QDAccountingArraySlots = 256;
// The number of slots AllocMemoryTable::getHeapAlloc and getModuleIdMapping
// may fill: one more than QDAccountingArraySlots, written when the table
// holds exactly 257 entries.
const unsigned int QDAccountingCopySlots = 257;

namespace AllocMemoryTable {

// The value of one table entry: three signed 32-bit words.
struct mapHeapAllocData {
  int32_t used;
  int32_t maxUsed;
  int32_t count;
};

// The accounting table: key (module id << 16) | sub-module id.
typedef PIMap<unsigned long, unsigned long, mapHeapAllocData, mapHeapAllocData, NullLocking,
              PIMapDefaultAlloc>
    ModuleMemMap;

// Copies the four sums into sums first (also for an empty table), sets count
// to the table's entry count (never clipped) and returns false when it is 0,
// leaving records untouched. Otherwise writes one record per entry in the
// table's walk order (ascending bucket, newest first within a bucket) and
// returns true: all entries up to 256, all 257 when there are exactly 257,
// the first 256 when there are more; so records needs QDAccountingCopySlots
// slots. The reserved field is not written. Takes no lock; a walk of the
// table must not run on another thread at the same time. After the table's
// end (see getModuleMemMap) it answers as for an empty table: the sums,
// count 0, false.
QD_EXPORT bool getHeapAlloc(unsigned long& count, QDCurrentHeapAlloc* records,
                            QDSumHeapAlloc& sums) QD_NOTHROW;

// Copies the module-name log (see quendal/module_log.h) into ids and names:
// sets count to the log's entry count (never clipped) and returns false when
// it is 0. Otherwise writes id and name pairs in the log's walk order and
// returns true, with the same bound as getHeapAlloc (so both arrays need
// QDAccountingCopySlots slots). A name is the logged text, or "M_<id>" when
// the entry has no usable name (its buffer was freed or never obtained).
// Fewer pairs than count may be written; unwritten slots are left as they
// were. Null arrays are not written. After the log's table has ended (see
// getIDModuleMap) it answers as for an empty log: count 0, false.
QD_EXPORT bool getModuleIdMapping(unsigned long& count, unsigned short* ids,
                                  char (*names)[64]) QD_NOTHROW;

// Writes the memory report to stream, which stays open and is not flushed:
// six fixed lines (build flags and the header
// "ModuleID;SubMId;Used;MaxUsed;Limit;Count;;;"), then at most 256 rows, one
// per table entry in getHeapAlloc's order, then the sums trailer. A row starts
// with the module's name from the module-name log and ends with the limit
// (-9999 when none is configured) and count; a module the log does not know
// prints its id and -999 and ends with ";". See docs/accounting.md for every
// row form. The second argument is ignored. A null stream writes nothing.
// Uses static working storage: never run two reports at the same time.
// After the end of the accounting table it writes no rows, and after the end
// of the log's table every row is nameless; the fixed lines and the sums
// trailer are written as always.
QD_EXPORT void dumpModules(FILE* stream, unsigned short) QD_NOTHROW;

}  // namespace AllocMemoryTable

// The accounting table of the process, built empty (17 buckets) on first call.
// Nothing in the library fills it. Not locked: serialise writers and walks
// yourself.
//
// The table ends when the library is unloaded or the process ends, before
// the exit handlers registered, and the destructors of globals built, ahead
// of its creation. Its entries and buckets are freed, but the object stays:
// the same pointer, to an empty table, is returned from then on, and
// getHeapAlloc, QDgetHeapAlloc and the memory report answer as for an empty
// table without reading it. Whatever a caller writes into it after its end
// is never freed.
QD_EXPORT AllocMemoryTable::ModuleMemMap* getModuleMemMap();

// Pointers to the four process-wide sums (zero at load); write through them
// to set what the queries and the report deliver.
QD_EXPORT int32_t* getMaxAddStorage();
QD_EXPORT int32_t* getSumMaxVal();
QD_EXPORT int32_t* getCurAddStorage();
QD_EXPORT int32_t* getCurVal();

typedef PIArray<unsigned short, unsigned short, NullLocking, PIArrayDefaultAlloc>
    MessagesWrittenArray;

// The messages-written array, built empty on first call and never destroyed,
// so it stays usable at exit and after unload. Nothing in the library reads
// or fills it.
QD_EXPORT MessagesWrittenArray* getMessagesWritten();

extern "C" {

// Initialises the library first if needed. Returns QDgetHeapAllocNullSums
// when sums is null, writing nothing. Otherwise zeroes *sums and the first
// QDAccountingArraySlots records (reserved included), then fills them as
// getHeapAlloc does, but never more than QDAccountingArraySlots records, and
// returns the table's entry count, or QDgetHeapAllocEmptyTable when the table
// is empty (the normal answer in this build) or has ended (see
// getModuleMemMap). A null records pointer gets no records; the sums and the
// count are still delivered.
QD_EXPORT unsigned long QDgetHeapAlloc(QDCurrentHeapAlloc* records,
                                       QDSumHeapAlloc* sums) QD_NOTHROW;

// Initialises the library first if needed. Copies the module-name log into
// ids and names as AllocMemoryTable::getModuleIdMapping does, but never more
// than QDAccountingArraySlots pairs, and returns the log's entry count, or
// QDgetModuleIdMappingEmptyTable when the log is empty (it always is until a
// QDLog::SetClassIdCb object exists) or its table has ended (see
// getIDModuleMap). Null arrays are not written.
QD_EXPORT unsigned long QDgetModuleIdMapping(unsigned short* ids, char (*names)[64]) QD_NOTHROW;

}  // extern "C"

#endif
