#include "config/mem_file_path.h"

#include <string.h>

namespace Quendal {
namespace Config {

namespace {

const char kExtension[] = ".mem";
const int kExtensionLength = sizeof(kExtension) - 1;

}  // namespace

int CopyPathWithoutExtension(const char* path, char* buffer, int length) {
  size_t pathLength = strlen(path);
  if (length < 1 || pathLength >= static_cast<size_t>(length)) {
    return -1;
  }
  strncpy(buffer, path, static_cast<size_t>(length));
  char* dot = strrchr(buffer, '.');
  if (dot != 0) {
    *dot = '\0';
  }
  return static_cast<int>(strlen(buffer));
}

bool AppendMemExtension(char* buffer, int pathLength) {
  if (pathLength < 0 || pathLength + kExtensionLength >= kPathBufferSize) {
    return false;
  }
  strcat(buffer, kExtension);
  return true;
}

}  // namespace Config
}  // namespace Quendal
