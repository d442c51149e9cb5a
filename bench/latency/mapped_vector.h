// Vectors whose storage is mapped from the system, so that the driver's own
// tables (plans, slots, samples) never pass through the allocator being
// measured and leave its state exactly as the workload made it.
#ifndef QUENDAL_BENCH_LATENCY_MAPPED_VECTOR_H
#define QUENDAL_BENCH_LATENCY_MAPPED_VECTOR_H

#include <stddef.h>
#include <sys/mman.h>

#include <new>
#include <vector>

namespace QuendalLatency {

template <class T>
struct MappedAllocator {
  using value_type = T;

  MappedAllocator() = default;
  // Rebinding, as the containers need it.
  template <class U>
  MappedAllocator(const MappedAllocator<U>& /*other*/) {}

  static T* allocate(size_t count) {
    void* memory = mmap(nullptr, count * sizeof(T), PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      throw std::bad_alloc();
    }
    return static_cast<T*>(memory);
  }

  static void deallocate(T* memory, size_t count) { munmap(memory, count * sizeof(T)); }
};

template <class T, class U>
bool operator==(const MappedAllocator<T>& /*left*/, const MappedAllocator<U>& /*right*/) {
  return true;
}

template <class T, class U>
bool operator!=(const MappedAllocator<T>& /*left*/, const MappedAllocator<U>& /*right*/) {
  return false;
}

template <class T>
using MappedVector = std::vector<T, MappedAllocator<T> >;

// count elements in memory shared with the children forked after it is
// made: what a child writes there, its parent reads.
template <class T>
class SharedArray {
 public:
  explicit SharedArray(size_t count) : m_count(count) {
    void* memory =
        mmap(nullptr, Bytes(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      throw std::bad_alloc();
    }
    m_data = static_cast<T*>(memory);
  }
  ~SharedArray() { munmap(m_data, Bytes()); }
  SharedArray(const SharedArray&) = delete;
  SharedArray& operator=(const SharedArray&) = delete;

  T* data() const { return m_data; }
  size_t size() const { return m_count; }
  T& operator[](size_t index) const { return m_data[index]; }

 private:
  size_t Bytes() const { return (m_count == 0 ? 1 : m_count) * sizeof(T); }

  T* m_data;
  size_t m_count;
};

}  // namespace QuendalLatency

#endif
