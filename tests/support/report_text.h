// The memory report's fixed lines, as the default build writes them.
#ifndef QUENDAL_TESTS_SUPPORT_REPORT_TEXT_H
#define QUENDAL_TESTS_SUPPORT_REPORT_TEXT_H

namespace QuendalTest {

// Everything the report writes before its first module row.
const char kReportHead[] =
    "\nQUENDAL_HEAP_DEBUGGER; not defined\n"
    "TRACE_QDALLOCS; not defined\n"
    "USE_MEMTABLE; not defined\n"
    "USE_MEMALLOC_CHECKER; not defined\n"
    "DUMP_AT_END; not defined\n\n"
    "ModuleID;SubMId;Used;MaxUsed;Limit;Count;;;\n";

}  // namespace QuendalTest

#endif
