// Adds one lock around a pool: every allocation, release and reallocation,
// including the pool's calls into its overflow heap, runs under it.
#ifndef QUENDAL_HEAP_LOCKED_ALLOCATOR_H
#define QUENDAL_HEAP_LOCKED_ALLOCATOR_H

#include <stddef.h>
#include <stdint.h>

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

  void* Alloc(size_t size) {
    m_mutex.Lock();
    void* block = m_pool.Alloc(size);
    m_mutex.Unlock();
    return block;
  }

  void Free(void* pointer) {
    m_mutex.Lock();
    m_pool.Free(pointer);
    m_mutex.Unlock();
  }

  void* ReAlloc(void* pointer, size_t size) {
    m_mutex.Lock();
    void* block = m_pool.ReAlloc(pointer, size);
    m_mutex.Unlock();
    return block;
  }

  Pool& GetPool() { return m_pool; }
  MutexType& GetMutex() { return m_mutex; }

 private:
  LockedAllocator(const LockedAllocator&);
  LockedAllocator& operator=(const LockedAllocator&);

  Pool m_pool;
  MutexType m_mutex;
};

}  // namespace Heap
}  // namespace Quendal

#endif
