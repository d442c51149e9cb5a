// The heap's lock changing hands ten million times: two threads that take
// strict turns, so that every entry follows the other thread's.
#include <gtest/gtest.h>

#include <stdlib.h>

#include "heap/biased_lock_counting.h"

namespace {

using QuendalLockTest::CountWithThreads;

// Ten million changes where the lock runs at full speed. The sanitizers'
// and the emulated configurations check the same path at a fraction of
// its speed, and each entry there is a turn of two threads that wait for
// each other: they take a twentieth and a hundredth. Where the lock can
// give no bias (the target's choices, or no heavy fence) it is the lock
// underneath alone, which tests/platform checks as well: a tenth.
long TurnsOfEachThread() {
  long rounds = 5000000;
  if (!QuendalLockTest::BiasCanBeGiven()) {
    rounds /= 10;
  }
  if (getenv("QUENDAL_TEST_EMULATOR") != nullptr) {
    rounds /= 100;
  }
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  rounds /= 20;
#endif
  return rounds;
}

// Every entry changes the lock's holder and goes through its contended
// path: the heap's policy never biases a thread that gets no run of
// entries alone. A lost increment or a second thread inside fails the
// count; a missed turn fails the number of changes.
TEST(BiasedLockTurnsTest, TwoThreadsTakingStrictTurnsChangeHandsOnEveryEntry) {
  long rounds = TurnsOfEachThread();
  EXPECT_EQ(CountWithThreads(2, rounds, 64, 1 << 16, true), 2 * rounds);
}

}  // namespace
