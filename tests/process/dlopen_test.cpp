// The library loaded and unloaded at run time, as a plug-in host would: the
// termination routine runs at dlclose, and a second load starts from scratch.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string.h>

#include "support/allocated_bytes.h"

namespace {

struct Library {
  void* handle = nullptr;
  void* (*alloc)(size_t) = nullptr;
  void (*free)(void*) = nullptr;
  void* (*getInstance)() = nullptr;

  bool Open() {
    handle = dlopen(QUENDAL_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      return false;
    }
    alloc = reinterpret_cast<void* (*)(size_t)>(dlsym(handle, "QDHeapAlloc"));
    free = reinterpret_cast<void (*)(void*)>(dlsym(handle, "QDHeapFree"));
    // ExtraHeap::GetInstance()
    getInstance = reinterpret_cast<void* (*)()>(dlsym(handle, "_ZN9ExtraHeap11GetInstanceEv"));
    return alloc != nullptr && free != nullptr && getInstance != nullptr;
  }
};

bool IsLoaded() {
  void* handle = dlopen(QUENDAL_LIBRARY_PATH, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    dlclose(handle);
    return true;
  }
  return false;
}

TEST(DlopenTest, LoadUseUnloadAndLoadAgain) {
  // Each load takes a pool segment that nothing releases, by design.
  QuendalTest::LeaksIgnored segmentsStayAllocated;
  Library first;
  ASSERT_TRUE(first.Open()) << dlerror();
  EXPECT_EQ(first.getInstance(), nullptr);
  void* block = first.alloc(48);
  ASSERT_NE(block, nullptr);
  memset(block, 9, 48);
  EXPECT_NE(first.getInstance(), nullptr);
  first.free(block);
  ASSERT_EQ(dlclose(first.handle), 0);
  // Nothing pins the library: it is really gone.
  EXPECT_FALSE(IsLoaded());

  Library second;
  ASSERT_TRUE(second.Open()) << dlerror();
  // A fresh copy: lazy initialisation is armed again.
  EXPECT_EQ(second.getInstance(), nullptr);
  void* again = second.alloc(48);
  ASSERT_NE(again, nullptr);
  EXPECT_NE(second.getInstance(), nullptr);
  second.free(again);
  EXPECT_EQ(dlclose(second.handle), 0);
}

}  // namespace
