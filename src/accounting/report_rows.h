// The rows and trailer of the memory report, and the name look-up that
// chooses a row's form.
#ifndef QUENDAL_ACCOUNTING_REPORT_ROWS_H
#define QUENDAL_ACCOUNTING_REPORT_ROWS_H

#include <stdio.h>

#include "quendal/accounting.h"

namespace Quendal {
namespace Accounting {

// Returns the name of the last pair, among the first pairs, whose id is
// moduleId (a later duplicate wins), or null when none has it.
const char* FindModuleName(const unsigned short* ids, char (*names)[64], unsigned long pairs,
                           unsigned short moduleId);

// A module the log knows: "<name>;<sub>;<used>;<max>;<limit>;<count>\n", the
// limit being -9999 unless limitFound. The limit prints as a signed 32-bit
// number, so 2147483648 and above print negative.
void WriteNamedRow(FILE* stream, const char* name, const QDCurrentHeapAlloc& record,
                   bool limitFound, unsigned long limit);

// A module the log does not know: "<id>;<sub>;<used>;<max>;-999;<count>;\n".
void WriteNamelessRow(FILE* stream, const QDCurrentHeapAlloc& record);

// The header and the values of the four sums, each ending with ";".
void WriteSumsTrailer(FILE* stream, const QDSumHeapAlloc& sums);

}  // namespace Accounting
}  // namespace Quendal

#endif
