// Reading text files: the C library's stdio behind one seam, so that tests can
// make opening, reading or the error test fail on cue.
#ifndef QUENDAL_PLATFORM_FILE_H
#define QUENDAL_PLATFORM_FILE_H

#include <stdio.h>

namespace Quendal {
namespace Platform {

// fopen64(path, mode): the stream, or null.
FILE* OpenFile(const char* path, const char* mode);

// fgets(line, size, file): line, or null at the end of the file or on error.
char* ReadLine(char* line, int size, FILE* file);

// ferror(file): non-zero after a read error.
int FileError(FILE* file);

// feof(file): non-zero once the end of the file was reached.
int FileAtEnd(FILE* file);

// fclose(file).
int CloseFile(FILE* file);

}  // namespace Platform
}  // namespace Quendal

#endif
