// The first heap call of a process made by many threads at once: one of them
// initialises the heap in its order, the others wait and take the pool the
// ".mem" configured. Also a child forked while another thread of its parent
// was still initialising.
#include <gtest/gtest.h>

#include <pthread.h>
#include <stdint.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <utility>
#include <vector>

#include "heap/the_heap.h"
#include "quendal/heap.h"
#include "quendal/heap_stats.h"
#include "support/scripted_platform.h"
#include "support/threads_released_together.h"

// Every request of the library's objects reaches the C library through here.
extern "C" void* __real_malloc(size_t size);

namespace {

namespace Scripted = QuendalTest::ScriptedPlatform;

constexpr unsigned kConfiguredChunks = 1000;
constexpr size_t kSegmentSize = 1u << 20;

std::atomic<int> segmentSizedRequests{0};

}  // namespace

extern "C" void* __wrap_malloc(size_t size) {
  if (size >= kSegmentSize) {
    segmentSizedRequests.fetch_add(1);
  }
  return __real_malloc(size);
}

namespace {

constexpr int kThreads = 16;
constexpr int kRounds = 200;

std::atomic<int> damagedBlocks{0};
std::atomic<int> nullBlocks{0};

unsigned char Pattern(int thread, int round) {
  return static_cast<unsigned char>(thread * 31 + round * 7 + 1);
}

void AllocateRounds(int thread) {
  struct Block {
    unsigned char* bytes;
    size_t size;
    unsigned char pattern;
  };
  std::vector<Block> live;
  live.reserve(kRounds);
  for (int round = 0; round < kRounds; ++round) {
    // Sizes from the smallest class to past the pool, a different mix per thread.
    size_t size = 1 + static_cast<size_t>((thread * 97 + round * 53) % 1100);
    auto* bytes = static_cast<unsigned char*>(QDHeapAlloc(size));
    if (bytes == nullptr) {
      nullBlocks.fetch_add(1);
      continue;
    }
    memset(bytes, Pattern(thread, round), size);
    live.push_back({bytes, size, Pattern(thread, round)});
    if (round % 3 == 2) {
      std::swap(live[live.size() / 2], live.back());
      Block freed = live.back();
      live.pop_back();
      for (size_t i = 0; i < freed.size; ++i) {
        if (freed.bytes[i] != freed.pattern) {
          damagedBlocks.fetch_add(1);
          break;
        }
      }
      QDHeapFree(freed.bytes);
    }
  }
  for (const Block& block : live) {
    for (size_t i = 0; i < block.size; ++i) {
      if (block.bytes[i] != block.pattern) {
        damagedBlocks.fetch_add(1);
        break;
      }
    }
    QDHeapFree(block.bytes);
  }
}

void ScriptMemFile() {
  Scripted::Reset();
  Scripted::SetExecutablePath("/opt/app/player.bin");
  Scripted::SetFileContents("CHUNKS 1000  CHUNK_SIZE 2048 SEG_SIZE 1024\n");
}

TEST(HeapFirstUseThreadsTest, SixteenThreadsFirstCallAtOnceGetTheConfiguredPool) {
  ScriptMemFile();
  // Reading the file takes a while, as on a loaded machine: the other
  // threads arrive while the first is still inside the initialisation.
  Scripted::SetLineCallback([](int) { usleep(20000); });
  QuendalTest::RunReleasedTogether(kThreads, AllocateRounds);

  EXPECT_EQ(damagedBlocks.load(), 0);
  EXPECT_EQ(nullBlocks.load(), 0);
  EXPECT_EQ(Scripted::OpenedPaths().size(), 1u);
  EXPECT_EQ(segmentSizedRequests.load(), 1);
  Quendal::Heap::Pool& pool = Quendal::Heap::TheHeap::getInstance(false)->GetPool();
  EXPECT_EQ(pool.ChunkCount(), kConfiguredChunks);
  EXPECT_EQ(pool.ClassTableEntries(), 1024u / 8u);
  QDHeapStats stats;
  stats.size = sizeof stats;
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.chunkCount, kConfiguredChunks);
}

// The parent's thread stays inside the ".mem" read until the child is done.
std::atomic<bool> readerInside{false};
std::atomic<bool> childDone{false};
pid_t parentProcess = 0;

void* FirstCall(void*) {
  void* block = QDHeapAlloc(24);
  QDHeapFree(block);
  return nullptr;
}

TEST(HeapFirstUseThreadsTest, ChildForkedWhileAnotherThreadInitialisesInitialisesItself) {
  ScriptMemFile();
  parentProcess = getpid();
  Scripted::SetLineCallback([](int) {
    if (getpid() != parentProcess) {
      return;
    }
    readerInside = true;
    while (!childDone) {
      usleep(1000);
    }
  });
  pthread_t reader;
  ASSERT_EQ(pthread_create(&reader, nullptr, FirstCall, nullptr), 0);
  while (!readerInside) {
    usleep(1000);
  }
  pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    // The thread that holds the start-up in the parent does not exist here.
    void* block = QDHeapAlloc(40);
    Quendal::Heap::Pool& pool = Quendal::Heap::TheHeap::getInstance(false)->GetPool();
    bool pooled = block != nullptr && pool.Owns(block);
    _exit(pooled && pool.ChunkCount() == kConfiguredChunks ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  childDone = true;
  pthread_join(reader, nullptr);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(Quendal::Heap::TheHeap::getInstance(false)->GetPool().ChunkCount(), kConfiguredChunks);
}

}  // namespace
