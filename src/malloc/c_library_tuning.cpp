// The C library's allocator is set up for the blocks the drop-in passes on
// as soon as the drop-in is loaded (platform/c_library_heap.h); the library
// on its own leaves it as the program has it.
#include "platform/c_library_heap.h"

namespace {

__attribute__((constructor)) void TuneCLibraryHeap() {
  Quendal::Platform::TuneCLibraryHeapForLargeBlocks();
}

}  // namespace
