// Backing heaps for pool tests: a segment heap that hands out aligned,
// misaligned or no segments on cue, and an overflow heap that records every
// call and can refuse allocations.
#ifndef QUENDAL_TESTS_HEAP_SCRIPTED_HEAP_H
#define QUENDAL_TESTS_HEAP_SCRIPTED_HEAP_H

#include <stddef.h>

#include <deque>
#include <vector>

namespace QuendalTest {

struct SegmentStep {
  enum Kind { kFail, kOffsetFromPowerOfTwo, kMultipleOf, kReserve };
  Kind kind;
  // kOffsetFromPowerOfTwo: the address is offset bytes past a multiple of
  // alignment (a power of two), and the segment ends exactly where its
  // allocation does, so an overrun is caught by AddressSanitizer.
  // kMultipleOf: the address is a multiple of alignment (any value).
  // kReserve: as kOffsetFromPowerOfTwo, but address space is reserved for
  // the whole segment and only its first bytes can be touched, for a
  // segment larger than a test can have of which the pool uses the start;
  // refused where the address space has no room for it.
  size_t alignment;
  size_t offset;
  size_t bytes;
};

class ScriptedSegmentHeap {
 public:
  static void* Alloc(size_t size);
  static void Free(void* pointer);
  static void* ReAlloc(void* pointer, size_t size);

  static void QueueFailure();
  static void QueueOffset(size_t alignment, size_t offset);
  static void QueueMultipleOf(size_t alignment);
  static void QueueReserve(size_t alignment, size_t offset, size_t bytes);
  // Releases every segment handed out and forgets the script.
  static void Reset();

  // Sizes of every segment request, in order.
  static std::vector<size_t> requests;
  // Segments given back by the pool.
  static std::vector<void*> released;

 private:
  static std::deque<SegmentStep> script;
  static std::vector<void*> allocations;
  struct Reservation {
    void* start;
    size_t bytes;
  };
  static std::vector<Reservation> reservations;
};

struct OverflowCall {
  enum Kind { kAlloc, kReAlloc, kFree, kAllocCleared };
  Kind kind;
  void* pointer;
  size_t size;
  void* result;
};

class RecordingOverflowHeap {
 public:
  static void* Alloc(size_t size);
  static void Free(void* pointer);
  static void* ReAlloc(void* pointer, size_t size);
  static void* AllocCleared(size_t size);

  static void Reset();
  static size_t Count(OverflowCall::Kind kind);

  static std::vector<OverflowCall> calls;
  // While set, Alloc returns null (ReAlloc and Free still work).
  static bool refuseAlloc;
};

}  // namespace QuendalTest

#endif
