// Allocations from exit handlers. One handler is registered before the first
// heap call, so it runs after the library's own statics are gone; another
// after an explicit my_unload, so its first call initialises the heap again.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "quendal/extra_heap.h"
#include "quendal/heap.h"

namespace {

void Check(bool condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "failed: %s\n", what);
    fflush(stderr);
    _exit(1);
  }
}

void UseTheHeap(const char* who) {
  char* block = static_cast<char*>(QDHeapAlloc(24));
  Check(block != nullptr, who);
  strcpy(block, "exit handler");
  char* moved = static_cast<char*>(QDHeapReAlloc(block, 64));
  Check(moved != nullptr && strcmp(moved, "exit handler") == 0, who);
  QDHeapFree(moved);
  void* large = QDHeapAlloc(5000);
  Check(large != nullptr, who);
  QDHeapFree(large);
}

void AfterUnload() {
  UseTheHeap("allocation after my_unload");
  Check(ExtraHeap::GetInstance() != nullptr, "re-initialised extra heap");
  printf("allocation after my_unload ok\n");
  fflush(stdout);
}

void AfterStatics() {
  UseTheHeap("allocation after the library's statics");
  printf("allocation after the library's statics ok\n");
  fflush(stdout);
}

}  // namespace

int main() {
  atexit(AfterStatics);
  void* block = QDHeapAlloc(8);
  Check(block != nullptr, "first allocation");
  QDHeapFree(block);
  my_unload();
  Check(ExtraHeap::GetInstance() == nullptr, "my_unload released the extra heap");
  atexit(AfterUnload);
  return 0;
}
