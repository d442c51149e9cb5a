// The addresses whose release may take the pool's inline path: one
// subtraction and one comparison stand for the tests a release makes before
// it reaches a chunk (class table present, pointer inside the segment, its
// chunk built, no memory checker watching) and let the chunk be found with a
// mask.
//
// Invariant: the window is empty unless the pool has its class table and
// its segment, its chunk size is a power of two and no memory checker
// watches; then it spans exactly the built chunks, from the segment's first
// chunk to the first chunk not yet built. Every address in it is owned by
// the pool and lies in a built chunk, found by Mask(). The pool sets it
// again wherever one of these changes: when it is configured or initialised
// and when it builds chunks.
#ifndef QUENDAL_HEAP_RELEASE_WINDOW_H
#define QUENDAL_HEAP_RELEASE_WINDOW_H

#include <stdint.h>

#include "heap/chunk_header.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

class ReleaseWindow {
 public:
  ReleaseWindow() : m_base(0), m_span(0), m_mask(0) {}

  // Chunks from base up to end, found by mask; empty when end is base.
  void Open(uintptr_t base, uintptr_t end, uintptr_t mask) {
    m_base = base;
    m_span = end - base;
    m_mask = mask;
  }
  void Close() { m_span = 0; }

  uintptr_t Base() const { return m_base; }
  uintptr_t Span() const { return m_span; }
  uintptr_t Mask() const { return m_mask; }

  QD_ALWAYS_INLINE bool Contains(const void* pointer) const {
    return reinterpret_cast<uintptr_t>(pointer) - m_base < m_span;
  }
  // The chunk of a pointer the window contains.
  QD_ALWAYS_INLINE ChunkHeader* ChunkOf(const void* pointer) const {
    return ChunkAt(reinterpret_cast<uintptr_t>(pointer) & m_mask);
  }

 private:
  uintptr_t m_base;
  uintptr_t m_span;
  uintptr_t m_mask;
};

}  // namespace Heap
}  // namespace Quendal

#endif
