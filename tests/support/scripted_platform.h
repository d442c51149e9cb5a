// A scripted stand-in for the executable-path and file functions of the
// platform layer. Link it with quendal_internal_without_platform; the test
// decides what the executable's path is, what the opened file holds, and when
// the stream reports an error or its end, and reads back what was asked.
#ifndef QUENDAL_TESTS_SUPPORT_SCRIPTED_PLATFORM_H
#define QUENDAL_TESTS_SUPPORT_SCRIPTED_PLATFORM_H

#include <stddef.h>

#include <functional>
#include <string>
#include <vector>

namespace QuendalTest {
namespace ScriptedPlatform {

// Back to the start: longest path 4096, no executable path (CommandName
// fails), no file (OpenRegularFile fails), no scripted stream reports, empty
// logs.
void Reset();

// What MaxPathLength() answers.
void SetMaxPathLength(long length);

// CommandName() writes this path when it fits the buffer it is given, and
// fails otherwise.
void SetExecutablePath(const std::string& path);
void FailExecutablePath();

// The buffer size of the last CommandName() call, and how many calls there were.
size_t LastCommandNameSize();
int CommandNameCalls();

// Every OpenRegularFile() of any path serves these bytes through a real
// stream.
void SetFileContents(const std::string& contents);
void FailOpenFile();

// Paths given to OpenRegularFile(), in call order.
const std::vector<std::string>& OpenedPaths();

// From the given line on (1-based, counted by ReadLine() calls that returned
// a line), FileError() / FileAtEnd() report non-zero.
void ReportErrorFromLine(int line);
void ReportEndFromLine(int line);

// From the given line on, ReadPosition() cannot tell the position (-1).
void LosePositionFromLine(int line);

// Called with the line number after each ReadLine() that returned a line.
void SetLineCallback(const std::function<void(int)>& callback);

// Every stream call in order: "read" (a line came back), "read-none",
// "error?", "end?", "close".
const std::vector<std::string>& StreamLog();

}  // namespace ScriptedPlatform
}  // namespace QuendalTest

#endif
