// The release window alone: which addresses it takes and the chunk it finds
// for them, and the class index a request maps to.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "heap/release_window.h"
#include "heap/size_class.h"

namespace {

using Quendal::Heap::ChunkAt;
using Quendal::Heap::ClassIndex;
using Quendal::Heap::ClassIndexOfRequest;
using Quendal::Heap::ClassSize;
using Quendal::Heap::ReleaseWindow;

const void* Address(uintptr_t address) {
  return reinterpret_cast<const void*>(address);
}

TEST(ReleaseWindowTest, AClosedWindowTakesNoAddress) {
  ReleaseWindow window;
  EXPECT_FALSE(window.Contains(Address(0)));
  EXPECT_FALSE(window.Contains(Address(0x10000)));
  window.Open(0x10000, 0x10000, ~static_cast<uintptr_t>(0x7FF));
  EXPECT_FALSE(window.Contains(Address(0x10000)));
  window.Open(0x10000, 0x11000, ~static_cast<uintptr_t>(0x7FF));
  window.Close();
  EXPECT_FALSE(window.Contains(Address(0x10000)));
}

TEST(ReleaseWindowTest, TakesExactlyTheAddressesOfItsChunks) {
  ReleaseWindow window;
  window.Open(0x10000, 0x11000, ~static_cast<uintptr_t>(0x7FF));
  EXPECT_FALSE(window.Contains(Address(0xFFFF)));
  EXPECT_TRUE(window.Contains(Address(0x10000)));
  EXPECT_TRUE(window.Contains(Address(0x10FFF)));
  EXPECT_FALSE(window.Contains(Address(0x11000)));
  // Far below the base, the subtraction wraps to a large offset.
  EXPECT_FALSE(window.Contains(Address(0x10)));
}

TEST(ReleaseWindowTest, FindsTheChunkByItsMask) {
  ReleaseWindow window;
  window.Open(0x10000, 0x11000, ~static_cast<uintptr_t>(0x7FF));
  EXPECT_EQ(window.ChunkOf(Address(0x10000)), ChunkAt(0x10000));
  EXPECT_EQ(window.ChunkOf(Address(0x107FF)), ChunkAt(0x10000));
  EXPECT_EQ(window.ChunkOf(Address(0x10800)), ChunkAt(0x10800));
  EXPECT_EQ(window.ChunkOf(Address(0x10FF8)), ChunkAt(0x10800));
}

TEST(ReleaseWindowTest, ARequestsClassIndexIsTheIndexOfItsClassSize) {
  for (size_t size = 1; size <= 4096; ++size) {
    ASSERT_EQ(ClassIndexOfRequest(size), ClassIndex(ClassSize(size))) << size;
  }
  EXPECT_EQ(ClassIndexOfRequest(1), 0u);
  EXPECT_EQ(ClassIndexOfRequest(8), 0u);
  EXPECT_EQ(ClassIndexOfRequest(9), 1u);
  EXPECT_EQ(ClassIndexOfRequest(1024), 127u);
}

}  // namespace
