/* A program that knows nothing of the drop-in, for the tests that preload
 * it: one malloc, then the pool's chunk count through the heap interface the
 * drop-in exports, "chunks <n>", or "not preloaded" without the drop-in. */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include "quendal/heap_stats.h"

typedef int (*GetStats)(QDHeapStats* stats);

int main(void) {
  void* block = malloc(40);
  GetStats getStats = (GetStats)dlsym(RTLD_DEFAULT, "QDHeapGetStats");
  if (getStats == NULL) {
    printf("not preloaded\n");
    free(block);
    return 1;
  }
  QDHeapStats stats;
  stats.size = sizeof(stats);
  if (getStats(&stats) != QD_HEAP_STATS_OK) {
    printf("no statistics\n");
    free(block);
    return 1;
  }
  printf("chunks %u\n", (unsigned)stats.chunkCount);
  free(block);
  return 0;
}
