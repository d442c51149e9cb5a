// A program whose malloc is not the drop-in's: built with AddressSanitizer,
// whose allocator takes the program's calls ahead of the drop-in it links.
// The program's blocks are then the sanitizer's, and the heap interface must
// hand them back there (the library's own requests and releases go to the
// process's allocator too), never to the C library's allocator behind it.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "quendal/heap.h"
#include "quendal/heap_owns.h"

int main() {
  std::string* text = new std::string("a block of the program's own allocator");
  void* small = malloc(24);
  void* large = malloc(5000);
  if (QDHeapOwns(text) || QDHeapOwns(small)) {
    printf("failed: the drop-in served the program although another malloc is ahead\n");
    return 1;
  }
  QDHeapFree(small);
  QDHeapFree(large);
  char* moved = static_cast<char*>(QDHeapReAlloc(malloc(3000), 4000));
  strcpy(moved, "moved");
  QDHeapFree(moved);
  void* pooled = QDHeapAlloc(40);
  if (!QDHeapOwns(pooled)) {
    printf("failed: QDHeapAlloc did not use the pool\n");
    return 1;
  }
  QDHeapFree(pooled);
  delete text;
  printf("ok\n");
  return 0;
}
