// The one allocator object of the process, constructed in place in static
// storage on first use and never destroyed, so that allocations made while
// the process tears down still find it.
#ifndef QUENDAL_HEAP_SINGLETON_ALLOCATOR_H
#define QUENDAL_HEAP_SINGLETON_ALLOCATOR_H

#include <stdint.h>
#include <new>

#include "util/compiler.h"
#include "util/max_align.h"

namespace Quendal {
namespace Heap {

template <class Allocator>
class SingletonAllocator {
 public:
  // Returns the allocator, constructing it with the pool's defaults on first
  // use (under the runtime's one-time guard). With initialize true, the first
  // such call also runs the pool's Initialize, without the lock.
  static Allocator* getInstance(bool initialize) {
    static Allocator* theAllocator = Construct();
    if (initialize && QD_UNLIKELY(!isInitialized)) {
      isInitialized = 1;
      theAllocator->Initialize();
    }
    return theAllocator;
  }

  // Set once the first initialising getInstance has started.
  static uint8_t isInitialized;

 private:
  static Allocator* Construct() { return new (allocatorMem.bytes) Allocator(); }

  static AlignedStorage<Allocator> allocatorMem;
};

template <class Allocator>
uint8_t SingletonAllocator<Allocator>::isInitialized = 0;

template <class Allocator>
AlignedStorage<Allocator> SingletonAllocator<Allocator>::allocatorMem;

}  // namespace Heap
}  // namespace Quendal

#endif
