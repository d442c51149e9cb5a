// The ".mem" path rules as pure string work, shared by the reader and by the
// tools that show which file a program would read.
#ifndef QUENDAL_CONFIG_MEM_FILE_PATH_H
#define QUENDAL_CONFIG_MEM_FILE_PATH_H

namespace Quendal {
namespace Config {

// The reader builds the ".mem" path in a buffer of this size.
const int kPathBufferSize = 256;

// Copies the terminated path into buffer (length bytes) and ends it at the
// last "." of the whole path, directories included. Returns the length left,
// or -1 with buffer untouched when the path and its terminator do not fit
// (a cut path would name another file).
int CopyPathWithoutExtension(const char* path, char* buffer, int length);

// Appends ".mem" to the pathLength characters in buffer, of kPathBufferSize
// bytes. Returns false and appends nothing when pathLength is negative or the
// result would not fit: the reader then reads no file.
bool AppendMemExtension(char* buffer, int pathLength);

}  // namespace Config
}  // namespace Quendal

#endif
