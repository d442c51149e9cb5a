// The registry's lock: held while the new-id callback runs, not recursive,
// and released on every way out of a look-up.
#include <gtest/gtest.h>

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <stdexcept>

#include "quendal/classification.h"

namespace {

using namespace Quendal::Classification;

// The lock is the registry's first field, and the mutex is Mutex's only one.
static_assert(sizeof(Mutex) == sizeof(pthread_mutex_t));
pthread_mutex_t* RegistryLock() {
  return reinterpret_cast<pthread_mutex_t*>(&getmoduleRegistry());
}

int g_trylockInCallback = -1;

void TryLockFromCallback(const char*, unsigned short) {
  g_trylockInCallback = pthread_mutex_trylock(RegistryLock());
  if (g_trylockInCallback == 0) {
    pthread_mutex_unlock(RegistryLock());
  }
}

TEST(ModuleRegistryLock, CallbackRunsWithTheLockHeldAndTheLockIsNotRecursive) {
  SetNewIdCallback(&TryLockFromCallback);
  EXPECT_EQ(1, LookUpModuleId("locked"));
  SetNewIdCallback(nullptr);

  // A recursive mutex would let its owner take it again.
  EXPECT_EQ(EBUSY, g_trylockInCallback);
  ASSERT_EQ(0, pthread_mutex_trylock(RegistryLock()));
  pthread_mutex_unlock(RegistryLock());
}

void LookUpAgainFromCallback(const char* name, unsigned short) {
  fprintf(stderr, "callback entered\n");
  LookUpModuleId(name);
  fprintf(stderr, "callback returned\n");
  _exit(0);
}

TEST(ModuleRegistryLockDeathTest, CallbackThatCallsLookUpModuleIdDeadlocks) {
  // The child never comes back from the nested look-up; the alarm ends it.
  EXPECT_EXIT(
      {
        alarm(2);
        SetNewIdCallback(&LookUpAgainFromCallback);
        LookUpModuleId("reentrant");
        _exit(0);
      },
      ::testing::KilledBySignal(SIGALRM), "callback entered");
}

void ThrowFromCallback(const char*, unsigned short) {
  throw std::runtime_error("callback");
}

TEST(ModuleRegistryLock, ExceptionFromCallbackReleasesTheLockAndKeepsTheName) {
  SetNewIdCallback(&ThrowFromCallback);
  EXPECT_THROW(LookUpModuleId("thrower"), std::runtime_error);
  SetNewIdCallback(nullptr);

  ASSERT_EQ(0, pthread_mutex_trylock(RegistryLock()));
  pthread_mutex_unlock(RegistryLock());
  EXPECT_EQ(1, LookUpModuleId("thrower"));
  EXPECT_STREQ("thrower", LookUpModuleName(1));
  EXPECT_EQ(2, LookUpModuleId("next"));
}

TEST(ModuleRegistryLock, LookUpsLeaveTheLockFree) {
  LookUpModuleId("a");
  LookUpModuleId("a");
  LookUpModuleName(1);
  LookUpModuleName(7);
  LookUpModuleId(nullptr);
  ASSERT_EQ(0, pthread_mutex_trylock(RegistryLock()));
  pthread_mutex_unlock(RegistryLock());
}

}  // namespace
