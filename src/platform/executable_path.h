// The running executable's path, as the memory configuration reader needs it.
// Out of line so that tests can link a scripted platform in its place.
#ifndef QUENDAL_PLATFORM_EXECUTABLE_PATH_H
#define QUENDAL_PLATFORM_EXECUTABLE_PATH_H

#include <stddef.h>

namespace Quendal {
namespace Platform {

// Returns the longest path the file system allows (pathconf of "/" with
// _PC_PATH_MAX), or -1 when it does not say.
long MaxPathLength();

// Writes the full, terminated path of the running executable into buffer
// (size bytes) and returns buffer; returns null when the path cannot be
// obtained or does not fit.
char* CommandName(char* buffer, size_t size);

}  // namespace Platform
}  // namespace Quendal

#endif
