// glibc exports its allocator under second names that no replacement of
// malloc takes over. When the drop-in's entries are not the ones the process
// calls (process_allocator.h), the process's entries serve instead, found
// once with dlsym; glibc's serve while the choice is made.
#include "platform/c_library_heap.h"

#include <dlfcn.h>

#include "platform/own_work.h"
#include "platform/posix/allocator_entries.h"
#include "platform/process_allocator.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void __libc_free(void* pointer);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace Quendal {
namespace Platform {

namespace {

// The process's entries, or glibc's next after the drop-in for the one
// glibc has no second name for (malloc_usable_size).
AllocatorEntries entries;
ProcessMallocProbe probe;

enum { kUnchosen, kChoosing, kGlibc, kProcess };
int choice = kUnchosen;

// Chooses once: glibc's allocator while the drop-in's malloc is the
// process's, the process's own otherwise. kChoosing while the choice is
// being made (glibc's serves then).
int Choice() {
  int now = __atomic_load_n(&choice, __ATOMIC_ACQUIRE);
  if (now != kUnchosen) {
    return now;
  }
  if (!__atomic_compare_exchange_n(&choice, &now, kChoosing, false, __ATOMIC_ACQ_REL,
                                   __ATOMIC_ACQUIRE)) {
    return now;
  }
  // dlsym may allocate for its own bookkeeping.
  OwnWorkScope ownWork;
  bool process = entries.Find(RTLD_DEFAULT) && !probe.ReachesDropIn(entries, __libc_free);
  if (!process) {
    entries.Find(RTLD_NEXT);
  }
  __atomic_store_n(&choice, process ? kProcess : kGlibc, __ATOMIC_RELEASE);
  return process ? kProcess : kGlibc;
}

}  // namespace

void* CLibraryMalloc(size_t size) {
  int now = Choice();
  if (now == kProcess) {
    return entries.malloc(size);
  }
  if (now == kChoosing) {
    probe.NoteRequest();
  }
  return __libc_malloc(size);
}

void* CLibraryCalloc(size_t count, size_t size) {
  return Choice() == kProcess ? entries.calloc(count, size) : __libc_calloc(count, size);
}

void* CLibraryReAlloc(void* pointer, size_t size) {
  return Choice() == kProcess ? entries.realloc(pointer, size) : __libc_realloc(pointer, size);
}

void CLibraryFree(void* pointer) {
  if (Choice() == kProcess) {
    entries.free(pointer);
  } else {
    __libc_free(pointer);
  }
}

void* CLibraryMemalign(size_t alignment, size_t size) {
  return Choice() == kProcess ? entries.Memalign(alignment, size)
                              : __libc_memalign(alignment, size);
}

size_t CLibraryUsableSize(void* pointer) {
  return Choice() == kChoosing ? 0 : entries.UsableSize(pointer);
}

}  // namespace Platform
}  // namespace Quendal
