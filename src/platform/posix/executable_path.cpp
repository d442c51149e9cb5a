#include "platform/executable_path.h"

#include <unistd.h>

namespace Quendal {
namespace Platform {

long MaxPathLength() {
  return pathconf("/", _PC_PATH_MAX);
}

char* CommandName(char* buffer, size_t size) {
  if (buffer == 0 || size < 2) {
    return 0;
  }
  ssize_t length = readlink("/proc/self/exe", buffer, size - 1);
  // A link that fills the whole buffer may have been cut short.
  if (length <= 0 || static_cast<size_t>(length) >= size - 1) {
    return 0;
  }
  buffer[length] = '\0';
  return buffer;
}

}  // namespace Platform
}  // namespace Quendal
