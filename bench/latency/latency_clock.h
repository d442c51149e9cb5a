// The clock of the latency driver: the time-stamp counter on x86 (read with
// fences so that the call between two readings cannot leak out of them),
// converted to nanoseconds by a calibration against CLOCK_MONOTONIC_RAW;
// CLOCK_MONOTONIC_RAW itself elsewhere, in nanoseconds.
#ifndef QUENDAL_BENCH_LATENCY_CLOCK_H
#define QUENDAL_BENCH_LATENCY_CLOCK_H

#include <stdint.h>
#include <time.h>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#define QUENDAL_LATENCY_TSC 1
#endif

namespace QuendalLatency {

inline uint64_t MonotonicRawNanoseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC_RAW, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

#if defined(QUENDAL_LATENCY_TSC)

inline const char* ClockName() {
  return "rdtsc";
}

// The fence after the reading keeps the call from starting before it.
inline uint64_t StartTicks() {
  _mm_lfence();
  uint64_t ticks = __rdtsc();
  _mm_lfence();
  return ticks;
}

// rdtscp waits for everything before it to finish; the fence keeps what
// follows from starting first.
inline uint64_t StopTicks() {
  unsigned int processor = 0;
  uint64_t ticks = __rdtscp(&processor);
  _mm_lfence();
  return ticks;
}

#else

inline const char* ClockName() {
  return "clock_gettime(CLOCK_MONOTONIC_RAW)";
}

inline uint64_t StartTicks() {
  return MonotonicRawNanoseconds();
}

inline uint64_t StopTicks() {
  return MonotonicRawNanoseconds();
}

#endif

// Nanoseconds per tick, and the smallest reading of an empty interval,
// which every sample has taken off.
struct Clock {
  double nanosecondsPerTick;
  uint64_t overheadTicks;
};

// Counts ticks against CLOCK_MONOTONIC_RAW over about 50 ms, then takes the
// smallest of many empty intervals.
inline Clock CalibrateClock() {
  Clock clock;
#if defined(QUENDAL_LATENCY_TSC)
  uint64_t startNanoseconds = MonotonicRawNanoseconds();
  uint64_t startTicks = StartTicks();
  uint64_t nanoseconds = 0;
  do {
    nanoseconds = MonotonicRawNanoseconds() - startNanoseconds;
  } while (nanoseconds < 50000000u);
  uint64_t ticks = StopTicks() - startTicks;
  clock.nanosecondsPerTick = static_cast<double>(nanoseconds) / static_cast<double>(ticks);
#else
  clock.nanosecondsPerTick = 1.0;
#endif
  uint64_t smallest = ~static_cast<uint64_t>(0);
  for (int round = 0; round < 100000; ++round) {
    uint64_t start = StartTicks();
    uint64_t stop = StopTicks();
    if (stop - start < smallest) {
      smallest = stop - start;
    }
  }
  clock.overheadTicks = smallest;
  return clock;
}

}  // namespace QuendalLatency

#endif
