// The heap's lifecycle: whether the next call must initialise it, whether
// the allocator and its pool exist, and who may change that.
//
// All of it is one byte, heapState, 0 when the heap is ready. Every exported
// entry tests the byte once; anything but 0 sends the call out of line, where
// the literal start-up order runs:
// - kInitNeeded is the initNeeded flag: set at load and by my_unload; the
//   next entry runs QDHeapInit, whose first step clears it.
// - kNotConstructed: the allocator is not yet built in its static storage.
// - kPoolNotStarted: the pool's first-use Initialize has not been started
//   (the isInitialized flag, inverted).
// - kGateHeld: a thread holds the start-up gate.
//
// Rules:
// - Only the holder of the start-up gate changes the byte (and constructs,
//   configures or initialises the heap); kGateHeld keeps the byte non-zero
//   while it does, so no thread takes the fast path into a pool that is still
//   being set up. Other threads that find the heap not ready wait at the gate
//   and then take the heap as its holder left it: in a process whose threads
//   all make their first call at once, one thread runs QDHeapInit in its
//   order and the others get the configured pool.
// - Re-entry: a heap entry called on the holder's thread (an allocation made
//   by a step of QDHeapInit, or inside the pool's first Initialize) passes the
//   gate it already holds and sees the byte as that thread left it: with
//   kInitNeeded clear it does not initialise again, but builds and starts the
//   allocator from its construction values if need be, as a single-threaded
//   process always has.
// - my_unload holds the gate to set kInitNeeded: the next call runs
//   QDHeapInit again (new extra heap instance, the ".mem" read again); the
//   allocator, its pool and its segment stay as they were.
// - A child forked while a thread of its parent held the gate takes the gate
//   over (that thread does not exist in the child) and initialises afresh.
#ifndef QUENDAL_HEAP_HEAP_INIT_H
#define QUENDAL_HEAP_HEAP_INIT_H

#include <stdint.h>

#include "util/compiler.h"

namespace Quendal {
namespace Heap {

enum HeapStateBit { kInitNeeded = 1, kNotConstructed = 2, kPoolNotStarted = 4, kGateHeld = 8 };

extern uint8_t heapState;

// True when the allocator is built, its pool started and nobody is changing
// either: an entry may go straight to the pool. Acquires what the gate's
// last holder set up.
QD_ALWAYS_INLINE bool HeapIsReady() {
  return __atomic_load_n(&heapState, __ATOMIC_ACQUIRE) == 0;
}

// The same test for a thread that has already acquired the state in this
// call (through HeapIsReady or the gate): a second barrier would add nothing
// but its cost, which on ARM is a full fence.
QD_ALWAYS_INLINE bool HeapIsStillReady() {
  return __atomic_load_n(&heapState, __ATOMIC_RELAXED) == 0;
}

// Whether bit is set, as seen by the gate's holder or by a test.
inline bool HeapStateHas(HeapStateBit bit) {
  return (__atomic_load_n(&heapState, __ATOMIC_ACQUIRE) & bit) != 0;
}

// The initNeeded flag: 1 until QDHeapInit starts, and again after my_unload.
inline uint8_t InitNeeded() {
  return HeapStateHas(kInitNeeded) ? 1 : 0;
}

// Held by one thread at a time while it sets the heap up or tears it down.
// Constructing it on the thread that already holds the gate changes nothing,
// which lets the start-up steps re-enter the heap.
class StartUpGate {
 public:
  StartUpGate();
  ~StartUpGate();

  static bool HeldByThisThread();

  // Sets or clears bits of heapState; the gate must be held.
  static void Set(unsigned bits);
  static void Clear(unsigned bits);

 private:
  StartUpGate(const StartUpGate&);
  StartUpGate& operator=(const StartUpGate&);

  bool m_entered;
};

// Runs QDHeapInit when the heap still needs it; waits for a thread that is
// setting the heap up. The exported entries call this first.
QD_NOINLINE void EnsureHeapInitializedOutOfLine();

QD_ALWAYS_INLINE void EnsureHeapInitialized() {
  if (QD_UNLIKELY(!HeapIsReady())) {
    EnsureHeapInitializedOutOfLine();
  }
}

}  // namespace Heap
}  // namespace Quendal

#endif
