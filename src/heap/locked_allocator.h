// Adds one lock around a pool: every allocation, release and reallocation,
// including the pool's calls into its overflow heap, runs under it once the
// process can have a second thread. Before that the lock is skipped: nothing
// can run beside the caller, and a thread started later finds the pool as
// the caller left it.
#ifndef QUENDAL_HEAP_LOCKED_ALLOCATOR_H
#define QUENDAL_HEAP_LOCKED_ALLOCATOR_H

#include <stddef.h>
#include <stdint.h>

#include "heap/pool_c_callers.h"
#include "platform/single_threaded.h"
#include "util/compiler.h"

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
    bool locked = Lock();
    void* block = m_pool.Alloc(size);
    Unlock(locked);
    return block;
  }

  void* AllocCleared(size_t size) {
    bool locked = Lock();
    void* block = PoolForCCallers<Pool>::AllocCleared(m_pool, size);
    Unlock(locked);
    return block;
  }

  QD_ALWAYS_INLINE void Free(void* pointer) {
    bool locked = Lock();
    m_pool.Free(pointer);
    Unlock(locked);
  }

  void* ReAlloc(void* pointer, size_t size) {
    bool locked = Lock();
    void* block = m_pool.ReAlloc(pointer, size);
    Unlock(locked);
    return block;
  }

  void* Resize(void* pointer, size_t size) {
    bool locked = Lock();
    void* block = PoolForCCallers<Pool>::Resize(m_pool, pointer, size);
    Unlock(locked);
    return block;
  }

  // The drop-in's releases and moves of blocks of the C library: the pool
  // counts those of pooled sizes once it ran out of chunks.
  bool FollowsOverflowBlocks() const { return m_pool.FollowsOverflowBlocks(); }

  size_t StopFollowing(void* pointer) {
    bool locked = Lock();
    size_t followed = PoolForCCallers<Pool>::StopFollowing(m_pool, pointer);
    Unlock(locked);
    return followed;
  }

  void FollowMoved(void* pointer, void* block, size_t size, size_t followed) {
    bool locked = Lock();
    PoolForCCallers<Pool>::FollowMoved(m_pool, pointer, block, size, followed);
    Unlock(locked);
  }

  // Calls reader(pool) under the lock, for a snapshot no other thread
  // changes while it is read.
  template <class Reader>
  void Inspect(Reader& reader) {
    bool locked = Lock();
    reader(static_cast<const Pool&>(m_pool));
    Unlock(locked);
  }

  Pool& GetPool() { return m_pool; }
  MutexType& GetMutex() { return m_mutex; }

 private:
  // Takes the lock unless the process is single-threaded; the answer is kept
  // for the matching Unlock, so a call that started unlocked ends unlocked.
  QD_ALWAYS_INLINE bool Lock() {
    if (QD_LIKELY(Platform::IsSingleThreaded())) {
      return false;
    }
    m_mutex.Lock();
    return true;
  }

  QD_ALWAYS_INLINE void Unlock(bool locked) {
    if (locked) {
      m_mutex.Unlock();
    }
  }

  LockedAllocator(const LockedAllocator&);
  LockedAllocator& operator=(const LockedAllocator&);

  Pool m_pool;
  MutexType m_mutex;
};

}  // namespace Heap
}  // namespace Quendal

#endif
