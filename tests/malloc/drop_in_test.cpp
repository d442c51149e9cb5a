// The drop-in as a C++ program sees it: every form of operator new and
// delete on the pool, bad_alloc and the new-handler, the library's own
// structures off the pool, the ".mem" file beside the executable, fork and
// threads, and the statistics written at exit.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <malloc.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "quendal/classification.h"
#include "quendal/config_file_reader.h"
#include "quendal/heap.h"
#include "quendal/heap_owns.h"
#include "quendal/heap_stats.h"
#include "support/run_program.h"
#include "support/temp_dir.h"

namespace {

// Volatile, so that the compiler does not refuse the calls that ask for it.
volatile size_t hugeSize = SIZE_MAX / 2 + 1;

size_t HugeSize() {
  return hugeSize;
}

uint64_t BlocksInUse() {
  QDHeapStats stats;
  stats.size = sizeof(stats);
  EXPECT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  uint64_t blocks = 0;
  for (uint32_t i = 0; i < stats.classCount; ++i) {
    blocks += stats.classes[i].usedBlocks;
  }
  return blocks;
}

TEST(DropIn, NewOfZeroBytesIsABlockOfItsOwn) {
  char* first = new char[0];
  char* second = static_cast<char*>(::operator new(0));
  EXPECT_NE(first, nullptr);
  EXPECT_NE(second, nullptr);
  EXPECT_NE(static_cast<void*>(first), static_cast<void*>(second));
  EXPECT_TRUE(QDHeapOwns(first));
  delete[] first;
  ::operator delete(second);
}

TEST(DropIn, NewThrowsBadAllocWhenNoBlockCanBeHad) {
  EXPECT_THROW((void)::operator new(HugeSize()), std::bad_alloc);
  EXPECT_THROW((void)::operator new[](HugeSize()), std::bad_alloc);
  EXPECT_THROW((void)::operator new(HugeSize(), std::align_val_t(64)), std::bad_alloc);
}

int handlerCalls = 0;

void HandlerThatGivesUp() {
  ++handlerCalls;
  if (handlerCalls == 2) {
    std::set_new_handler(nullptr);
  }
}

TEST(DropIn, NewHandlerRunsUntilItGivesUp) {
  std::set_new_handler(HandlerThatGivesUp);
  EXPECT_THROW((void)::operator new(HugeSize()), std::bad_alloc);
  EXPECT_EQ(handlerCalls, 2);
}

void HandlerThatThrows() {
  ++handlerCalls;
  throw std::bad_alloc();
}

TEST(DropIn, NothrowNewReturnsNullAlsoWhenTheHandlerThrows) {
  EXPECT_EQ(::operator new(HugeSize(), std::nothrow), nullptr);
  EXPECT_EQ(::operator new[](HugeSize(), std::nothrow), nullptr);
  EXPECT_EQ(::operator new(HugeSize(), std::align_val_t(32), std::nothrow), nullptr);
  std::set_new_handler(HandlerThatThrows);
  EXPECT_EQ(::operator new(HugeSize(), std::nothrow), nullptr);
  EXPECT_EQ(handlerCalls, 1);
  std::set_new_handler(nullptr);
}

template <size_t kAlignment>
struct alignas(kAlignment) Aligned {
  unsigned char bytes[kAlignment];
};

template <size_t kAlignment>
void ExpectAlignedNew() {
  auto* single = new Aligned<kAlignment>;
  auto* array = new Aligned<kAlignment>[3];
  auto* nothrow = new (std::nothrow) Aligned<kAlignment>;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(single) % kAlignment, 0u) << kAlignment;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(array) % kAlignment, 0u) << kAlignment;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(nothrow) % kAlignment, 0u) << kAlignment;
  single->bytes[kAlignment - 1] = 1;
  array[2].bytes[kAlignment - 1] = 1;
  delete single;
  delete[] array;
  delete nothrow;
}

TEST(DropIn, AlignedNewServesEveryAlignment) {
  ExpectAlignedNew<8>();
  ExpectAlignedNew<16>();
  ExpectAlignedNew<32>();
  ExpectAlignedNew<64>();
  ExpectAlignedNew<256>();
  ExpectAlignedNew<4096>();
}

struct Small {
  long values[3];
};

TEST(DropIn, SizedDeleteGivesTheBlockBackToThePool) {
  Small* first = new Small();
  EXPECT_TRUE(QDHeapOwns(first));
  delete first;  // sized: operator delete(void*, size_t)
  Small* again = new Small();
  EXPECT_EQ(again, first);
  ::operator delete(again, sizeof(Small));
  EXPECT_EQ(new Small(), first);
}

