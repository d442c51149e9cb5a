#include "platform/file.h"

namespace Quendal {
namespace Platform {

FILE* OpenFile(const char* path, const char* mode) {
  return fopen64(path, mode);
}

char* ReadLine(char* line, int size, FILE* file) {
  return fgets(line, size, file);
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
