// A test pool's statistics as the heap reads them, and their text.
#ifndef QUENDAL_TESTS_HEAP_POOL_STATS_READING_H
#define QUENDAL_TESTS_HEAP_POOL_STATS_READING_H

#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "heap/heap_stats_text.h"
#include "heap/pool_fixture.h"
#include "heap/pool_stats.h"

namespace QuendalTest {

inline QDHeapStats StatsOf(const TestPool& pool) {
  QDHeapStats stats;
  Quendal::Heap::ReadPoolStats(pool, stats);
  return stats;
}

inline std::string StatsTextOf(const TestPool& pool) {
  QDHeapStats stats = StatsOf(pool);
  char* buffer = nullptr;
  size_t length = 0;
  FILE* stream = open_memstream(&buffer, &length);
  Quendal::Heap::WriteHeapStatsText(stream, stats, Quendal::Heap::CauseOfLostChunks(pool));
  fclose(stream);
  std::string text(buffer, length);
  free(buffer);
  return text;
}

}  // namespace QuendalTest

#endif