TEST(DropIn, TheProgramsContainersLiveOnThePool) {
  std::string text(100, 'x');
  std::vector<int> numbers(10, 7);
  std::map<int, int> map;
  map[1] = 2;
  EXPECT_TRUE(QDHeapOwns(text.data()));
  EXPECT_TRUE(QDHeapOwns(numbers.data()));
  EXPECT_TRUE(QDHeapOwns(&*map.begin()));
  std::string large(5000, 'y');
  EXPECT_FALSE(QDHeapOwns(large.data()));
}

// The registry's names and map nodes, the module-name log's copies and the
// module limits read from the ".mem" file are the library's own: none of
// them takes a block of the pool.
TEST(DropIn, TheLibrarysOwnStructuresStayOffThePool) {
  QDHeapInit();
  const uint64_t before = BlocksInUse();
  for (int i = 0; i < 300; ++i) {
    std::ostringstream name;
    name << "a module name longer than any short string " << i;
    const std::string text = name.str();
    Quendal::Classification::ScopedId scope(Quendal::Classification::ModuleId(text.c_str()), 1,
                                            __FILE__, __LINE__);
  }
  EXPECT_EQ(BlocksInUse(), before);
  ASSERT_FALSE(getModuleLimits().empty());
  for (const auto& limit : getModuleLimits()) {
    EXPECT_FALSE(QDHeapOwns(limit.first)) << limit.first;
  }
}

// The build writes CHUNKS 1200 into the ".mem" beside this executable.
TEST(DropIn, TheMemFileBesideTheExecutableSizesThePool) {
  QDHeapStats stats;
  stats.size = sizeof(stats);
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.chunkCount, 1200u);
  unsigned long limit = 0;
  EXPECT_TRUE(ConfigFileReader::GetConfigModuleLimit(getModuleLimits().begin()->first, limit));
  EXPECT_EQ(limit, 4096u);
}

uint64_t LargeRequests() {
  QDHeapStats stats;
  stats.size = sizeof(stats);
  EXPECT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  return stats.largeRequests;
}

