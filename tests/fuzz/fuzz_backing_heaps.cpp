#include "fuzz/fuzz_backing_heaps.h"

#include <sanitizer/asan_interface.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <numeric>

namespace QuendalFuzz {

namespace {

// Larger requests are refused, as a real heap refuses what it cannot give.
const size_t kLargestSegment = 1 << 20;

std::vector<HeapCall>& Calls() {
  static std::vector<HeapCall> calls;
  return calls;
}

void Record(HeapCall::Heap heap, HeapCall::Kind kind, void* pointer, size_t size, void* result) {
  HeapCall call = {heap, kind, pointer, size, result};
  Calls().push_back(call);
}

struct SegmentState {
  int failuresLeft = 0;
  size_t alignment = 16;
  size_t offset = 0;
  struct Reservation {
    unsigned char* raw;
    size_t bytes;
  };
  std::vector<Reservation> reservations;
};

SegmentState& Segments() {
  static SegmentState state;
  return state;
}

struct OverflowState {
  bool refusing = false;
  std::map<void*, size_t> live;
};

OverflowState& Overflow() {
  static OverflowState state;
  return state;
}

void* NewOverflowBlock(size_t size) {
  // A distinct address even for 0 bytes, as malloc(0) gives.
  void* block = malloc(size != 0 ? size : 1);
  if (block != nullptr) {
    Overflow().live[block] = size;
  }
  return block;
}

}  // namespace

std::string Describe(const HeapCall& call) {
  static const char* const kHeaps[] = {"segment", "overflow"};
  static const char* const kKinds[] = {"Alloc", "ReAlloc", "Free"};
  char text[160];
  snprintf(text, sizeof(text), "%s %s(pointer %p, size %zu) -> %p", kHeaps[call.heap],
           kKinds[call.kind], call.pointer, call.size, call.result);
  return text;
}

std::vector<HeapCall> TakeHeapCalls() {
  std::vector<HeapCall> calls;
  calls.swap(Calls());
  return calls;
}

void* FuzzSegmentHeap::Alloc(size_t size) {
  SegmentState& state = Segments();
  if (state.failuresLeft != 0 || size > kLargestSegment) {
    if (state.failuresLeft > 0 && size <= kLargestSegment) {
      --state.failuresLeft;
    }
    Record(HeapCall::kSegmentHeap, HeapCall::kAlloc, nullptr, size, nullptr);
    return nullptr;
  }
  size_t step = std::lcm(state.alignment, size_t(16));
  size_t bytes = step + state.offset + size + 16;
  unsigned char* raw = static_cast<unsigned char*>(malloc(bytes));
  if (raw == nullptr) {
    Record(HeapCall::kSegmentHeap, HeapCall::kAlloc, nullptr, size, nullptr);
    return nullptr;
  }
  uintptr_t base = reinterpret_cast<uintptr_t>(raw);
  uintptr_t aligned = (base + step - 1) / step * step;
  unsigned char* segment = reinterpret_cast<unsigned char*>(aligned + state.offset);
  ASAN_POISON_MEMORY_REGION(raw, bytes);
  ASAN_UNPOISON_MEMORY_REGION(segment, size);
  state.reservations.push_back(SegmentState::Reservation{raw, bytes});
  Record(HeapCall::kSegmentHeap, HeapCall::kAlloc, nullptr, size, segment);
  return segment;
}

void FuzzSegmentHeap::Free(void* pointer) {
  // The segment stays reserved until Reset: the log shows the release.
  Record(HeapCall::kSegmentHeap, HeapCall::kFree, pointer, 0, nullptr);
}

void* FuzzSegmentHeap::ReAlloc(void* pointer, size_t size) {
  Record(HeapCall::kSegmentHeap, HeapCall::kReAlloc, pointer, size, nullptr);
  return nullptr;
}

void FuzzSegmentHeap::ScriptFailures(int failures) {
  Segments().failuresLeft = failures;
}

void FuzzSegmentHeap::Place(size_t alignment, size_t offset) {
  SegmentState& state = Segments();
  state.alignment = alignment != 0 ? alignment : 16;
  state.offset = offset;
}

void FuzzSegmentHeap::Reset() {
  SegmentState& state = Segments();
  for (const SegmentState::Reservation& reservation : state.reservations) {
    ASAN_UNPOISON_MEMORY_REGION(reservation.raw, reservation.bytes);
    free(reservation.raw);
  }
  state = SegmentState();
  Calls().clear();
}

void* FuzzOverflowHeap::Alloc(size_t size) {
  void* block = Overflow().refusing ? nullptr : NewOverflowBlock(size);
  Record(HeapCall::kOverflowHeap, HeapCall::kAlloc, nullptr, size, block);
  return block;
}

void FuzzOverflowHeap::Free(void* pointer) {
  Record(HeapCall::kOverflowHeap, HeapCall::kFree, pointer, 0, nullptr);
  std::map<void*, size_t>::iterator block = Overflow().live.find(pointer);
  // A pointer this heap does not own is only recorded; the model reports it.
  if (block != Overflow().live.end()) {
    Overflow().live.erase(block);
    free(pointer);
  }
}

void* FuzzOverflowHeap::ReAlloc(void* pointer, size_t size) {
  OverflowState& state = Overflow();
  void* result = nullptr;
  if (pointer == nullptr) {
    if (size != 0 && !state.refusing) {
      result = NewOverflowBlock(size);
    }
  } else {
    std::map<void*, size_t>::iterator old = state.live.find(pointer);
    if (old != state.live.end()) {
      if (size == 0) {
        state.live.erase(old);
        free(pointer);
      } else if (!state.refusing) {
        size_t oldSize = old->second;
        // Always a new address, so that a stale use of the old one shows.
        result = NewOverflowBlock(size);
        if (result != nullptr) {
          memcpy(result, pointer, oldSize < size ? oldSize : size);
          state.live.erase(pointer);
          free(pointer);
        }
      }
    }
  }
  Record(HeapCall::kOverflowHeap, HeapCall::kReAlloc, pointer, size, result);
  return result;
}

void FuzzOverflowHeap::SetRefusing(bool refusing) {
  Overflow().refusing = refusing;
}

bool FuzzOverflowHeap::IsLive(void* pointer) {
  return Overflow().live.count(pointer) != 0;
}

void FuzzOverflowHeap::Reset() {
  OverflowState& state = Overflow();
  for (const std::pair<void* const, size_t>& block : state.live) {
    free(block.first);
  }
  state = OverflowState();
  Calls().clear();
}

}  // namespace QuendalFuzz
