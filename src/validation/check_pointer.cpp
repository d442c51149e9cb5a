// check_pointer's messages and the exported C check.
#include <stdint.h>
#include <stdio.h>

#include "quendal/hooks.h"
#include "quendal/validation.h"
#include "validation/check_report.h"

namespace Quendal {
namespace Validation {

MessageSink messageSink = QDExcHdlWriteMessageToExceptionFile;

namespace {

// "%ld" shows the stored length as the target's 32-bit long does: a length of
// 2^31 or more prints as negative on every platform, not only on 32-bit ones.
long LengthAsLong(unsigned int length) {
  const unsigned int kSignBit = 0x80000000u;
  if (length < kSignBit) {
    return static_cast<long>(length);
  }
  return -static_cast<long>(~length) - 1;
}

}  // namespace

void ReportCheckFailure(int result, const void* block, unsigned int length) {
  // "0x%x" takes an unsigned int: on targets with wider pointers the address
  // is cut to its low 32 bits so the text keeps its form.
  const unsigned int address = static_cast<unsigned int>(reinterpret_cast<uintptr_t>(block));
  const long storedLength = LengthAsLong(length);
  char text[kMessageBufferSize];
  text[0] = '\0';
  // Bounded even though every message fits: the buffer must never overrun.
  switch (result) {
    case QDValidation::eFailedStartMarker:
      snprintf(text, sizeof(text), " QDValidation::check_pointer eFailedStartMarker 0x%x", address);
      break;
    case QDValidation::eFailedEndMarker:
      snprintf(text, sizeof(text), "QDValidation::check_pointer eFailedEndMarker 0x%x len %ld",
               address, storedLength);
      break;
    case QDValidation::eFailedLenControl:
      snprintf(text, sizeof(text), "QDValidation::check_pointer eFailedLenControl 0x%x len %ld",
               address, storedLength);
      break;
    case QDValidation::eFailedNullLen:
      snprintf(text, sizeof(text),
               "QDValidation::check_pointer eFailedNullLen 0x%x: Length is 0, might be deleted "
               "twice",
               address);
      break;
    default:
      snprintf(text, sizeof(text), "QDValidation::check_pointer 0x%x: unknown error.", address);
      break;
  }
  messageSink(text);
}

}  // namespace Validation
}  // namespace Quendal

namespace QDValidation {

bool check_pointer(void* block) QD_NOTHROW {
  unsigned int length = 0;
  const int result = check_markers(block, length);
  if (result == eOk) {
    return true;
  }
  if (result == eNullPointer) {
    Quendal::Validation::messageSink("QDValidation::check_pointer: Null pointer.");
    return false;
  }
  Quendal::Validation::ReportCheckFailure(result, block, length);
  return false;
}

}  // namespace QDValidation

extern "C" int QDCheckPointerMarkers(void* block) QD_NOTHROW {
  if (block == 0) {
    return QDValidation::eNullPointer;
  }
  unsigned int length = 0;
  return QDValidation::check_markers(block, length);
}
