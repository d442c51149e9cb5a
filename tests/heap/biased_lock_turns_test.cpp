// The heap's lock changing hands ten million times: two threads that take
// strict turns, so that every entry follows the other thread's.
#include <gtest/gtest.h>

#include "heap/biased_lock_counting.h"

namespace {

using QuendalLockTest::CountWithThreads;
using QuendalLockTest::Scaled;

// Every entry changes the lock's holder and goes through its contended
// path: the heap's policy never biases a thread that gets no run of
// entries alone. A lost increment or a second thread inside fails the
// count; a missed turn fails the number of changes.
TEST(BiasedLockTurnsTest, TwoThreadsTakingStrictTurnsChangeHandsOnEveryEntry) {
  long rounds = Scaled(5000000);
  EXPECT_EQ(CountWithThreads(2, rounds, 64, 1 << 16, true), 2 * rounds);
}

}  // namespace
