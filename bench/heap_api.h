// The two heaps every benchmark family runs against, the exported pool heap
// and the C library's allocator (or whichever allocator is LD_PRELOADed),
// and what both benchmark programs share: row names and the run itself.
#ifndef QUENDAL_BENCH_HEAP_API_H
#define QUENDAL_BENCH_HEAP_API_H

#include <benchmark/benchmark.h>
#include <stddef.h>
#include <stdlib.h>

#include <string>

#include "quendal/heap.h"

namespace QuendalBench {

struct PoolHeap {
  static constexpr const char* kName = "QD";
  static void* Alloc(size_t size) { return QDHeapAlloc(size); }
  static void* ReAlloc(void* pointer, size_t size) { return QDHeapReAlloc(pointer, size); }
  static void Free(void* pointer) { QDHeapFree(pointer); }
};

struct CHeap {
  static constexpr const char* kName = "malloc";
  static void* Alloc(size_t size) { return malloc(size); }
  static void* ReAlloc(void* pointer, size_t size) { return realloc(pointer, size); }
  static void Free(void* pointer) { free(pointer); }
};

// A row's name: family/heap, the form bench/compare pairs rows by.
template <class Heap>
std::string Name(const char* family) {
  return std::string(family) + "/" + Heap::kName;
}

// Runs the rows registered so far with the command line's options; the
// program's exit status.
inline int RunRegisteredBenchmarks(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace QuendalBench

#endif
