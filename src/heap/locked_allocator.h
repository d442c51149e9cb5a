// Adds one lock around a pool: every allocation, release and reallocation,
// including the pool's calls into its overflow heap, runs under it. What
// entering costs is the lock's business: nothing while the process has one
// thread, plain stores for the thread that owns its bias (biased_lock.h).
#ifndef QUENDAL_HEAP_LOCKED_ALLOCATOR_H
#define QUENDAL_HEAP_LOCKED_ALLOCATOR_H

#include <stddef.h>
#include <stdint.h>

#include "heap/pool_c_callers.h"

namespace Quendal {
namespace Heap {

template <class MutexType, class Pool>
class LockedAllocator {
 public:
  LockedAllocator() {}

  // Configuration and initialisation run without the lock: they happen while
  // the heap initialises, on one thread, before others use it.
  void Configure(uint32_t chunkCount, uint32_t chunkSize, uint32_t maxBlockSize) {
    m_pool.Configure(chunkCount, chunkSize, maxBlockSize);
  }
  uint8_t IsConfigured() const { return m_pool.IsConfigured(); }
  void Initialize() { m_pool.Initialize(); }

  QD_ALWAYS_INLINE void* Alloc(size_t size) {
    typename MutexType::Token token = m_mutex.Enter();
    void* block = m_pool.Alloc(size);
    m_mutex.Leave(token);
    return block;
  }

  void* AllocCleared(size_t size) {
    typename MutexType::Token token = m_mutex.Enter();
    void* block = PoolForCCallers<Pool>::AllocCleared(m_pool, size);
    m_mutex.Leave(token);
    return block;
  }

  QD_ALWAYS_INLINE void Free(void* pointer) {
    typename MutexType::Token token = m_mutex.Enter();
    m_pool.Free(pointer);
    m_mutex.Leave(token);
  }

  // The drop-in's per-thread caches: many blocks of one class taken from the
  // pool's chunks, and many blocks released, each under one acquisition.
  // AllocBatch returns how many blocks it took; when the class has no chunk
  // left it returns 0 and, in *overflow, the one block Alloc gets instead
  // (the overflow heap's, null when that fails). Both tell whether the pool
  // is short of chunks afterwards: fewer than an eighth of its chunks free.
  size_t AllocBatch(size_t size, size_t count, void** blocks, void** overflow,
                    bool* shortOfChunks) {
    typename MutexType::Token token = m_mutex.Enter();
    size_t taken = PoolForCCallers<Pool>::TakeBatch(m_pool, size, count, blocks);
    *overflow = taken == 0 ? m_pool.Alloc(size) : 0;
    *shortOfChunks = ShortOfChunks();
    m_mutex.Leave(token);
    return taken;
  }

  void FreeBatch(void* const* blocks, size_t count, bool* shortOfChunks) {
    typename MutexType::Token token = m_mutex.Enter();
    for (size_t k = 0; k < count; ++k) {
      m_pool.Free(blocks[k]);
    }
    *shortOfChunks = ShortOfChunks();
    m_mutex.Leave(token);
  }

  void* ReAlloc(void* pointer, size_t size) {
    typename MutexType::Token token = m_mutex.Enter();
    void* block = m_pool.ReAlloc(pointer, size);
    m_mutex.Leave(token);
    return block;
  }

  void* Resize(void* pointer, size_t size) {
    typename MutexType::Token token = m_mutex.Enter();
    void* block = PoolForCCallers<Pool>::Resize(m_pool, pointer, size);
    m_mutex.Leave(token);
    return block;
  }

  // The drop-in takes requests the pool never serves to the C library
  // itself, without the lock, and has them counted.
  size_t UnpooledAbove() const { return m_pool.UnpooledAbove(); }
  void CountLargeRequest() { PoolForCCallers<Pool>::CountLargeRequest(m_pool); }

  // The drop-in's releases and moves of blocks of the C library: the pool
  // counts those of pooled sizes once it ran out of chunks.
  bool FollowsOverflowBlocks() const { return m_pool.FollowsOverflowBlocks(); }

  size_t StopFollowing(void* pointer) {
    typename MutexType::Token token = m_mutex.Enter();
    size_t followed = PoolForCCallers<Pool>::StopFollowing(m_pool, pointer);
    m_mutex.Leave(token);
    return followed;
  }

  void FollowMoved(void* pointer, void* block, size_t size, size_t followed) {
    typename MutexType::Token token = m_mutex.Enter();
    PoolForCCallers<Pool>::FollowMoved(m_pool, pointer, block, size, followed);
    m_mutex.Leave(token);
  }

  // Calls reader(pool) under the lock, for a snapshot no other thread
  // changes while it is read.
  template <class Reader>
  void Inspect(Reader& reader) {
    typename MutexType::Token token = m_mutex.Enter();
    reader(static_cast<const Pool&>(m_pool));
    m_mutex.Leave(token);
  }

  Pool& GetPool() { return m_pool; }
  MutexType& GetMutex() { return m_mutex; }

 private:
  LockedAllocator(const LockedAllocator&);

  bool ShortOfChunks() const {
    return static_cast<uint64_t>(m_pool.FreeChunkCount()) * 8 < m_pool.LaidOutChunks();
  }

  LockedAllocator& operator=(const LockedAllocator&);

  Pool m_pool;
  MutexType m_mutex;
};

}  // namespace Heap
}  // namespace Quendal

#endif
