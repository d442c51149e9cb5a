// Backing heaps for the pool fuzzer. Both record every call, in order and in
// one log, so that the reference model can check the pool's routing call by
// call; the addresses they hand out are what the model learns from them.
#ifndef QUENDAL_TESTS_FUZZ_FUZZ_BACKING_HEAPS_H
#define QUENDAL_TESTS_FUZZ_FUZZ_BACKING_HEAPS_H

#include <stddef.h>

#include <map>
#include <string>
#include <vector>

namespace QuendalFuzz {

struct HeapCall {
  enum Heap { kSegmentHeap, kOverflowHeap };
  enum Kind { kAlloc, kReAlloc, kFree };
  Heap heap;
  Kind kind;
  void* pointer;
  size_t size;
  void* result;
};

std::string Describe(const HeapCall& call);

// Every backing-heap call since the last TakeHeapCalls().
std::vector<HeapCall> TakeHeapCalls();

// Hands out the pool's segment. Requests above 1 MiB fail; the others fail
// while scripted failures are left; afterwards a segment starts `offset` bytes past an address that
// is a multiple of both the alignment and 16, and everything around it is poisoned so that
// AddressSanitizer catches a pool that reaches outside.
class FuzzSegmentHeap {
 public:
  static void* Alloc(size_t size);
  static void Free(void* pointer);
  static void* ReAlloc(void* pointer, size_t size);

  // failures: requests to refuse before the first success (-1: all of them).
  static void ScriptFailures(int failures);
  // Where the next segment starts: offset bytes past a multiple of alignment.
  static void Place(size_t alignment, size_t offset);
  // Releases every segment handed out.
  static void Reset();
};

// malloc with a record of every live block and its size. While refusing,
// allocations (Alloc, and ReAlloc to a size above 0) return null and leave
// the old block alone, as realloc does. ReAlloc(p, 0) frees p and returns
// null; ReAlloc(null, 0) returns null.
class FuzzOverflowHeap {
 public:
  static void* Alloc(size_t size);
  static void Free(void* pointer);
  static void* ReAlloc(void* pointer, size_t size);

  static void SetRefusing(bool refusing);
  static bool IsLive(void* pointer);
  // Frees every block still live (releases the pool dropped included).
  static void Reset();
};

}  // namespace QuendalFuzz

#endif
