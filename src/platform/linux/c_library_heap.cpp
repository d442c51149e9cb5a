// glibc exports its allocator under second names that no replacement of
// malloc takes over. When the drop-in's entries are not the ones the process
// calls (process_allocator.h), the process's entries serve instead, found
// once with dlsym; glibc's serve while the choice is made.
#include "platform/c_library_heap.h"

#include <dlfcn.h>
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

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

namespace {

// The settings a user can give glibc's allocator through the environment.
bool UserTunedTheCLibraryHeap() {
  const char* tunables = getenv("GLIBC_TUNABLES");
  if (tunables != 0 && (strstr(tunables, "glibc.malloc.mmap_threshold") != 0 ||
                        strstr(tunables, "glibc.malloc.trim_threshold") != 0 ||
                        strstr(tunables, "glibc.malloc.top_pad") != 0)) {
    return true;
  }
  return getenv("MALLOC_MMAP_THRESHOLD_") != 0 || getenv("MALLOC_TRIM_THRESHOLD_") != 0 ||
         getenv("MALLOC_TOP_PAD_") != 0;
}

}  // namespace

// glibc trims its heap's top once it exceeds 128 KiB, and maps every block
// from 128 KiB on until a release raises that threshold; any setting turns
// that adjustment off, so all three are set. Blocks up to 4 MiB (on 32 bits
// the most glibc accepts, 512 KiB) come from the heap, the top is trimmed
// past twice that, as glibc pairs them itself, and the heap grows a quarter
// of it more than asked.
void TuneCLibraryHeapForLargeBlocks() {
  if (UserTunedTheCLibraryHeap()) {
    return;
  }
  const int mmapThreshold = sizeof(void*) >= 8 ? 4 * 1024 * 1024 : 512 * 1024;
  mallopt(M_MMAP_THRESHOLD, mmapThreshold);
  mallopt(M_TRIM_THRESHOLD, 2 * mmapThreshold);
  mallopt(M_TOP_PAD, mmapThreshold / 4);
}

}  // namespace Platform
}  // namespace Quendal
