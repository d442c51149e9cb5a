#include "platform/file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Quendal {
namespace Platform {

FILE* OpenRegularFile(const char* path) {
  // Without O_NONBLOCK a FIFO's open waits for a writer; O_NOCTTY keeps a
  // terminal from becoming the process's controlling terminal.
  int descriptor = open64(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) {
    return 0;
  }
  struct stat64 status;
  if (fstat64(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    close(descriptor);
    return 0;
  }
  // Reads of the stream then behave as those of a stream fopen64 opened.
  int flags = fcntl(descriptor, F_GETFL);
  if (flags < 0 || fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) != 0) {
    close(descriptor);
    return 0;
  }
  FILE* file = fdopen(descriptor, "r");
  if (file == 0) {
    close(descriptor);
  }
  return file;
}

char* ReadLine(char* line, int size, FILE* file) {
  return fgets(line, size, file);
}

long ReadPosition(FILE* file) {
  off64_t position = ftello64(file);
  if (position < 0) {
    return -1;
  }
  return position > LONG_MAX ? LONG_MAX : static_cast<long>(position);
}

int FileError(FILE* file) {
  return ferror(file);
}

int FileAtEnd(FILE* file) {
  return feof(file);
}

int CloseFile(FILE* file) {
  return fclose(file);
}

}  // namespace Platform
}  // namespace Quendal
