// The ".mem" beside the executable sizes the pool whatever the first
// allocation of the process is. Built three times, with
// QUENDAL_FIRST_CALL set to the first call this program makes: a new in a
// static constructor that runs before any other of the program's, a malloc,
// or QDHeapAlloc, both from main. The build writes CHUNKS 777 beside each.
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "quendal/heap.h"
#include "quendal/heap_owns.h"
#include "quendal/heap_stats.h"

namespace {

void* firstBlock = nullptr;

#if QUENDAL_FIRST_CALL == 1
__attribute__((constructor(101))) void NewFirst() {
  firstBlock = new std::string(40, 'n');
}
#endif

}  // namespace

int main() {
#if QUENDAL_FIRST_CALL == 2
  firstBlock = malloc(40);
#elif QUENDAL_FIRST_CALL == 3
  firstBlock = QDHeapAlloc(40);
#endif
  QDHeapStats stats;
  stats.size = sizeof(stats);
  if (QDHeapGetStats(&stats) != QD_HEAP_STATS_OK) {
    printf("failed: no statistics\n");
    return 1;
  }
  printf("chunks %u, first block %s\n", stats.chunkCount,
         QDHeapOwns(firstBlock) ? "pooled" : "not pooled");
  return 0;
}
