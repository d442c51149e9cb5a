/* A program that knows nothing of the drop-in, for the tests that preload
 * it: allocates and releases one block larger than the C library maps by
 * default, and says whether the C library's heap kept its memory at its top
 * ("kept") or mapped the block and gave it back ("returned"). */
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
  /* Past glibc's own threshold for mapping a block (128 KiB), below the
   * drop-in's on every target. */
  const size_t size = 256 * 1024;
  char* block = malloc(size);
  if (block == NULL) {
    printf("no block\n");
    return 1;
  }
  memset(block, 1, size);
  free(block);
  struct mallinfo2 info = mallinfo2();
  printf("%s\n", info.keepcost >= size ? "kept" : "returned");
  return 0;
}
