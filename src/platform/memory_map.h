// Zero-filled private memory straight from the system, for the pool's own
// indexes: it is not the C library's allocator, so the calls a program sees
// there stay exactly the heap's own, and pages nobody touches cost nothing.
#ifndef QUENDAL_PLATFORM_MEMORY_MAP_H
#define QUENDAL_PLATFORM_MEMORY_MAP_H

#include <stddef.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Quendal {
namespace Platform {

// Maps size (> 0) bytes of zeroed, readable and writable memory; null when
// the system refuses.
inline void* MapZeroedMemory(size_t size) {
  void* memory = mmap(0, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  return memory == MAP_FAILED ? 0 : memory;
}

// Gives back memory from MapZeroedMemory of the same size.
inline void UnmapMemory(void* memory, size_t size) {
  munmap(memory, size);
}

// The system's page size, in bytes.
inline size_t PageSize() {
  return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace Platform
}  // namespace Quendal

#endif