// The drop-in serves requests above the classes (1024 bytes here) from the
// C library itself; the statistics count every one of them as before, from
// any thread, and the blocks stay off the pool.
TEST(DropIn, RequestsAboveTheClassesAreCountedAndStayOffThePool) {
  free(malloc(16));
  const uint64_t before = LargeRequests();
  void* pooled = malloc(1024);
  EXPECT_TRUE(QDHeapOwns(pooled));
  free(pooled);
  EXPECT_EQ(LargeRequests(), before);
  const size_t sizes[] = {1025, 4096, 100000};
  for (size_t size : sizes) {
    void* block = malloc(size);
    unsigned char* cleared = static_cast<unsigned char*>(calloc(1, size));
    char* array = new char[size];
    void* heapBlock = QDHeapAlloc(size);
    ASSERT_NE(block, nullptr);
    ASSERT_NE(cleared, nullptr);
    ASSERT_NE(heapBlock, nullptr);
    EXPECT_FALSE(QDHeapOwns(block));
    EXPECT_FALSE(QDHeapOwns(cleared));
    EXPECT_FALSE(QDHeapOwns(array));
    EXPECT_FALSE(QDHeapOwns(heapBlock));
    EXPECT_GE(malloc_usable_size(block), size);
    for (size_t i = 0; i < size; ++i) {
      ASSERT_EQ(cleared[i], 0) << i;
    }
    free(block);
    free(cleared);
    delete[] array;
    QDHeapFree(heapBlock);
  }
  EXPECT_EQ(LargeRequests(), before + 4 * (sizeof(sizes) / sizeof(sizes[0])));
  const int kThreads = 4;
  const int kRounds = 2000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([] {
      for (int round = 0; round < kRounds; ++round) {
        // Through a volatile pointer: the pair must not be elided.
        void* volatile block = malloc(static_cast<size_t>(2000 + round % 64));
        free(block);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(LargeRequests(), before + 12 + static_cast<uint64_t>(kThreads) * kRounds);
}

TEST(DropIn, ThreadsReleaseBlocksOfOtherThreads) {
  const int kBlocks = 20000;
  std::vector<std::string*> blocks(kBlocks);
  std::thread producer([&] {
    for (int i = 0; i < kBlocks; ++i) {
      blocks[i] =
          new std::string(static_cast<size_t>(16 + i % 200), static_cast<char>('a' + i % 26));
    }
  });
  producer.join();
  std::thread consumer([&] {
    for (int i = 0; i < kBlocks; ++i) {
      EXPECT_EQ(blocks[i]->size(), static_cast<size_t>(16 + i % 200));
      EXPECT_EQ((*blocks[i])[0], static_cast<char>('a' + i % 26));
      delete blocks[i];
    }
  });
  consumer.join();
}

TEST(DropIn, ChildrenForkedBesideAllocatingThreadsAllocate) {
  std::atomic<bool> stop(false);
  auto churn = [&stop] {
    while (!stop.load()) {
      std::vector<std::string> strings;
      for (int i = 0; i < 64; ++i) {
        strings.emplace_back(static_cast<size_t>(24 + i), 'z');
      }
      free(malloc(3000));
    }
  };
  std::thread first(churn);
  std::thread second(churn);
  int failedChildren = 0;
  for (int fork_index = 0; fork_index < 100; ++fork_index) {
    pid_t child = fork();
    if (child == 0) {
      std::string* text = new std::string(40, 'c');
      void* large = malloc(5000);
      const bool ok = QDHeapOwns(text) && large != nullptr;
      delete text;
      free(large);
      _exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      ++failedChildren;
    }
  }
  stop = true;
  first.join();
  second.join();
  EXPECT_EQ(failedChildren, 0);
}

// A library whose statics allocate when it is loaded and release when it is
// unloaded; a block it handed out outlives it.
TEST(DropIn, UnloadedLibrariesReleaseTheirBlocks) {
  for (int round = 0; round < 3; ++round) {
    void* library = dlopen(QUENDAL_UNLOADABLE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto makeText = reinterpret_cast<std::string* (*)(int)>(dlsym(library, "MakeText"));
    auto tableSize = reinterpret_cast<size_t (*)()>(dlsym(library, "TableSize"));
    ASSERT_NE(makeText, nullptr);
    ASSERT_NE(tableSize, nullptr);
    EXPECT_EQ(tableSize(), 200u);
    std::string* text = makeText(50);
    EXPECT_TRUE(QDHeapOwns(text));
    EXPECT_TRUE(QDHeapOwns(text->data()));
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(*text, std::string(50, 'u'));
    delete text;
  }
}

// QUENDAL_MALLOC_STATS names a file per process ("%p" is the process id);
// the C program writes its statistics there when it ends.
TEST(DropIn, StatisticsAreWrittenAtExitWhenAsked) {
  QuendalTest::TempDir dir;
  const std::string pattern = (dir.path() / "stats.%p").string();
  ASSERT_EQ(setenv("QUENDAL_MALLOC_STATS", pattern.c_str(), 1), 0);
  QuendalTest::ProgramResult result =
      QuendalTest::RunProgram(QUENDAL_DROP_IN_C_PROGRAM, {"malloc_zero"});
  unsetenv("QUENDAL_MALLOC_STATS");
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(result.exitCode, 0);
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    files.push_back(entry.path().filename().string());
  }
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0].rfind("stats.", 0), 0u);
  EXPECT_GT(atoi(files[0].c_str() + 6), 0);
  std::ifstream stream(dir.path() / files[0]);
  std::stringstream text;
  text << stream.rdbuf();
  EXPECT_NE(text.str().find("libQuendal heap statistics\n"), std::string::npos) << text.str();
  EXPECT_NE(text.str().find(" would have held the peak of this run\n"), std::string::npos);
}

// A ".mem" past the pool's limit gives a pool of one chunk or none, and
// the statistics at exit name the CHUNKS value as the cause. The segment
// request of 2 GiB and more may be granted (only its first chunk is
// touched) or refused; the line says so either way.
TEST(DropIn, StatisticsAtExitSayThatChunksIsAboveThePoolsLimit) {
  QDHeapStats stats;
  stats.size = sizeof(stats);
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  const uint32_t limit = 0x80000000u / stats.chunkSize;
  QuendalTest::TempDir dir;
  const std::filesystem::path program = dir.path() / "preloaded.bin";
  QuendalTest::CopyExecutable(QUENDAL_PRELOADED_PROGRAM, program);
  QuendalTest::WriteFile(dir.path() / "preloaded.mem", "CHUNKS " + std::to_string(limit + 1) +
                                                           "  CHUNK_SIZE 2048 SEG_SIZE 1024\n");
  const std::filesystem::path statsFile = dir.path() / "stats.txt";
  ASSERT_EQ(setenv("QUENDAL_MALLOC_STATS", statsFile.c_str(), 1), 0);
  QuendalTest::RunOptions options;
  options.preload = QUENDAL_DROP_IN_LIBRARY;
  QuendalTest::ProgramResult result = QuendalTest::RunProgram(program.string(), {}, options);
  unsetenv("QUENDAL_MALLOC_STATS");
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, "chunks " + std::to_string(limit + 1) + "\n");
  std::ifstream stream(statsFile);
  std::stringstream text;
  text << stream.rdbuf();
  EXPECT_NE(text.str().find("; CHUNKS is above the pool's limit of " + std::to_string(limit) +
                            " chunks\nfree chunks:"),
            std::string::npos)
      << text.str();
}

