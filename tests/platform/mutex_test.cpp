// The kinds of mutex the library creates, and its thread keys.
#include <gtest/gtest.h>

#include <errno.h>
#include <pthread.h>

#include "platform/mutex.h"
#include "platform/thread_key.h"

namespace {

using namespace Quendal::Platform;

int TypeOf(MutexKind kind) {
  pthread_mutex_t mutex;
  InitMutex(&mutex, kind);
  // A second lock on the same thread tells the kinds apart without blocking.
  LockMutex(&mutex);
  int second = pthread_mutex_trylock(&mutex);
  if (second == 0) {
    UnlockMutex(&mutex);
  }
  UnlockMutex(&mutex);
  DestroyMutex(&mutex);
  return second;
}

TEST(PlatformMutex, RecursiveKindCanBeTakenTwiceOnOneThread) {
  EXPECT_EQ(TypeOf(kRecursiveMutex), 0);
}

TEST(PlatformMutex, PlainKindIsNotRecursive) {
  EXPECT_EQ(TypeOf(kPlainMutex), EBUSY);
}

TEST(PlatformMutex, NormalKindIsNotRecursive) {
  EXPECT_EQ(TypeOf(kNormalMutex), EBUSY);
}

struct KeyProbe {
  ThreadKey key;
  void* seen;
};

void* ReadKeyOnThisThread(void* argument) {
  KeyProbe* probe = static_cast<KeyProbe*>(argument);
  probe->seen = GetThreadValue(probe->key);
  return nullptr;
}

TEST(PlatformThreadKey, ValueIsPerThread) {
  KeyProbe probe;
  CreateThreadKey(&probe.key);
  int here = 1;
  SetThreadValue(probe.key, &here);
  probe.seen = &here;
  pthread_t other;
  ASSERT_EQ(pthread_create(&other, nullptr, ReadKeyOnThisThread, &probe), 0);
  pthread_join(other, nullptr);
  EXPECT_EQ(probe.seen, nullptr);
  EXPECT_EQ(GetThreadValue(probe.key), &here);
  DeleteThreadKey(probe.key);
}

}  // namespace
