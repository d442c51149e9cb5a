#include "support/scripted_platform.h"

#include <string.h>

#include "platform/executable_path.h"
#include "platform/file.h"

namespace QuendalTest {
namespace ScriptedPlatform {

namespace {

struct State {
  long maxPathLength = 4096;
  bool hasExecutablePath = false;
  std::string executablePath;
  size_t lastCommandNameSize = 0;
  int commandNameCalls = 0;
  bool hasFile = false;
  std::string fileContents;
  std::vector<std::string> openedPaths;
  int errorFromLine = 0;
  int endFromLine = 0;
  int lostPositionFromLine = 0;
  int linesRead = 0;
  std::function<void(int)> lineCallback;
  std::vector<std::string> streamLog;
};

State& state() {
  static State instance;
  return instance;
}

}  // namespace

void Reset() {
  state() = State();
}

void SetMaxPathLength(long length) {
  state().maxPathLength = length;
}

void SetExecutablePath(const std::string& path) {
  state().hasExecutablePath = true;
  state().executablePath = path;
}

void FailExecutablePath() {
  state().hasExecutablePath = false;
}

size_t LastCommandNameSize() {
  return state().lastCommandNameSize;
}

int CommandNameCalls() {
  return state().commandNameCalls;
}

void SetFileContents(const std::string& contents) {
  state().hasFile = true;
  state().fileContents = contents;
}

void FailOpenFile() {
  state().hasFile = false;
}

const std::vector<std::string>& OpenedPaths() {
  return state().openedPaths;
}

void ReportErrorFromLine(int line) {
  state().errorFromLine = line;
}

void ReportEndFromLine(int line) {
  state().endFromLine = line;
}

void LosePositionFromLine(int line) {
  state().lostPositionFromLine = line;
}

void SetLineCallback(const std::function<void(int)>& callback) {
  state().lineCallback = callback;
}

const std::vector<std::string>& StreamLog() {
  return state().streamLog;
}

}  // namespace ScriptedPlatform
}  // namespace QuendalTest

namespace Quendal {
namespace Platform {

using QuendalTest::ScriptedPlatform::state;

long MaxPathLength() {
  return state().maxPathLength;
}

char* CommandName(char* buffer, size_t size) {
  ++state().commandNameCalls;
  state().lastCommandNameSize = size;
  if (!state().hasExecutablePath || state().executablePath.size() + 1 > size) {
    return nullptr;
  }
  memcpy(buffer, state().executablePath.c_str(), state().executablePath.size() + 1);
  return buffer;
}

FILE* OpenRegularFile(const char* path) {
  state().openedPaths.push_back(path);
  if (!state().hasFile) {
    return nullptr;
  }
  FILE* file = tmpfile();
  if (file == nullptr) {
    return nullptr;
  }
  fwrite(state().fileContents.data(), 1, state().fileContents.size(), file);
  rewind(file);
  state().linesRead = 0;
  return file;
}

char* ReadLine(char* line, int size, FILE* file) {
  char* result = fgets(line, size, file);
  if (result == nullptr) {
    state().streamLog.push_back("read-none");
    return nullptr;
  }
  state().streamLog.push_back("read");
  ++state().linesRead;
  if (state().lineCallback) {
    state().lineCallback(state().linesRead);
  }
  return result;
}

// Not logged: the stream log stays the calls the reader makes of the file.
long ReadPosition(FILE* file) {
  if (state().lostPositionFromLine > 0 && state().linesRead >= state().lostPositionFromLine) {
    return -1;
  }
  return static_cast<long>(ftello(file));
}

int FileError(FILE* file) {
  state().streamLog.push_back("error?");
  if (state().errorFromLine > 0 && state().linesRead >= state().errorFromLine) {
    return 1;
  }
  return ferror(file);
}

int FileAtEnd(FILE* file) {
  state().streamLog.push_back("end?");
  if (state().endFromLine > 0 && state().linesRead >= state().endFromLine) {
    return 1;
  }
  return feof(file);
}

int CloseFile(FILE* file) {
  state().streamLog.push_back("close");
  return fclose(file);
}

}  // namespace Platform
}  // namespace Quendal
