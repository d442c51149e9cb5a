// Small programs that misuse pooled blocks on purpose, for a memory checker
// to catch: run under valgrind or built with AddressSanitizer, each case
// must be reported as it would be for a block of the C library's allocator.
// "clean" uses blocks of every pooled size correctly and must raise nothing.
#include <stdio.h>
#include <string.h>

#include "quendal/heap.h"

namespace {

// Keeps the compiler from dropping or moving the accesses under test.
unsigned char* volatile sink;

void WriteAfterFree() {
  unsigned char* block = static_cast<unsigned char*>(QDHeapAlloc(32));
  memset(block, 1, 32);
  QDHeapFree(block);
  sink = block;
  sink[0] = 2;
}

// The block's neighbour in its chunk was never handed out.
void OverflowIntoNeighbour() {
  unsigned char* block = static_cast<unsigned char*>(QDHeapAlloc(48));
  memset(block, 1, 48);
  sink = block;
  sink[48] = 2;
  QDHeapFree(block);
}

// A byte past the size asked for, inside the block's 48-byte class.
void OverflowPastRequestedSize() {
  unsigned char* block = static_cast<unsigned char*>(QDHeapAlloc(45));
  memset(block, 1, 45);
  sink = block;
  sink[45] = 2;
  QDHeapFree(block);
}

void DoubleRelease() {
  void* kept = QDHeapAlloc(32);
  void* block = QDHeapAlloc(32);
  QDHeapFree(block);
  QDHeapFree(block);
  QDHeapFree(kept);
}

__attribute__((noinline)) void AllocateAndDrop() {
  unsigned char* block = static_cast<unsigned char*>(QDHeapAlloc(32));
  memset(block, 1, 32);
  sink = block;
  sink = 0;
}

void Leak() {
  AllocateAndDrop();
  // Other blocks, so that no register or stack slot still names the lost one.
  for (int k = 0; k < 4; ++k) {
    void* other = QDHeapAlloc(64);
    QDHeapFree(other);
  }
}

void ReadUninitialised() {
  unsigned char* block = static_cast<unsigned char*>(QDHeapAlloc(24));
  sink = block;
  if (sink[5] == 7) {
    printf("seven\n");
  }
  QDHeapFree(block);
}

// Every pooled size and a few beyond, filled, checked, moved and released,
// twice over so that blocks and chunks are reused.
int Clean() {
  const int kSizes = 1100;
  static unsigned char* blocks[kSizes];
  int bad = 0;
  for (int round = 0; round < 2; ++round) {
    for (int size = 1; size < kSizes; ++size) {
      blocks[size] = static_cast<unsigned char*>(QDHeapAlloc(size));
      memset(blocks[size], size & 0xff, size);
    }
    for (int size = 1; size < kSizes; size += 2) {
      int grown = size + 13;
      unsigned char* moved = static_cast<unsigned char*>(QDHeapReAlloc(blocks[size], grown));
      for (int k = 0; k < size; ++k) {
        bad += moved[k] != (size & 0xff);
      }
      memset(moved, 3, grown);
      blocks[size] = moved;
    }
    for (int size = 2; size < kSizes; size += 2) {
      int shrunk = size / 2;
      unsigned char* moved = static_cast<unsigned char*>(QDHeapReAlloc(blocks[size], shrunk));
      for (int k = 0; k < shrunk; ++k) {
        bad += moved[k] != (size & 0xff);
      }
      blocks[size] = moved;
    }
    for (int size = 1; size < kSizes; ++size) {
      QDHeapFree(blocks[size]);
    }
  }
  if (bad != 0) {
    printf("%d bytes lost their contents\n", bad);
    return 1;
  }
  printf("clean\n");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s <case>\n", argv[0]);
    return 2;
  }
  const char* name = argv[1];
  if (strcmp(name, "write_after_free") == 0) {
    WriteAfterFree();
  } else if (strcmp(name, "overflow") == 0) {
    OverflowIntoNeighbour();
  } else if (strcmp(name, "overflow_past_requested") == 0) {
    OverflowPastRequestedSize();
  } else if (strcmp(name, "double_release") == 0) {
    DoubleRelease();
  } else if (strcmp(name, "leak") == 0) {
    Leak();
  } else if (strcmp(name, "uninitialised") == 0) {
    ReadUninitialised();
  } else if (strcmp(name, "clean") == 0) {
    return Clean();
  } else {
    fprintf(stderr, "unknown case %s\n", name);
    return 2;
  }
  return 0;
}
