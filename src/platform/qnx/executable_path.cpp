#include "platform/executable_path.h"

#include <limits.h>
#include <process.h>
#include <string.h>
#include <unistd.h>

namespace Quendal {
namespace Platform {

long MaxPathLength() {
  return pathconf("/", _PC_PATH_MAX);
}

char* CommandName(char* buffer, size_t size) {
  // _cmdname writes up to PATH_MAX bytes; the caller sizes buffer by
  // MaxPathLength(), and a shorter buffer is refused.
  if (buffer == 0 || size < static_cast<size_t>(PATH_MAX)) {
    return 0;
  }
  return _cmdname(buffer);
}

}  // namespace Platform
}  // namespace Quendal
