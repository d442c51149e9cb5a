// Linked with the installed drop-in: the program's own new and malloc come
// from the pool, and the heap interface is the same heap.
#include <quendal/heap.h>
#include <quendal/heap_owns.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main() {
  std::string* text = new std::string("installed drop-in works");
  void* block = std::malloc(24);
  const bool pooled = QDHeapOwns(text) != 0 && QDHeapOwns(block) != 0;
  QDHeapFree(block);
  std::printf("%s%s\n", text->c_str(), pooled ? " (pooled)" : " (not pooled)");
  delete text;
  return 0;
}
