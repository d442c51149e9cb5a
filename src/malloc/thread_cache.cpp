#include "malloc/thread_cache.h"

#include <stdlib.h>

#include "heap/the_heap.h"
#include "heap/thread_cached_blocks.h"
#include "platform/fast_lock.h"
#include "platform/fork_guard.h"
#include "platform/memory_map.h"
#include "platform/thread_key.h"

namespace Quendal {
namespace DropIn {

__thread ThreadCache* threadCache __attribute__((tls_model("initial-exec"))) = 0;
int poolShortOfChunks = 0;

namespace {

// The record of the threads that cache nothing: every request is above its
// limit.
ThreadCache noCache;

// Every record ever made, for the statistics, and the ones whose thread
// ended, for the next thread; neither list ever shrinks.
Platform::FastLock recordsLock;
ThreadCache* records = 0;
ThreadCache* unusedRecords = 0;

enum CachingState { kNotDecided, kCaching, kNotCaching };
int cachingState = kNotDecided;
Platform::ThreadKey endKey;

void LockRecords(void* lock) {
  static_cast<Platform::FastLock*>(lock)->Lock();
}

void UnlockRecords(void* lock) {
  static_cast<Platform::FastLock*>(lock)->Unlock();
}

void ReleaseRecordsInChild(void* lock) {
  static_cast<Platform::FastLock*>(lock)->ReleaseInChild();
}

const Platform::ForkLockCalls recordsForkCalls = {&LockRecords, &UnlockRecords,
                                                  &ReleaseRecordsInChild};

Heap::LockedPool* StartedHeap() {
  return Heap::TheHeap::ReadyInstance();
}

// Written only when it changes: every thread's release reads it.
void NoteShortage(bool shortOfChunks) {
  int value = shortOfChunks ? 1 : 0;
  if (__atomic_load_n(&poolShortOfChunks, __ATOMIC_RELAXED) != value) {
    __atomic_store_n(&poolShortOfChunks, value, __ATOMIC_RELAXED);
  }
}

// Gives the blocks in batches of at most kBatch, each under one acquisition.
void GiveBack(void** blocks, size_t count) {
  Heap::LockedPool* heap = StartedHeap();
  for (size_t first = 0; first < count; first += kBatch) {
    size_t batch = count - first < kBatch ? count - first : kBatch;
    bool shortOfChunks;
    heap->FreeBatch(blocks + first, batch, &shortOfChunks);
    NoteShortage(shortOfChunks);
  }
}

// Keeps the keep newest blocks of bin and gives the others back.
void Trim(ThreadCache* cache, CacheBin& bin, uint32_t classSize, uint32_t keep) {
  void* cut = 0;
  void* rest = bin.head;
  for (uint32_t k = 0; k < keep && rest != 0; ++k) {
    cut = rest;
    rest = *static_cast<void**>(rest);
  }
  if (cut != 0) {
    *static_cast<void**>(cut) = 0;
  } else {
    bin.head = 0;
  }
  void* blocks[kBinBlocks];
  uint32_t count = 0;
  while (rest != 0 && count < kBinBlocks) {
    blocks[count] = rest;
    ++count;
    rest = *static_cast<void**>(rest);
    if (ClassHoldsMark(classSize)) {
      MarkOf(blocks[count - 1]) = 0;
    }
  }
  SetBinCount(bin, bin.count - count);
  SetCachedBytes(cache, cache->bytes - count * classSize);
  GiveBack(blocks, count);
}

void GiveAllBack(ThreadCache* cache) {
  for (uint32_t index = 0; index < kCachedUpTo / 8; ++index) {
    CacheBin& bin = cache->bins[index];
    while (bin.head != 0) {
      Trim(cache, bin, (index + 1) * 8, 0);
    }
  }
}

// The thread ends: its blocks go back to the pool and its record to the
// next thread. Requests of the thread's later destructors go to the pool.
void EndThreadCache(void* value) {
  ThreadCache* cache = static_cast<ThreadCache*>(value);
  threadCache = &noCache;
  GiveAllBack(cache);
  recordsLock.Lock();
  cache->nextUnused = unusedRecords;
  unusedRecords = cache;
  recordsLock.Unlock();
}

void CountCachedBlocks(uint32_t* blocks, uint32_t* bytes) {
  uint32_t blockCount = 0;
  uint32_t byteCount = 0;
  recordsLock.Lock();
  for (ThreadCache* cache = records; cache != 0; cache = cache->nextRecord) {
    for (uint32_t index = 0; index < kCachedUpTo / 8; ++index) {
      blockCount += __atomic_load_n(&cache->bins[index].count, __ATOMIC_RELAXED);
    }
    byteCount += __atomic_load_n(&cache->bytes, __ATOMIC_RELAXED);
  }
  recordsLock.Unlock();
  *blocks = blockCount;
  *bytes = byteCount;
}

// Whether threads cache: not while a memory checker watches the pool (it
// must see every block the program frees as free), nor when the
// environment says QUENDAL_THREAD_CACHE=0. Decided once, by the first
// thread that asks; the key and the statistics' counter are set up then.
bool Caching() {
  int state = __atomic_load_n(&cachingState, __ATOMIC_ACQUIRE);
  if (QD_LIKELY(state != kNotDecided)) {
    return state == kCaching;
  }
  recordsLock.Lock();
  state = cachingState;
  if (state == kNotDecided) {
    const char* setting = getenv("QUENDAL_THREAD_CACHE");
    bool off = setting != 0 && setting[0] == '0' && setting[1] == '\0';
    Heap::LockedPool* heap = StartedHeap();
    if (off || heap->GetPool().WatchedByMemoryChecker() || heap->UnpooledAbove() == SIZE_MAX) {
      state = kNotCaching;
    } else {
      Platform::CreateThreadKeyWithDestructor(&endKey, &EndThreadCache);
      Platform::GuardAcrossFork(Platform::kThreadCacheLockRank, &recordsLock, &recordsForkCalls);
      Heap::CountCachedBlocksWith(&CountCachedBlocks);
      state = kCaching;
    }
    __atomic_store_n(&cachingState, state, __ATOMIC_RELEASE);
  }
  recordsLock.Unlock();
  return state == kCaching;
}

ThreadCache* NewRecord() {
  recordsLock.Lock();
  ThreadCache* cache = unusedRecords;
  if (cache != 0) {
    unusedRecords = cache->nextUnused;
  }
  recordsLock.Unlock();
  if (cache != 0) {
    return cache;
  }
  cache = static_cast<ThreadCache*>(Platform::MapZeroedMemory(sizeof(ThreadCache)));
  if (cache == 0) {
    return 0;
  }
  size_t unpooledAbove = StartedHeap()->UnpooledAbove();
  cache->cachedUpTo = unpooledAbove < kCachedUpTo ? unpooledAbove : kCachedUpTo;
  for (uint32_t index = 0; index < kCachedUpTo / 8; ++index) {
    uint32_t classSize = (index + 1) * 8;
    uint32_t capacity = kBinBytes / classSize;
    cache->bins[index].capacity = capacity < kBinBlocks ? capacity : kBinBlocks;
  }
  recordsLock.Lock();
  cache->nextRecord = records;
  records = cache;
  recordsLock.Unlock();
  return cache;
}

}  // namespace

bool BinHoldsBlock(const CacheBin& bin, const void* block) {
  const void* cached = bin.head;
  for (uint32_t k = 0; k < bin.count && cached != 0; ++k) {
    if (cached == block) {
      return true;
    }
    cached = *static_cast<void* const*>(cached);
  }
  return false;
}

ThreadCache* StartThreadCache() {
  ThreadCache* cache = threadCache;
  if (cache != 0) {
    return cache;
  }
  cache = Caching() ? NewRecord() : 0;
  if (cache == 0) {
    threadCache = &noCache;
    return &noCache;
  }
  // Set first: an allocation the key makes (the C library's, in the
  // library's own work) finds the record.
  threadCache = cache;
  Platform::SetThreadValue(endKey, cache);
  return cache;
}

void* RefillAndTake(ThreadCache* cache, size_t classSize) {
  CacheBin& bin = BinOf(cache, classSize);
  uint32_t size = static_cast<uint32_t>(classSize);
  uint32_t wanted = bin.capacity / 2;
  uint32_t room = (kThreadBytes - cache->bytes) / size;
  wanted = wanted < room ? wanted : room;
  wanted = wanted < kBatch - 1 ? wanted : kBatch - 1;
  if (__atomic_load_n(&poolShortOfChunks, __ATOMIC_RELAXED) != 0) {
    wanted = 0;
  }
  void* blocks[kBatch];
  void* overflow;
  bool shortOfChunks;
  size_t taken =
      StartedHeap()->AllocBatch(classSize, wanted + 1, blocks, &overflow, &shortOfChunks);
  NoteShortage(shortOfChunks);
  if (taken == 0) {
    return overflow;
  }
  // Pushed so that the next requests get the blocks in the pool's order.
  for (size_t k = taken - 1; k > 0; --k) {
    *static_cast<void**>(blocks[k]) = bin.head;
    if (ClassHoldsMark(classSize)) {
      MarkOf(blocks[k]) = cache;
    }
    bin.head = blocks[k];
  }
  SetBinCount(bin, bin.count + static_cast<uint32_t>(taken - 1));
  SetCachedBytes(cache, cache->bytes + static_cast<uint32_t>(taken - 1) * size);
  return blocks[0];
}

void ReleaseIntoFullCache(ThreadCache* cache, void* block, uint32_t classSize) {
  CacheBin& bin = BinOf(cache, classSize);
  bool shortOfChunks = __atomic_load_n(&poolShortOfChunks, __ATOMIC_RELAXED) != 0;
  if (bin.count != 0) {
    Trim(cache, bin, classSize, shortOfChunks ? 0 : bin.count / 2);
  }
  if (!PutCachedBlock(cache, block, classSize)) {
    GiveBack(&block, 1);
  }
}

}  // namespace DropIn
}  // namespace Quendal
