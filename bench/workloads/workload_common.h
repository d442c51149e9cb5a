// Shared by the workload programs: option parsing, a seeded generator and the
// byte pattern a block carries between its allocation and its release. The
// programs use only the C and C++ allocators, so any malloc can run them.
#ifndef QUENDAL_BENCH_WORKLOADS_WORKLOAD_COMMON_H
#define QUENDAL_BENCH_WORKLOADS_WORKLOAD_COMMON_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

namespace QuendalWorkload {

// "--name value" pairs; every name must be one the program declared.
class Options {
 public:
  void Declare(const char* name, uint64_t default_value, const char* help) {
    values_[name] = default_value;
    help_[name] = help;
  }

  bool Parse(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
      std::string arg = argv[i];
      if (arg == "--help" || arg == "-h") {
        return false;
      }
      if (arg.compare(0, 2, "--") != 0 || i + 1 >= argc || values_.count(arg.substr(2)) == 0) {
        fprintf(stderr, "unknown or incomplete option: %s\n", argv[i]);
        return false;
      }
      char* end = nullptr;
      unsigned long long value = strtoull(argv[i + 1], &end, 10);
      if (end == argv[i + 1] || *end != '\0') {
        fprintf(stderr, "not a number for %s: %s\n", argv[i], argv[i + 1]);
        return false;
      }
      values_[arg.substr(2)] = value;
      ++i;
    }
    return true;
  }

  void PrintUsage(const char* program) const {
    fprintf(stderr, "usage: %s", program);
    for (const auto& entry : values_) {
      fprintf(stderr, " [--%s N]", entry.first.c_str());
    }
    fprintf(stderr, "\n");
    for (const auto& entry : values_) {
      fprintf(stderr, "  --%-10s %s (default %llu)\n", entry.first.c_str(),
              help_.at(entry.first).c_str(), static_cast<unsigned long long>(entry.second));
    }
  }

  uint64_t Get(const char* name) const { return values_.at(name); }

 private:
  std::map<std::string, uint64_t> values_;
  std::map<std::string, std::string> help_;
};

// splitmix64: every thread gets its own stream from its seed, so a run's
// sequence of sizes does not depend on how the threads interleave.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t Next() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }

  // Uniform enough in [low, high] for sizes and slot numbers.
  size_t Between(size_t low, size_t high) {
    return low + static_cast<size_t>(Next() % (high - low + 1));
  }

 private:
  uint64_t state_;
};

// What a thread did with its blocks, summed over the threads at the end.
struct BlockTally {
  uint64_t blocks = 0;
  uint64_t bytes = 0;
  uint64_t checksum = 0;
  uint64_t corrupt = 0;
  uint64_t failed = 0;

  void Add(const BlockTally& other) {
    blocks += other.blocks;
    bytes += other.bytes;
    checksum += other.checksum;
    corrupt += other.corrupt;
    failed += other.failed;
  }
};

// Runs work(t, &counts[t]) on a thread of its own for each t below threads
// and returns the counts summed by Counts::Add.
template <class Counts, class Work>
Counts RunOnThreads(size_t threads, Work work) {
  std::vector<Counts> counts(threads);
  std::vector<std::thread> workers;
  for (size_t t = 0; t < threads; ++t) {
    workers.emplace_back(work, t, &counts[t]);
  }
  for (std::thread& worker : workers) {
    worker.join();
  }
  Counts total;
  for (const Counts& c : counts) {
    total.Add(c);
  }
  return total;
}

// Prints the summed tally of a workload's threads as its one line of
// output (blocks counted as "allocations") and returns the exit status:
// 0 unless a block was corrupt or an allocation failed.
inline int ReportTally(const char* workload, size_t threads, const BlockTally& total) {
  printf("%s threads=%zu allocations=%llu bytes=%llu checksum=%016llx corrupt=%llu\n", workload,
         threads, static_cast<unsigned long long>(total.blocks),
         static_cast<unsigned long long>(total.bytes),
         static_cast<unsigned long long>(total.checksum),
         static_cast<unsigned long long>(total.corrupt));
  if (total.failed != 0) {
    fprintf(stderr, "%llu allocations failed\n", static_cast<unsigned long long>(total.failed));
  }
  return total.corrupt == 0 && total.failed == 0 ? 0 : 1;
}

inline uint64_t MixSeed(uint64_t a, uint64_t b) {
  Random random(a * 0x100000001b3ULL ^ (b + 0x51ed270b27ULL));
  return random.Next();
}

// The byte at offset i of a block tagged with tag: a block that another
// block's writes overlapped, or that the allocator handed out twice, fails
// its check.
inline unsigned char PatternByte(uint64_t tag, size_t i) {
  return static_cast<unsigned char>((tag >> ((i % 8) * 8)) + i * 131);
}

inline void FillPattern(void* block, size_t size, uint64_t tag) {
  unsigned char* bytes = static_cast<unsigned char*>(block);
  for (size_t i = 0; i < size; ++i) {
    bytes[i] = PatternByte(tag, i);
  }
}

// True when the block still holds its pattern; adds its bytes to checksum.
inline bool CheckPattern(const void* block, size_t size, uint64_t tag, uint64_t* checksum) {
  const unsigned char* bytes = static_cast<const unsigned char*>(block);
  bool intact = true;
  uint64_t sum = 0;
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i] != PatternByte(tag, i)) {
      intact = false;
    }
    sum = sum * 31 + bytes[i];
  }
  *checksum += sum;
  return intact;
}

}  // namespace QuendalWorkload

#endif
