#include "heap/scripted_heap.h"

#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "support/allocated_bytes.h"

namespace QuendalTest {

std::vector<size_t> ScriptedSegmentHeap::requests;
std::vector<void*> ScriptedSegmentHeap::released;
std::deque<SegmentStep> ScriptedSegmentHeap::script;
std::vector<void*> ScriptedSegmentHeap::allocations;
std::vector<ScriptedSegmentHeap::Reservation> ScriptedSegmentHeap::reservations;

void* ScriptedSegmentHeap::Alloc(size_t size) {
  requests.push_back(size);
  SegmentStep step = {SegmentStep::kOffsetFromPowerOfTwo, size_t(1) << 20, 0, 0};
  if (!script.empty()) {
    step = script.front();
    script.pop_front();
  }
  if (step.kind == SegmentStep::kFail) {
    return nullptr;
  }
  void* raw = nullptr;
  unsigned char* segment = nullptr;
  if (step.kind == SegmentStep::kReserve) {
    size_t slack = step.alignment + step.offset;
    if (size > SIZE_MAX - slack) {
      return nullptr;
    }
    void* start =
        mmap(nullptr, size + slack, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (start == MAP_FAILED) {
      return nullptr;
    }
    reservations.push_back(Reservation{start, size + slack});
    uintptr_t address = reinterpret_cast<uintptr_t>(start);
    address = (address + step.alignment - 1) / step.alignment * step.alignment + step.offset;
    size_t usable = step.bytes < size ? step.bytes : size;
    uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    uintptr_t first = address / page * page;
    if (mprotect(reinterpret_cast<void*>(first), address + usable - first,
                 PROT_READ | PROT_WRITE) != 0) {
      return nullptr;
    }
    return reinterpret_cast<void*>(address);
  }
  if (step.kind == SegmentStep::kOffsetFromPowerOfTwo) {
    if (posix_memalign(&raw, step.alignment, size + step.offset) != 0) {
      return nullptr;
    }
    segment = static_cast<unsigned char*>(raw) + step.offset;
  } else {
    raw = malloc(size + step.alignment);
    if (raw == nullptr) {
      return nullptr;
    }
    uintptr_t address = reinterpret_cast<uintptr_t>(raw);
    uintptr_t aligned = (address + step.alignment - 1) / step.alignment * step.alignment;
    segment = reinterpret_cast<unsigned char*>(aligned);
  }
  allocations.push_back(raw);
  return segment;
}

void ScriptedSegmentHeap::Free(void* pointer) {
  released.push_back(pointer);
}

void* ScriptedSegmentHeap::ReAlloc(void*, size_t) {
  std::fprintf(stderr, "the pool never reallocates its segment\n");
  abort();
}

void ScriptedSegmentHeap::QueueFailure() {
  SegmentStep step = {SegmentStep::kFail, 0, 0, 0};
  script.push_back(step);
}

void ScriptedSegmentHeap::QueueOffset(size_t alignment, size_t offset) {
  SegmentStep step = {SegmentStep::kOffsetFromPowerOfTwo, alignment, offset, 0};
  script.push_back(step);
}

void ScriptedSegmentHeap::QueueMultipleOf(size_t alignment) {
  SegmentStep step = {SegmentStep::kMultipleOf, alignment, 0, 0};
  script.push_back(step);
}

void ScriptedSegmentHeap::QueueReserve(size_t alignment, size_t offset, size_t bytes) {
  SegmentStep step = {SegmentStep::kReserve, alignment, offset, bytes};
  script.push_back(step);
}

void ScriptedSegmentHeap::Reset() {
  for (void* raw : allocations) {
    free(raw);
  }
  allocations.clear();
  for (const Reservation& reservation : reservations) {
    munmap(reservation.start, reservation.bytes);
  }
  reservations.clear();
  script.clear();
  requests.clear();
  released.clear();
}

std::vector<OverflowCall> RecordingOverflowHeap::calls;
bool RecordingOverflowHeap::refuseAlloc = false;

void* RecordingOverflowHeap::Alloc(size_t size) {
  // Tests release overflow blocks in many ways or leave them to the
  // process's end; none of them counts as a leak.
  LeaksIgnored notALeak;
  void* result = refuseAlloc ? nullptr : malloc(size);
  calls.push_back({OverflowCall::kAlloc, nullptr, size, result});
  return result;
}

void* RecordingOverflowHeap::AllocCleared(size_t size) {
  LeaksIgnored notALeak;
  void* result = refuseAlloc ? nullptr : calloc(1, size);
  calls.push_back({OverflowCall::kAllocCleared, nullptr, size, result});
  return result;
}

void RecordingOverflowHeap::Free(void* pointer) {
  calls.push_back({OverflowCall::kFree, pointer, 0, nullptr});
  free(pointer);
}

void* RecordingOverflowHeap::ReAlloc(void* pointer, size_t size) {
  calls.push_back({OverflowCall::kReAlloc, pointer, size, nullptr});
  LeaksIgnored notALeak;
  void* result = realloc(pointer, size);
  calls.back().result = result;
  return result;
}

void RecordingOverflowHeap::Reset() {
  calls.clear();
  refuseAlloc = false;
}

size_t RecordingOverflowHeap::Count(OverflowCall::Kind kind) {
  size_t count = 0;
  for (const OverflowCall& call : calls) {
    count += call.kind == kind ? 1 : 0;
  }
  return count;
}

}  // namespace QuendalTest
