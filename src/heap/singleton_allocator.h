// The one allocator object of the process, constructed in place in static
// storage on first use and never destroyed, so that allocations made while
// the process tears down still find it. Its construction and the pool's
// first Initialize are steps of the heap's lifecycle (heap_init.h): once the
// heap is ready, getInstance is one test and the storage's address.
#ifndef QUENDAL_HEAP_SINGLETON_ALLOCATOR_H
#define QUENDAL_HEAP_SINGLETON_ALLOCATOR_H

#include <stdint.h>
#include <new>

#include "heap/heap_init.h"
#include "util/compiler.h"
#include "util/max_align.h"

namespace Quendal {
namespace Heap {

template <class Allocator>
class SingletonAllocator {
 public:
  // Returns the allocator, constructing it with the pool's defaults on first
  // use. With initialize true, the first such call also runs the pool's
  // Initialize, without the heap's lock. Callers have looked at the heap's
  // state first in the same call (EnsureHeapInitialized, getStartedInstance),
  // which acquired what the start-up set up.
  QD_ALWAYS_INLINE static Allocator* getInstance(bool initialize) {
    if (QD_LIKELY(HeapIsStillReady())) {
      return Object();
    }
    return getInstanceStarting(initialize);
  }

  // The allocator once its pool has been started, else null: for the
  // queries that must not build the heap themselves (a release before the
  // first heap call, or one after my_unload).
  QD_ALWAYS_INLINE static Allocator* getStartedInstance() {
    if (QD_LIKELY(HeapIsReady())) {
      return Object();
    }
    return getStartedInstanceStarting();
  }

  // The allocator, for a caller that has just found the heap ready
  // (HeapIsReady) in this call: no second look at the state.
  QD_ALWAYS_INLINE static Allocator* ReadyInstance() { return Object(); }

  // The isInitialized flag: 1 once the first initialising getInstance has
  // started the pool.
  static uint8_t IsInitialized() { return HeapStateHas(kPoolNotStarted) ? 0 : 1; }

 private:
  static Allocator* Object() { return reinterpret_cast<Allocator*>(allocatorMem.bytes); }

  QD_NOINLINE static Allocator* getInstanceStarting(bool initialize) {
    StartUpGate gate;
    if (HeapStateHas(kNotConstructed)) {
      new (allocatorMem.bytes) Allocator();
      StartUpGate::Clear(kNotConstructed);
    }
    if (initialize && HeapStateHas(kPoolNotStarted)) {
      // Marked started first: an allocation the segment request makes on
      // this thread must not start the pool a second time.
      StartUpGate::Clear(kPoolNotStarted);
      Object()->Initialize();
    }
    return Object();
  }

  QD_NOINLINE static Allocator* getStartedInstanceStarting() {
    StartUpGate gate;
    return HeapStateHas(kPoolNotStarted) ? 0 : Object();
  }

  static AlignedStorage<Allocator> allocatorMem;
};

template <class Allocator>
AlignedStorage<Allocator> SingletonAllocator<Allocator>::allocatorMem;

}  // namespace Heap
}  // namespace Quendal

#endif
