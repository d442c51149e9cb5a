// Where check_pointer's messages go, and how they are worded.
#ifndef QUENDAL_VALIDATION_CHECK_REPORT_H
#define QUENDAL_VALIDATION_CHECK_REPORT_H

namespace Quendal {
namespace Validation {

typedef void (*MessageSink)(const char* message);

// Receives every message of check_pointer. Points to
// QDExcHdlWriteMessageToExceptionFile; tests replace it to read the texts.
extern MessageSink messageSink;

// Size of the buffer a message is formatted into, terminator included.
const unsigned int kMessageBufferSize = 128;

// Passes the message for result (a check_markers code other than eOk) about
// block, whose stored length is length, to messageSink.
void ReportCheckFailure(int result, const void* block, unsigned int length);

}  // namespace Validation
}  // namespace Quendal

#endif
