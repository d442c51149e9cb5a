/* Misuses of malloc blocks that a memory checker must report when the
 * drop-in serves them from the pool:
 *   quendal_drop_in_broken write_after_free|overflow|double_free|clean
 * "clean" misuses nothing and releases what it allocated: no report, and no
 * leak of the pool's own structures either.
 * Prints "not pooled" and exits with 3 when the block is not the pool's
 * (another malloc took over), so the report cannot come from elsewhere. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <quendal/heap_owns.h>

/* Called through pointers, so that the compiler leaves the misuses in. */
static void* (*volatile allocate)(size_t) = malloc;
static void (*volatile release)(void*) = free;

int main(int argc, char** argv) {
  char* block = allocate(32);
  char* neighbour = allocate(48);
  if (argc != 2 || block == NULL || neighbour == NULL) {
    return 2;
  }
  if (!QDHeapOwns(block) || !QDHeapOwns(neighbour)) {
    printf("not pooled\n");
    return 3;
  }
  if (strcmp(argv[1], "write_after_free") == 0) {
    release(block);
    ((volatile char*)block)[3] = 1;
  } else if (strcmp(argv[1], "overflow") == 0) {
    ((volatile char*)neighbour)[48] = 1;
    release(block);
  } else if (strcmp(argv[1], "clean") == 0) {
    block[31] = 1;
    release(block);
  } else if (strcmp(argv[1], "double_free") == 0) {
    release(block);
    release(block);
  } else {
    return 2;
  }
  release(neighbour);
  return 0;
}
