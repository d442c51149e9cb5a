// What the first heap call of a process adds: resident bytes and time of the
// first QDHeapAlloc (lazy initialisation with the default pool, as no ".mem"
// lies beside this program), then of a malloc in the same process, which is
// not the C library's first (the runtime has allocated before main).
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "quendal/heap.h"
#include "rss.h"

namespace {

long long NowNanoseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

void Report(const char* heap, long before, long after, long long nanoseconds) {
  printf("{\"heap\": \"%s\", \"rss_added\": %ld, \"nanoseconds\": %lld}\n", heap, after - before,
         nanoseconds);
}

}  // namespace

int main() {
  long before = QuendalBench::ResidentBytes();
  long long start = NowNanoseconds();
  void* pooled = QDHeapAlloc(16);
  long long elapsed = NowNanoseconds() - start;
  long after = QuendalBench::ResidentBytes();
  Report("qd", before, after, elapsed);

  before = QuendalBench::ResidentBytes();
  start = NowNanoseconds();
  void* plain = malloc(16);
  elapsed = NowNanoseconds() - start;
  after = QuendalBench::ResidentBytes();
  Report("malloc", before, after, elapsed);

  QDHeapFree(pooled);
  free(plain);
  return 0;
}
