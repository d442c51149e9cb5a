// The report of a failed assertion, written to standard error.
#include <stdio.h>

#include "quendal/assertion.h"

namespace {

const unsigned int kMessageBufferSize = 1024;

// A null %s is undefined for printf; print what glibc prints instead of
// leaving it to the C library.
const char* Printable(const char* text) {
  return text != 0 ? text : "(null)";
}

}  // namespace

extern "C" int PIAssertReportFailure(const char* quotedText, const char* file, int line,
                                     const char* label, const char* message) QD_NOTHROW {
  char messageLine[kMessageBufferSize];
  messageLine[0] = '\0';
  if (message != 0) {
    // Bounded so that a long message is cut instead of overrunning the buffer;
    // a cut line loses its line break.
    snprintf(messageLine, sizeof(messageLine), "message: %s\n", message);
  }
  if (quotedText != 0) {
    fprintf(stderr, "\nassertion failed in %s(%d): %s : \"%s\"\n%s", Printable(file), line,
            Printable(label), quotedText, messageLine);
  } else {
    fprintf(stderr, "\nassertion failed in %s(%d) %s\n%s", Printable(file), line, Printable(label),
            messageLine);
  }
  return 1;
}
