// Row forms of the memory report.
#include "accounting/report_rows.h"

#include <stdint.h>

namespace {

// The report's numbers are 32-bit: they print the same as "%ld" on every
// target, long being 64 bits wide or not.
long ReportNumber(int32_t value) {
  return static_cast<long>(value);
}

long ReportNumber(unsigned long value) {
  const uint32_t bits = static_cast<uint32_t>(value);
  if (bits <= 0x7FFFFFFFu) {
    return static_cast<long>(bits);
  }
  return -static_cast<long>(static_cast<uint32_t>(~bits)) - 1;
}

}  // namespace

namespace Quendal {
namespace Accounting {

const char* FindModuleName(const unsigned short* ids, char (*names)[64], unsigned long pairs,
                           unsigned short moduleId) {
  const char* name = 0;
  for (unsigned long i = 0; i < pairs; ++i) {
    if (ids[i] == moduleId) {
      name = names[i];
    }
  }
  return name;
}

void WriteNamedRow(FILE* stream, const char* name, const QDCurrentHeapAlloc& record,
                   bool limitFound, unsigned long limit) {
  if (limitFound) {
    fprintf(stream, "%s;%d;%ld;%ld;%ld;%ld\n", name, record.subModuleId, ReportNumber(record.used),
            ReportNumber(record.maxUsed), ReportNumber(limit), ReportNumber(record.count));
  } else {
    fprintf(stream, "%s;%d;%ld;%ld;-9999;%ld\n", name, record.subModuleId,
            ReportNumber(record.used), ReportNumber(record.maxUsed), ReportNumber(record.count));
  }
}

void WriteNamelessRow(FILE* stream, const QDCurrentHeapAlloc& record) {
  fprintf(stream, "%d;%d;%ld;%ld;-999;%ld;\n", record.moduleId, record.subModuleId,
          ReportNumber(record.used), ReportNumber(record.maxUsed), ReportNumber(record.count));
}

void WriteSumsTrailer(FILE* stream, const QDSumHeapAlloc& sums) {
  fprintf(stream, "\nCurrentSum;MaxSum;AdditionalStore;MaxAddStore;\n%ld;%ld;%ld;%ld;\n",
          ReportNumber(sums.curVal), ReportNumber(sums.sumMaxVal), ReportNumber(sums.curAddStorage),
          ReportNumber(sums.maxAddStorage));
}

}  // namespace Accounting
}  // namespace Quendal
