// Several threads allocate, free and reallocate blocks of 1 to 2100 bytes at
// random through the exported heap. Every block is filled with a pattern
// derived from its owner, its serial number and its size, and the pattern is
// verified before the block is released or moved: any byte written by
// somebody else, or lost by a move, is reported and fails the run.
//
//   quendal_heap_stress [--threads N] [--seconds S | --operations N] [--seed N] [--smoke]
//
// --smoke: 4 threads x 20000 operations (what CTest runs). A soak:
//   quendal_heap_stress --threads 2 --seconds 600
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "quendal/heap.h"

namespace {

struct Options {
  int threads = 4;
  double seconds = 0;
  uint64_t operations = 20000;
  uint64_t seed = 20261122;
};

struct Block {
  unsigned char* data;
  size_t size;
  uint32_t serial;
};

struct Worker {
  int index;
  Options options;
  uint64_t operations = 0;
  uint64_t corruptions = 0;
  uint64_t failures = 0;
};

unsigned char PatternByte(int owner, uint32_t serial, size_t offset) {
  uint32_t value = static_cast<uint32_t>(owner) * 0x9E3779B1u ^ serial * 0x85EBCA6Bu ^
                   static_cast<uint32_t>(offset) * 0xC2B2AE35u;
  return static_cast<unsigned char>(value ^ (value >> 13) ^ (value >> 24));
}

void Fill(int owner, const Block& block, size_t from) {
  for (size_t offset = from; offset < block.size; ++offset) {
    block.data[offset] = PatternByte(owner, block.serial, offset);
  }
}

// Checks the first bytes of a block against the pattern; counts and reports
// the first mismatch.
bool Verify(Worker& worker, const Block& block, size_t bytes, const char* when) {
  for (size_t offset = 0; offset < bytes; ++offset) {
    if (block.data[offset] != PatternByte(worker.index, block.serial, offset)) {
      ++worker.corruptions;
      fprintf(stderr, "thread %d: block %p (serial %u, %zu bytes) corrupt at byte %zu %s\n",
              worker.index, static_cast<void*>(block.data), block.serial, block.size, offset, when);
      return false;
    }
  }
  return true;
}

void* Run(void* argument) {
  Worker& worker = *static_cast<Worker*>(argument);
  std::mt19937_64 random(worker.options.seed + static_cast<uint64_t>(worker.index) * 7919);
  std::uniform_int_distribution<size_t> sizes(1, 2100);
  std::vector<Block> live;
  uint32_t serial = 0;
  auto deadline =
      std::chrono::steady_clock::now() + std::chrono::duration<double>(worker.options.seconds);
  bool timed = worker.options.seconds > 0;
  for (;;) {
    if (timed ? ((worker.operations & 1023) == 0 && std::chrono::steady_clock::now() >= deadline)
              : worker.operations >= worker.options.operations) {
      break;
    }
    ++worker.operations;
    unsigned choice = static_cast<unsigned>(random() % 10);
    if (live.empty() || (choice < 5 && live.size() < 2000)) {
      Block block = {nullptr, sizes(random), ++serial};
      block.data = static_cast<unsigned char*>(QDHeapAlloc(block.size));
      if (block.data == nullptr) {
        ++worker.failures;
        continue;
      }
      Fill(worker.index, block, 0);
      live.push_back(block);
      continue;
    }
    size_t victim = static_cast<size_t>(random() % live.size());
    Block& block = live[victim];
    if (choice < 8) {
      Verify(worker, block, block.size, "before release");
      QDHeapFree(block.data);
      block = live.back();
      live.pop_back();
      continue;
    }
    size_t newSize = sizes(random);
    Verify(worker, block, block.size, "before move");
    unsigned char* moved = static_cast<unsigned char*>(QDHeapReAlloc(block.data, newSize));
    if (moved == nullptr) {
      ++worker.failures;
      block = live.back();
      live.pop_back();
      continue;
    }
    size_t kept = block.size < newSize ? block.size : newSize;
    Block movedBlock = {moved, newSize, block.serial};
    Verify(worker, movedBlock, kept, "after move");
    Fill(worker.index, movedBlock, kept);
    block = movedBlock;
  }
  for (const Block& block : live) {
    Verify(worker, block, block.size, "at the end");
    QDHeapFree(block.data);
  }
  return nullptr;
}

bool ParseArguments(int argc, char** argv, Options& options) {
  for (int k = 1; k < argc; ++k) {
    std::string argument = argv[k];
    bool hasValue = k + 1 < argc;
    if (argument == "--smoke") {
      options.threads = 4;
      options.operations = 20000;
      options.seconds = 0;
    } else if (argument == "--threads" && hasValue) {
      options.threads = atoi(argv[++k]);
    } else if (argument == "--seconds" && hasValue) {
      options.seconds = atof(argv[++k]);
    } else if (argument == "--operations" && hasValue) {
      options.operations = strtoull(argv[++k], nullptr, 10);
      options.seconds = 0;
    } else if (argument == "--seed" && hasValue) {
      options.seed = strtoull(argv[++k], nullptr, 10);
    } else {
      return false;
    }
  }
  return options.threads > 0 && options.threads <= 64;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ParseArguments(argc, argv, options)) {
    fprintf(stderr, "usage: %s [--threads N] [--seconds S | --operations N] [--seed N] [--smoke]\n",
            argv[0]);
    return 2;
  }
  // The heap initialises on one thread before the others use it.
  QDHeapInit();
  std::vector<Worker> workers(static_cast<size_t>(options.threads));
  std::vector<pthread_t> threads(workers.size());
  for (size_t k = 0; k < workers.size(); ++k) {
    workers[k].index = static_cast<int>(k);
    workers[k].options = options;
    pthread_create(&threads[k], nullptr, Run, &workers[k]);
  }
  uint64_t operations = 0;
  uint64_t corruptions = 0;
  uint64_t failures = 0;
  for (size_t k = 0; k < workers.size(); ++k) {
    pthread_join(threads[k], nullptr);
    operations += workers[k].operations;
    corruptions += workers[k].corruptions;
    failures += workers[k].failures;
  }
  printf("%d threads, %llu operations, %llu corrupt blocks, %llu failed requests\n",
         options.threads, static_cast<unsigned long long>(operations),
         static_cast<unsigned long long>(corruptions), static_cast<unsigned long long>(failures));
  return corruptions == 0 && failures == 0 ? 0 : 1;
}
