/* The heap interface used from C: every entry, compiled as C99, and the
 * statistics. */
#include <quendal/heap.h>
#include <quendal/heap_stats.h>

#include <stdio.h>
#include <string.h>

static int failures = 0;

static void Check(int condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "failed: %s\n", what);
    ++failures;
  }
}

int main(void) {
  char* block;
  char* moved;
  void* extra;
  QDHeapStats stats;

  Check(QDHeapInit() == 1, "QDHeapInit returns 1");
  Check(QDHeapTotalSize() == 0, "QDHeapTotalSize is 0");
  Check(QDHeapAlloc(0) == NULL, "QDHeapAlloc(0) is null");

  block = (char*)QDHeapAlloc(16);
  Check(block != NULL, "QDHeapAlloc(16)");
  strcpy(block, "from C");
  moved = (char*)QDHeapReAlloc(block, 2000);
  Check(moved != NULL && moved != block && strcmp(moved, "from C") == 0, "QDHeapReAlloc moves");
  Check(QDHeapReAlloc(moved, 0) == NULL, "QDHeapReAlloc(p, 0) is null");
  QDHeapFree(NULL);

  Check(QDExtraHeapAlloc(0) == NULL, "QDExtraHeapAlloc(0) is null");
  extra = QDExtraHeapAlloc(32);
  Check(extra != NULL, "QDExtraHeapAlloc(32)");
  extra = QDExtraHeapReAlloc(extra, 64);
  Check(extra != NULL, "QDExtraHeapReAlloc");
  QDExtraHeapFree(extra);
  QDExtraHeapFree(NULL);

  stats.size = sizeof stats;
  Check(QDHeapGetStats(&stats) == QD_HEAP_STATS_OK, "QDHeapGetStats");
  Check(stats.chunkSize == 2048 && stats.classCount == QD_HEAP_STATS_CLASSES,
        "QDHeapGetStats fills the chunk size and every class");
  Check(stats.largeRequests == 1, "QDHeapGetStats counts the 2000-byte request");
  Check(QDHeapGetStats(NULL) == QD_HEAP_STATS_NULL_POINTER, "QDHeapGetStats(NULL)");
  QDHeapWriteStats(NULL);

  Check(QDHeapDeInit() == 1, "QDHeapDeInit returns 1");
  my_unload();
  block = (char*)QDHeapAlloc(8);
  Check(block != NULL, "QDHeapAlloc after my_unload");
  QDHeapFree(block);

  printf("%d passed, %d failed\n", failures == 0 ? 1 : 0, failures == 0 ? 0 : 1);
  return failures == 0 ? 0 : 1;
}
