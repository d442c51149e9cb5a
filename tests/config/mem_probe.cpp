// A program that uses the shared library the way a framework process does,
// for the tests that copy it beside a ".mem" file and read what it prints.
//
//   mem_probe config       read the configuration, print values and limits
//   mem_probe heap         make the first heap call, print the pool's chunk
//                          count and the limits that call read
//   mem_probe pool         allocate 1024-byte blocks, print the run of blocks
//                          that lie one 2048-byte chunk apart
//   mem_probe after-exit   read again from an exit handler that runs after the
//                          library's statics were destroyed
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "quendal/config_file_reader.h"
#include "quendal/heap.h"
#include "quendal/heap_stats.h"

namespace {

void PrintModules() {
  for (const auto& entry : getModuleLimits()) {
    printf("module %lu %s\n", entry.second, entry.first);
  }
}

int PrintHeap() {
  void* block = QDHeapAlloc(40);
  QDHeapStats stats;
  stats.size = sizeof(stats);
  if (QDHeapGetStats(&stats) != QD_HEAP_STATS_OK) {
    return 1;
  }
  printf("heap-chunks %u\n", stats.chunkCount);
  PrintModules();
  QDHeapFree(block);
  return 0;
}

void PrintConfig() {
  unsigned int chunks = 0;
  unsigned int chunkSize = 0;
  unsigned int segSize = 0;
  int result = ConfigFileReader::ReadConfigValues(chunks, chunkSize, segSize);
  printf("result %d\nchunks %u\nchunkSize %u\nsegSize %u\n", result, chunks, chunkSize, segSize);
  PrintModules();
}

int PrintPoolRun() {
  const int kBlocks = 12;
  void* blocks[kBlocks];
  for (int i = 0; i < kBlocks; ++i) {
    blocks[i] = QDHeapAlloc(1024);
  }
  int run = 1;
  while (run < kBlocks &&
         reinterpret_cast<uintptr_t>(blocks[run]) - reinterpret_cast<uintptr_t>(blocks[run - 1]) ==
             2048) {
    ++run;
  }
  printf("pool-run %d\n", run);
  for (int i = 0; i < kBlocks; ++i) {
    QDHeapFree(blocks[i]);
  }
  return 0;
}

char* g_storedKey = nullptr;

void ReadAfterExit() {
  unsigned int chunks = 0;
  unsigned int chunkSize = 0;
  unsigned int segSize = 0;
  ConfigFileReader::ReadConfigValues(chunks, chunkSize, segSize);
  unsigned long limit = 0;
  bool found = ConfigFileReader::GetConfigModuleLimit(g_storedKey, limit);
  ConfigFileReader::DeInit();
  printf("after-exit chunks %u found %d\n", chunks, found ? 1 : 0);
  fflush(stdout);
}

int PrintAfterExit() {
  // Registered before the library builds its map, so it runs after the map's
  // exit-time destructor.
  atexit(ReadAfterExit);
  PrintConfig();
  if (!getModuleLimits().empty()) {
    g_storedKey = getModuleLimits().begin()->first;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s config|heap|pool|after-exit\n", argv[0]);
    return 2;
  }
  int status = 2;
  if (strcmp(argv[1], "config") == 0) {
    PrintConfig();
    status = 0;
  } else if (strcmp(argv[1], "heap") == 0) {
    status = PrintHeap();
  } else if (strcmp(argv[1], "pool") == 0) {
    status = PrintPoolRun();
  } else if (strcmp(argv[1], "after-exit") == 0) {
    status = PrintAfterExit();
  }
  ConfigFileReader::DeInit();
  fflush(stdout);
  return status;
}