// The pool keeps the small blocks away from the C library's heap, so
// nothing pins its top: the drop-in has it keep large blocks in the heap and
// their memory at its top once released, where glibc on its own maps such a
// block and unmaps it when it is freed.
TEST(DropIn, TheCLibraryKeepsTheMemoryOfAReleasedLargeBlock) {
#ifndef QUENDAL_DROP_IN_TUNES_C_LIBRARY
  GTEST_SKIP()
      << "the drop-in over the C library's next definitions (the target's way) leaves the C "
         "library's heap settings alone";
#endif
  QuendalTest::RunOptions options;
  options.preload = QUENDAL_DROP_IN_LIBRARY;
  QuendalTest::ProgramResult dropIn =
      QuendalTest::RunProgram(QUENDAL_LARGE_BLOCK_PROGRAM, {}, options);
  ASSERT_TRUE(dropIn.exited);
  EXPECT_EQ(dropIn.exitCode, 0);
  EXPECT_EQ(dropIn.output, "kept\n");
  QuendalTest::ProgramResult plain = QuendalTest::RunProgram(QUENDAL_LARGE_BLOCK_PROGRAM, {});
  ASSERT_TRUE(plain.exited);
  EXPECT_EQ(plain.output, "returned\n");
}

// A user's own settings of the C library's allocator stay in force.
TEST(DropIn, TheUsersSettingsOfTheCLibrarysHeapStay) {
  QuendalTest::RunOptions options;
  options.preload = QUENDAL_DROP_IN_LIBRARY;
  ASSERT_EQ(setenv("GLIBC_TUNABLES", "glibc.malloc.mmap_threshold=131072", 1), 0);
  QuendalTest::ProgramResult tunable =
      QuendalTest::RunProgram(QUENDAL_LARGE_BLOCK_PROGRAM, {}, options);
  unsetenv("GLIBC_TUNABLES");
  ASSERT_TRUE(tunable.exited);
  EXPECT_EQ(tunable.output, "returned\n");
  ASSERT_EQ(setenv("MALLOC_TRIM_THRESHOLD_", "131072", 1), 0);
  QuendalTest::ProgramResult variable =
      QuendalTest::RunProgram(QUENDAL_LARGE_BLOCK_PROGRAM, {}, options);
  unsetenv("MALLOC_TRIM_THRESHOLD_");
  ASSERT_TRUE(variable.exited);
  EXPECT_EQ(variable.output, "returned\n");
}

// The first malloc of a program that preloads the drop-in reads the ".mem"
// beside it before main. A FIFO under that name, which nobody writes to,
// must count as no file instead of blocking the program for ever.
TEST(DropIn, FifoBesideAPreloadedProgramDoesNotHangIt) {
  // Generous: the program runs well under a second, emulated or not.
  const unsigned kWatchdogSeconds = 60;
  QuendalTest::TempDir dir;
  const std::filesystem::path program = dir.path() / "preloaded.bin";
  const std::filesystem::path mem = dir.path() / "preloaded.mem";
  QuendalTest::CopyExecutable(QUENDAL_PRELOADED_PROGRAM, program);
  QuendalTest::RunOptions options;
  options.preload = QUENDAL_DROP_IN_LIBRARY;
  options.watchdogSeconds = kWatchdogSeconds;

  // A regular file is read: the run can tell the file's chunks from the default.
  QuendalTest::WriteFile(mem, "CHUNKS 777  CHUNK_SIZE 2048 SEG_SIZE 1024\n");
  QuendalTest::ProgramResult regular = QuendalTest::RunProgram(program.string(), {}, options);
  ASSERT_FALSE(regular.timedOut);
  ASSERT_EQ(regular.output, "chunks 777\n");

  std::filesystem::remove(mem);
  ASSERT_EQ(mkfifo(mem.c_str(), 0644), 0);
  QuendalTest::ProgramResult fifo = QuendalTest::RunProgram(program.string(), {}, options);
  EXPECT_FALSE(fifo.timedOut) << "the program was still running after " << kWatchdogSeconds
                              << " seconds and was killed";
  EXPECT_TRUE(fifo.exited);
  EXPECT_EQ(fifo.exitCode, 0);
  EXPECT_EQ(fifo.output, "chunks 650\n");
}

}  // namespace
