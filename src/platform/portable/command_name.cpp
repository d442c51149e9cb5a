// The host's stand-in for QNX's _cmdname, so that the portable build runs
// the QNX source of the executable's path (qnx/executable_path.cpp): the
// answer QNX documents, the full path in a buffer of PATH_MAX bytes, taken
// here from the link Linux keeps for the running executable.
#include <limits.h>
#include <unistd.h>

#include "process.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier): QNX's name for the call.
extern "C" char* _cmdname(char* name) {
  if (name == 0) {
    return 0;
  }
  ssize_t length = readlink("/proc/self/exe", name, PATH_MAX - 1);
  if (length <= 0 || length >= PATH_MAX - 1) {
    return 0;
  }
  name[length] = '\0';
  return name;
}
