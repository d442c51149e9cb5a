/* The reporting end of the framework's assertion checks. Compiles as C and as
 * C++. */
#ifndef QUENDAL_ASSERTION_H
#define QUENDAL_ASSERTION_H

#include "quendal/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Writes one report of a failed assertion to standard error and returns 1;
 * the caller decides whether to go on. The report starts with an empty line:
 *
 *   with quotedText:    \nassertion failed in FILE(LINE): LABEL : "QUOTEDTEXT"\n
 *   without quotedText: \nassertion failed in FILE(LINE) LABEL\n
 *
 * followed, when message is non-null, by the line "message: MESSAGE\n".
 * quotedText and message may be null. A message line longer than 1023
 * characters (a message of more than 1013) is cut at 1023 characters and then
 * loses its line break. A null file or label prints as "(null)". Takes no
 * lock and never flushes. */
QD_EXPORT int PIAssertReportFailure(const char* quotedText, const char* file, int line,
                                    const char* label, const char* message) QD_NOTHROW;

#ifdef __cplusplus
}
#endif

#endif
