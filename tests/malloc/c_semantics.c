/* The drop-in's C entries as a C program sees them, one case per run:
 *   quendal_drop_in_c <case>
 * Prints "ok" and exits with 0 when the case holds; prints what failed and
 * exits with 1 otherwise. */
#define _GNU_SOURCE
#include <errno.h>
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <quendal/heap.h>
#include <quendal/heap_owns.h>
#include <quendal/heap_stats.h>

static int failures = 0;

#define CHECK(condition)                                      \
  do {                                                        \
    if (!(condition)) {                                       \
      printf("failed: %s (line %d)\n", #condition, __LINE__); \
      ++failures;                                             \
    }                                                         \
  } while (0)

/* Objects of size or more bytes may need this alignment on this target. */
static size_t NeededAlignment(size_t size) {
  size_t alignment = 1;
  while (alignment * 2 <= size && alignment * 2 <= _Alignof(max_align_t)) {
    alignment *= 2;
  }
  return alignment;
}

/* A size no allocator can serve, which the heap passes to the C library;
 * volatile, so that the compiler does not refuse the calls that ask for it. */
static volatile size_t hugeSize = SIZE_MAX / 2 + 1;
static volatile size_t largestSize = SIZE_MAX;

static size_t HugeSize(void) {
  return hugeSize;
}

/* Called through a pointer, so that the compiler does not take a failed
 * reallocation for a release of the block. */
static void* (*volatile reallocate)(void*, size_t) = realloc;

static void MallocZeroIsUnique(void) {
  void* first = malloc(0);
  void* second = malloc(0);
  CHECK(first != NULL);
  CHECK(second != NULL);
  CHECK(first != second);
  CHECK(QDHeapOwns(first));
  free(first);
  free(second);
}

static void MallocOfEverySizeIsAligned(void) {
  size_t size;
  for (size = 1; size <= 4096; ++size) {
    unsigned char* block = malloc(size);
    CHECK(block != NULL);
    if (block == NULL) {
      return;
    }
    if ((uintptr_t)block % NeededAlignment(size) != 0) {
      printf("failed: malloc(%zu) = %p is not aligned to %zu\n", size, (void*)block,
             NeededAlignment(size));
      ++failures;
    }
    CHECK(malloc_usable_size(block) >= size);
    memset(block, 0xA5, size);
    free(block);
  }
}

static void CallocZeroesRecycledBlocks(void) {
  size_t i;
  unsigned char* dirty = malloc(64);
  unsigned char* cleared;
  memset(dirty, 0xFF, 64);
  CHECK(QDHeapOwns(dirty));
  free(dirty);
  /* The pool hands the same block out again: calloc must clear it. */
  cleared = calloc(8, 8);
  CHECK(cleared == dirty);
  for (i = 0; i < 64; ++i) {
    CHECK(cleared[i] == 0);
  }
  free(cleared);
  /* Above the pooled sizes too. */
  cleared = calloc(1, 1 << 20);
  CHECK(cleared != NULL);
  CHECK(!QDHeapOwns(cleared));
  for (i = 0; i < (1u << 20); i += 4096) {
    CHECK(cleared[i] == 0);
  }
  free(cleared);
}

static void CallocOverflowFailsWithEnomem(void) {
  errno = 0;
  CHECK(calloc(HugeSize(), 3) == NULL);
  CHECK(errno == ENOMEM);
  errno = 0;
  CHECK(reallocarray(NULL, HugeSize(), 3) == NULL);
  CHECK(errno == ENOMEM);
}

static void EveryFailureSetsEnomem(void) {
  void* block;
  errno = 0;
  CHECK(malloc(HugeSize()) == NULL);
  CHECK(errno == ENOMEM);
  errno = 0;
  CHECK(malloc(largestSize) == NULL);
  CHECK(errno == ENOMEM);
  errno = 0;
  CHECK(memalign(64, HugeSize()) == NULL);
  CHECK(errno == ENOMEM);
  CHECK(posix_memalign(&block, 64, HugeSize()) == ENOMEM);
  errno = 0;
  CHECK(pvalloc(largestSize) == NULL);
  CHECK(errno == ENOMEM);
}

static void ReallocFailureKeepsTheBlock(void) {
  char* pooled = malloc(40);
  char* large = malloc(5000);
  strcpy(pooled, "pooled block");
  strcpy(large, "large block");
  errno = 0;
  CHECK(reallocate(pooled, HugeSize()) == NULL);
  CHECK(errno == ENOMEM);
  CHECK(strcmp(pooled, "pooled block") == 0);
  errno = 0;
  CHECK(reallocate(large, HugeSize()) == NULL);
  CHECK(errno == ENOMEM);
  CHECK(strcmp(large, "large block") == 0);
  /* Still the program's: released normally. */
  free(pooled);
  free(large);
}

static void ReallocMovesContentsAndResizesWithinAClass(void) {
  size_t i;
  unsigned char* block = malloc(17);
  unsigned char* same;
  unsigned char* moved;
  unsigned char* grown;
  for (i = 0; i < 17; ++i) {
    block[i] = (unsigned char)i;
  }
  /* 17 and 24 bytes share a class on every target (24 on ARM, 32 on x86):
   * the block stays. */
  same = realloc(block, 24);
  CHECK(same == block);
  moved = realloc(same, 200);
  CHECK(moved != NULL && moved != same);
  CHECK(QDHeapOwns(moved));
  grown = realloc(moved, 3000);
  CHECK(grown != NULL);
  CHECK(!QDHeapOwns(grown));
  for (i = 0; i < 17; ++i) {
    CHECK(grown[i] == (unsigned char)i);
  }
  block = realloc(grown, 10);
  CHECK(block != NULL);
  for (i = 0; i < 10; ++i) {
    CHECK(block[i] == (unsigned char)i);
  }
  free(block);
}

static void ReallocEdgeCasesAsGlibc(void) {
  void* block = realloc(NULL, 24);
  CHECK(block != NULL);
  CHECK(QDHeapOwns(block));
  /* glibc frees and returns null for size 0. */
  CHECK(realloc(block, 0) == NULL);
  block = malloc(5000);
  CHECK(realloc(block, 0) == NULL);
}

static void FreeKeepsErrno(void) {
  void* pooled = malloc(16);
  void* large = malloc(1 << 20);
  errno = 1234;
  free(pooled);
  CHECK(errno == 1234);
  free(large);
  CHECK(errno == 1234);
  free(NULL);
  CHECK(errno == 1234);
}

static void AlignedEntriesServeEveryAlignment(void) {
  size_t alignment;
  void* block;
  for (alignment = 1; alignment <= 8192; alignment *= 2) {
    block = memalign(alignment, 24);
    CHECK(block != NULL && (uintptr_t)block % alignment == 0);
    free(block);
    block = aligned_alloc(alignment, 3 * alignment);
    CHECK(block != NULL && (uintptr_t)block % alignment == 0);
    free(block);
    if (alignment >= sizeof(void*)) {
      block = NULL;
      CHECK(posix_memalign(&block, alignment, 100) == 0);
      CHECK(block != NULL && (uintptr_t)block % alignment == 0);
      free(block);
    }
  }
  /* Alignments up to malloc's own come from the pool. */
  block = memalign(8, 8);
  CHECK(QDHeapOwns(block));
  free(block);
  /* memalign raises an alignment that is not a power of two. */
  block = memalign(48, 10);
  CHECK(block != NULL && (uintptr_t)block % 64 == 0);
  free(block);
  block = valloc(10);
  CHECK(block != NULL && (uintptr_t)block % (size_t)sysconf(_SC_PAGESIZE) == 0);
  free(block);
  block = pvalloc(0);
  CHECK(block != NULL && (uintptr_t)block % (size_t)sysconf(_SC_PAGESIZE) == 0);
  CHECK(malloc_usable_size(block) >= (size_t)sysconf(_SC_PAGESIZE));
  free(block);
}

static void InvalidAlignmentsAreRefused(void) {
  void* block = &block;
  CHECK(posix_memalign(&block, 24, 10) == EINVAL);
  CHECK(posix_memalign(&block, sizeof(void*) / 2, 10) == EINVAL);
  CHECK(posix_memalign(&block, 0, 10) == EINVAL);
  CHECK(block == &block);
  errno = 0;
  CHECK(aligned_alloc(24, 48) == NULL);
  CHECK(errno == EINVAL);
}

static void UsableSizeOfEveryKindOfBlock(void) {
  void* pooled = malloc(20);
  void* large = malloc(5000);
  void* aligned = memalign(4096, 10);
  CHECK(malloc_usable_size(NULL) == 0);
  CHECK(malloc_usable_size(pooled) == (_Alignof(max_align_t) == 16 ? 32u : 24u));
  CHECK(malloc_usable_size(large) >= 5000);
  CHECK(malloc_usable_size(aligned) >= 10);
  free(pooled);
  free(large);
  free(aligned);
}

static void OneHeapForBothInterfaces(void) {
  void* fromMalloc = malloc(32);
  void* fromHeap = QDHeapAlloc(32);
  void* largeFromMalloc = malloc(5000);
  void* first;
  void* second;
  CHECK(QDHeapOwns(fromMalloc));
  CHECK(QDHeapOwns(fromHeap));
  QDHeapFree(fromMalloc);
  free(fromHeap);
  QDHeapFree(largeFromMalloc);
  /* The pool reuses the freed blocks, whichever entry released them. */
  first = malloc(32);
  second = QDHeapAlloc(32);
  CHECK((first == fromMalloc && second == fromHeap) || (first == fromHeap && second == fromMalloc));
}

/* free() keeps a pool block for the thread's next request unless
 * QUENDAL_THREAD_CACHE is 0; the statistics count the blocks kept. */
static void FreedBlocksAreCachedUnlessSwitchedOff(void) {
  const char* setting = getenv("QUENDAL_THREAD_CACHE");
  int off = setting != NULL && strcmp(setting, "0") == 0;
  void* block = malloc(48);
  QDHeapStats stats;
  CHECK(QDHeapOwns(block));
  free(block);
  stats.size = sizeof(stats);
  CHECK(QDHeapGetStats(&stats) == QD_HEAP_STATS_OK);
  if (off) {
    CHECK(stats.threadCachedBlocks == 0);
    CHECK(stats.threadCachedBytes == 0);
  } else {
    CHECK(stats.threadCachedBlocks > 0);
    CHECK(stats.threadCachedBytes >= 48);
  }
}

struct Case {
  const char* name;
  void (*run)(void);
};

static const struct Case cases[] = {
    {"malloc_zero", MallocZeroIsUnique},
    {"alignment", MallocOfEverySizeIsAligned},
    {"calloc_zeroes", CallocZeroesRecycledBlocks},
    {"calloc_overflow", CallocOverflowFailsWithEnomem},
    {"enomem", EveryFailureSetsEnomem},
    {"realloc_failure", ReallocFailureKeepsTheBlock},
    {"realloc_moves", ReallocMovesContentsAndResizesWithinAClass},
    {"realloc_edges", ReallocEdgeCasesAsGlibc},
    {"free_errno", FreeKeepsErrno},
    {"aligned", AlignedEntriesServeEveryAlignment},
    {"invalid_alignment", InvalidAlignmentsAreRefused},
    {"usable_size", UsableSizeOfEveryKindOfBlock},
    {"one_heap", OneHeapForBothInterfaces},
    {"thread_cache", FreedBlocksAreCachedUnlessSwitchedOff},
};

int main(int argc, char** argv) {
  size_t i;
  if (argc != 2) {
    fprintf(stderr, "usage: %s <case>\n", argv[0]);
    return 2;
  }
  for (i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
    if (strcmp(argv[1], cases[i].name) == 0) {
      cases[i].run();
      if (failures == 0) {
        printf("ok\n");
      }
      return failures == 0 ? 0 : 1;
    }
  }
  fprintf(stderr, "unknown case %s\n", argv[1]);
  return 2;
}
