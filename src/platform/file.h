// Reading text files: the C library's stdio behind one seam, so that tests can
// make opening, reading or the error test fail on cue.
#ifndef QUENDAL_PLATFORM_FILE_H
#define QUENDAL_PLATFORM_FILE_H

#include <stdio.h>

namespace Quendal {
namespace Platform {

// path opened for reading as fopen64(path, "r") opens it, when it names a
// regular file (symbolic links followed): the stream, or null. Anything
// else, a FIFO, a device, a directory or a socket, gives null as a missing
// file does. The open never waits (a FIFO without a writer would block
// it), and the check is made on what was opened, so it holds for what is
// read.
FILE* OpenRegularFile(const char* path);

// fgets(line, size, file): line, or null at the end of the file or on error.
char* ReadLine(char* line, int size, FILE* file);

// ftello64(file): how many bytes of the file the stream's reads have taken
// so far, or -1 when that cannot be told. A position beyond what a long
// holds reads as the largest long.
long ReadPosition(FILE* file);

// ferror(file): non-zero after a read error.
int FileError(FILE* file);

// feof(file): non-zero once the end of the file was reached.
int FileAtEnd(FILE* file);

// fclose(file).
int CloseFile(FILE* file);

}  // namespace Platform
}  // namespace Quendal

#endif
