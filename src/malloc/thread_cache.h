// The drop-in's per-thread caches in front of the pool. Each thread that
// allocates gets a record (mapped from the system, never from the C
// library) with, per 8-byte class up to kCachedUpTo bytes, a last-in
// first-out list of free blocks linked through their first word. A malloc
// of a cached class pops its list; a free of a pool block pushes it onto
// the freeing thread's list, whichever thread allocated it. A list that is
// empty is refilled from the pool, and one that is full gives its older
// half back, in batches of at most kBatch blocks under one acquisition of
// the heap's lock.
//
// For the pool a cached block is a block in use: QDHeapAlloc, QDHeapFree
// and QDHeapReAlloc see one heap. Bounds: per class, at most
// min(kBinBlocks, kBinBytes / class size) blocks; per thread, kThreadBytes
// bytes in all. A thread's blocks go back to the pool when it ends (a
// thread-specific key's destructor); anything it frees or allocates after
// that goes to the pool directly, as does everything while a memory checker
// watches the pool or when QUENDAL_THREAD_CACHE is 0.
//
// Only the owning thread touches its record's lists; the statistics read
// its counts (relaxed atomics) under the list of records' own lock.
#ifndef QUENDAL_MALLOC_THREAD_CACHE_H
#define QUENDAL_MALLOC_THREAD_CACHE_H

#include <stddef.h>
#include <stdint.h>

#include "util/compiler.h"

namespace Quendal {
namespace DropIn {

static const size_t kCachedUpTo = 1024;
static const uint32_t kBinBlocks = 32;
static const uint32_t kBinBytes = 4096;
static const uint32_t kThreadBytes = 32768;
static const uint32_t kBatch = 32;

struct CacheBin {
  void* head;
  uint32_t count;
  uint32_t capacity;
};

struct ThreadCache {
  // Requests up to this size are cached; 0 in the record of a thread that
  // caches nothing.
  size_t cachedUpTo;
  // Bytes of all the lists.
  uint32_t bytes;
  ThreadCache* nextRecord;
  ThreadCache* nextUnused;
  // Entry k: the class of (k + 1) * 8 bytes.
  CacheBin bins[kCachedUpTo / 8];
};

// Set while the pool is short of chunks (LockedAllocator's batches tell):
// the caches then keep no more blocks, so that they take no chunk another
// thread's request needs and a pool sized from the statistics holds a run
// as it does without them.
extern int poolShortOfChunks;

// The calling thread's record: null before its first request, the shared
// record that caches nothing once its caching ended or when it never may.
extern __thread ThreadCache* threadCache __attribute__((tls_model("initial-exec")));

// Gives the calling thread its record, or the one that caches nothing.
// The heap is ready.
QD_NOINLINE ThreadCache* StartThreadCache();

QD_ALWAYS_INLINE CacheBin& BinOf(ThreadCache* cache, size_t classSize) {
  return cache->bins[(classSize - 1) / 8];
}

QD_ALWAYS_INLINE void SetBinCount(CacheBin& bin, uint32_t count) {
  __atomic_store_n(&bin.count, count, __ATOMIC_RELAXED);
}

QD_ALWAYS_INLINE void SetCachedBytes(ThreadCache* cache, uint32_t bytes) {
  __atomic_store_n(&cache->bytes, bytes, __ATOMIC_RELAXED);
}

// A block in a list whose class has room for a second word carries its
// record's address there: a program that frees a block twice would else
// find it in the list twice and get it from two mallocs. Only a block
// that bears the mark is looked for in the list, so a free costs one more
// load; a block of 8 bytes on a 64-bit target has no room for the mark.
QD_ALWAYS_INLINE bool ClassHoldsMark(size_t classSize) {
  return classSize >= 2 * sizeof(void*);
}

QD_ALWAYS_INLINE void*& MarkOf(void* block) {
  return static_cast<void**>(block)[1];
}

// Whether block is in bin's list: the second free of a cached block.
bool BinHoldsBlock(const CacheBin& bin, const void* block);

// Pops a block of classSize (a multiple of 8, at most cachedUpTo); null
// when the list is empty.
QD_ALWAYS_INLINE void* TakeCachedBlock(ThreadCache* cache, size_t classSize) {
  CacheBin& bin = BinOf(cache, classSize);
  void* block = bin.head;
  if (QD_LIKELY(block != 0)) {
    bin.head = *static_cast<void**>(block);
    if (ClassHoldsMark(classSize)) {
      MarkOf(block) = 0;
    }
    SetBinCount(bin, bin.count - 1);
    SetCachedBytes(cache, cache->bytes - static_cast<uint32_t>(classSize));
  }
  return block;
}

// Pushes a pool block of classSize; false, doing nothing, when a bound
// would be passed. A block the list already holds is freed a second time:
// true, and it stays in the list once, as the pool ignores a late second
// release.
QD_ALWAYS_INLINE bool PutCachedBlock(ThreadCache* cache, void* block, uint32_t classSize) {
  CacheBin& bin = BinOf(cache, classSize);
  if (ClassHoldsMark(classSize) && QD_UNLIKELY(MarkOf(block) == cache) &&
      BinHoldsBlock(bin, block)) {
    return true;
  }
  uint32_t bytes = cache->bytes + classSize;
  if (QD_UNLIKELY(bin.count >= bin.capacity) || QD_UNLIKELY(bytes > kThreadBytes) ||
      QD_UNLIKELY(__atomic_load_n(&poolShortOfChunks, __ATOMIC_RELAXED) != 0)) {
    return false;
  }
  *static_cast<void**>(block) = bin.head;
  if (ClassHoldsMark(classSize)) {
    MarkOf(block) = cache;
  }
  bin.head = block;
  SetBinCount(bin, bin.count + 1);
  SetCachedBytes(cache, bytes);
  return true;
}

// An empty list: refilled from the pool with one block more than it keeps,
// which is returned. When the pool's chunks have none for the class, the
// block the heap gets instead (the extra heap's), under the same lock;
// null when there is none.
void* RefillAndTake(ThreadCache* cache, size_t classSize);

// A full list or thread: its older half goes back to the pool, and block
// joins it, or goes to the pool as well when the thread's bound still
// holds it back. While the pool is short of chunks, the whole list goes
// back with block.
void ReleaseIntoFullCache(ThreadCache* cache, void* block, uint32_t classSize);

}  // namespace DropIn
}  // namespace Quendal

#endif
