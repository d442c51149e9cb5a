// The C library's allocator as the definitions of its entries that come
// after the drop-in's own in the process's symbol order, for a C library
// that has no second names for them (QNX's); or the process's own entries
// when the drop-in's are not the ones the process calls
// (process_allocator.h). dlsym finds them at the first request; what dlsym
// itself allocates meanwhile, and any request made while another thread
// looks them up, comes from a small static area whose blocks are never
// given back.
#include <dlfcn.h>
#include <stdint.h>
#include <string.h>

#include "platform/c_library_heap.h"
#include "platform/own_work.h"
#include "platform/posix/allocator_entries.h"
#include "platform/process_allocator.h"

namespace Quendal {
namespace Platform {

namespace {

AllocatorEntries entries;
ProcessMallocProbe probe;

enum { kUnresolved, kResolving, kResolved };
int state = kUnresolved;

// The early area: blocks with their size in the 16 bytes before them.
const size_t kEarlyHeader = 16;
const size_t kEarlyBytes = 65536;
union EarlyArea {
  unsigned char bytes[kEarlyBytes];
  long double alignment;
};
EarlyArea early;
size_t earlyUsed = 0;

// Early blocks are never given back.
void ReleaseEarly(void*) {}

// True once the entries are known; false while they are being looked up.
bool Resolved() {
  int now = __atomic_load_n(&state, __ATOMIC_ACQUIRE);
  if (now == kResolved) {
    return true;
  }
  int expected = kUnresolved;
  if (now != kUnresolved || !__atomic_compare_exchange_n(&state, &expected, kResolving, false,
                                                         __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
    return false;
  }
  OwnWorkScope ownWork;
  bool process = entries.Find(RTLD_DEFAULT) && !probe.ReachesDropIn(entries, ReleaseEarly);
  // Without the four basic entries every request stays in the early area.
  bool complete = process || entries.Find(RTLD_NEXT);
  __atomic_store_n(&state, complete ? kResolved : kResolving, __ATOMIC_RELEASE);
  return complete;
}

bool IsEarly(const void* pointer) {
  uintptr_t address = reinterpret_cast<uintptr_t>(pointer);
  uintptr_t start = reinterpret_cast<uintptr_t>(early.bytes);
  return address - start < kEarlyBytes;
}

size_t EarlySize(const void* block) {
  size_t size;
  memcpy(&size, static_cast<const unsigned char*>(block) - kEarlyHeader, sizeof(size));
  return size;
}

// A zeroed block of the early area aligned to alignment (a power of two of
// at least 16), or null when the area is spent.
void* EarlyAlloc(size_t size, size_t alignment) {
  if (size > kEarlyBytes) {
    return 0;
  }
  const uintptr_t base = reinterpret_cast<uintptr_t>(early.bytes);
  size_t used = __atomic_load_n(&earlyUsed, __ATOMIC_RELAXED);
  for (;;) {
    uintptr_t address = (base + used + kEarlyHeader + alignment - 1) & ~(alignment - 1);
    size_t start = address - base;
    size_t end = start + ((size + 15) & ~static_cast<size_t>(15));
    if (end > kEarlyBytes) {
      return 0;
    }
    if (__atomic_compare_exchange_n(&earlyUsed, &used, end, false, __ATOMIC_RELAXED,
                                    __ATOMIC_RELAXED)) {
      memcpy(early.bytes + start - kEarlyHeader, &size, sizeof(size));
      return early.bytes + start;
    }
  }
}

}  // namespace

void* CLibraryMalloc(size_t size) {
  if (Resolved()) {
    return entries.malloc(size);
  }
  probe.NoteRequest();
  return EarlyAlloc(size, kEarlyHeader);
}

void* CLibraryCalloc(size_t count, size_t size) {
  if (Resolved()) {
    return entries.calloc(count, size);
  }
  if (size != 0 && count > SIZE_MAX / size) {
    return 0;
  }
  // The area starts zeroed and its blocks are never reused.
  return EarlyAlloc(count * size, kEarlyHeader);
}

void* CLibraryReAlloc(void* pointer, size_t size) {
  if (!IsEarly(pointer)) {
    if (Resolved()) {
      return entries.realloc(pointer, size);
    }
    return pointer == 0 ? EarlyAlloc(size, kEarlyHeader) : 0;
  }
  void* block = CLibraryMalloc(size);
  if (block != 0) {
    size_t old = EarlySize(pointer);
    memcpy(block, pointer, old < size ? old : size);
  }
  return block;
}

void CLibraryFree(void* pointer) {
  if (pointer == 0 || IsEarly(pointer)) {
    return;
  }
  if (Resolved()) {
    entries.free(pointer);
  }
}

void* CLibraryMemalign(size_t alignment, size_t size) {
  if (Resolved()) {
    return entries.Memalign(alignment, size);
  }
  return EarlyAlloc(size, alignment < kEarlyHeader ? kEarlyHeader : alignment);
}

size_t CLibraryUsableSize(void* pointer) {
  if (IsEarly(pointer)) {
    return EarlySize(pointer);
  }
  return Resolved() ? entries.UsableSize(pointer) : 0;
}

// QNX's allocator has settings of its own, which the drop-in has not been
// measured with: it keeps them.
void TuneCLibraryHeapForLargeBlocks() {}

}  // namespace Platform
}  // namespace Quendal
