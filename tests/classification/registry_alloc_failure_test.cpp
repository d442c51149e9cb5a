// Look-ups when memory for a name cannot be obtained: a new name gets 0,
// nothing is registered, no callback runs and the lock is free again; a known
// name keeps its id.
#include <gtest/gtest.h>

#include <pthread.h>
#include <stdlib.h>

#include <new>
#include <string>
#include <vector>

#include "quendal/classification.h"

namespace {

// Counts down the allocations still allowed to succeed; 0 means no failure
// is armed. Only the test's own thread arms it, right around one look-up.
int g_allocationsBeforeFailure = 0;
// While set, every allocation fails.
bool g_failEveryAllocation = false;
bool g_failureInjected = false;

void ArmFailureAt(int allocation) {
  g_failureInjected = false;
  g_allocationsBeforeFailure = allocation;
}

void ArmFailureOfEveryAllocation() {
  g_failureInjected = false;
  g_failEveryAllocation = true;
}

bool Disarm() {
  g_allocationsBeforeFailure = 0;
  g_failEveryAllocation = false;
  return g_failureInjected;
}

}  // namespace

void* operator new(std::size_t size) {
  if (g_failEveryAllocation ||
      (g_allocationsBeforeFailure > 0 && --g_allocationsBeforeFailure == 0)) {
    g_failureInjected = true;
    throw std::bad_alloc();
  }
  void* memory = malloc(size == 0 ? 1 : size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void operator delete(void* memory) noexcept {
  free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  free(memory);
}

namespace {

using namespace Quendal::Classification;

// Records without allocating, so that no injected failure lands in it.
int g_callbackCount = 0;
unsigned short g_lastCallbackId = 0;

void CountNewId(const char*, unsigned short id) {
  ++g_callbackCount;
  g_lastCallbackId = id;
}

class RegistryAllocationFailureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_callbackCount = 0;
    SetNewIdCallback(&CountNewId);
  }
  void TearDown() override { SetNewIdCallback(nullptr); }
};

// Longer than any short-string buffer, so copying it allocates.
const char kLongName[] = "a module name long enough to need heap storage";

void ExpectLockFree() {
  pthread_mutex_t* lock = reinterpret_cast<pthread_mutex_t*>(&getmoduleRegistry());
  ASSERT_EQ(0, pthread_mutex_trylock(lock));
  pthread_mutex_unlock(lock);
}

TEST_F(RegistryAllocationFailureTest, FailedCopyOfTheNameGivesZeroAndRegistersNothing) {
  getmoduleRegistry();
  ArmFailureAt(1);
  EXPECT_EQ(0, LookUpModuleId(kLongName));
  ASSERT_TRUE(Disarm());

  EXPECT_EQ(0, g_callbackCount);
  EXPECT_EQ(nullptr, LookUpModuleName(1));
  ExpectLockFree();
  EXPECT_EQ(1, LookUpModuleId(kLongName));
  EXPECT_EQ(1, g_callbackCount);
  EXPECT_EQ(1, g_lastCallbackId);
}

TEST_F(RegistryAllocationFailureTest, FailedInsertionGivesZeroAndRegistersNothing) {
  getmoduleRegistry();
  // Allocation 1 copies the name; the ones after it build the map's entry.
  // Each is made to fail in turn until a look-up needs no more of them.
  int allocation = 2;
  for (; allocation < 20; ++allocation) {
    ArmFailureAt(allocation);
    const unsigned short id = LookUpModuleId(kLongName);
    if (!Disarm()) {
      EXPECT_EQ(1, id);
      break;
    }
    EXPECT_EQ(0, id) << "allocation " << allocation;
    EXPECT_EQ(nullptr, LookUpModuleName(1));
    EXPECT_EQ(0, g_callbackCount);
    ExpectLockFree();
  }
  // At least the entry's node had to be allocated.
  EXPECT_GT(allocation, 2);
  EXPECT_LT(allocation, 20);

  EXPECT_EQ(1, LookUpModuleId(kLongName));
  EXPECT_STREQ(kLongName, LookUpModuleName(1));
  EXPECT_EQ(1, g_callbackCount);
  EXPECT_EQ(1, g_lastCallbackId);
}

TEST_F(RegistryAllocationFailureTest, FailedEntryForAShortNameGivesZeroAndTheNextNameStillGetsOne) {
  getmoduleRegistry();
  ArmFailureAt(1);
  EXPECT_EQ(0, LookUpModuleId("io"));
  ASSERT_TRUE(Disarm());

  EXPECT_EQ(0, g_callbackCount);
  EXPECT_EQ(1, LookUpModuleId("fs"));
  EXPECT_EQ(2, LookUpModuleId("io"));
}

TEST_F(RegistryAllocationFailureTest, KnownNameKeepsItsIdWhenEveryAllocationFails) {
  EXPECT_EQ(1, LookUpModuleId(kLongName));
  EXPECT_EQ(2, LookUpModuleId("io"));
  ArmFailureOfEveryAllocation();
  const unsigned short longId = LookUpModuleId(kLongName);
  const unsigned short shortId = ModuleId("io").m_id;
  const unsigned short newId = LookUpModuleId("a new module name, too long for a short string");
  // The copy of the name was still attempted.
  ASSERT_TRUE(Disarm());

  EXPECT_EQ(1, longId);
  EXPECT_EQ(2, shortId);
  EXPECT_EQ(0, newId);
  ExpectLockFree();
  EXPECT_EQ(2, g_callbackCount);
  EXPECT_EQ(nullptr, LookUpModuleName(3));
  EXPECT_EQ(3, LookUpModuleId("fs"));
}

// The known name is found among many in name order, whichever order they
// were registered in.
TEST_F(RegistryAllocationFailureTest, EveryKnownNameOfManyKeepsItsIdWhenEveryAllocationFails) {
  const int kNames = 40;
  std::vector<std::string> names;
  for (int n = 0; n < kNames; ++n) {
    // Descending numbers, so that registration order is the reverse of name
    // order.
    names.push_back("a module name long enough to need heap storage " + std::to_string(1000 - n));
    ASSERT_EQ(n + 1, LookUpModuleId(names.back().c_str()));
  }
  const std::string unknownBetween = names[10] + "5";
  std::vector<unsigned short> ids(kNames);
  ArmFailureOfEveryAllocation();
  for (int n = 0; n < kNames; ++n) {
    ids[n] = LookUpModuleId(names[n].c_str());
  }
  const unsigned short unknownId = LookUpModuleId(unknownBetween.c_str());
  const unsigned short prefixId = LookUpModuleId(kLongName);
  ASSERT_TRUE(Disarm());

  for (int n = 0; n < kNames; ++n) {
    EXPECT_EQ(n + 1, ids[n]) << names[n];
  }
  EXPECT_EQ(0, unknownId);
  EXPECT_EQ(0, prefixId);
  EXPECT_EQ(kNames, g_callbackCount);
  ExpectLockFree();
}

}  // namespace
