// The pool's own invariant checker as a GoogleTest assertion, for tests to
// call after each step.
#ifndef QUENDAL_TESTS_HEAP_POOL_INVARIANTS_H
#define QUENDAL_TESTS_HEAP_POOL_INVARIANTS_H

#include <gtest/gtest.h>

#include "heap/pool_invariant_checker.h"

namespace QuendalTest {

template <class Pool>
::testing::AssertionResult PoolIsConsistent(const Pool& pool) {
  const char* problem = Quendal::Heap::CheckPoolInvariants(pool);
  if (problem != nullptr) {
    return ::testing::AssertionFailure() << problem;
  }
  return ::testing::AssertionSuccess();
}

}  // namespace QuendalTest

#endif
