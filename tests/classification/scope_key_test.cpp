// The thread key of the current scope: created once, on demand, and deleted
// when its owner goes away. Every test runs in a process of its own, so no
// test finds the key already created.
#include <gtest/gtest.h>

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#include <optional>

#include "classification/current_scope.h"
#include "quendal/classification.h"

namespace {

using namespace Quendal::Classification;

// Another component's key, created before the library touches its own. Key
// numbers are handed out lowest first, so once it exists key 0 is in use
// (by it or by the test framework) and the library's own key cannot be 0,
// the value its key variable holds before the key is created.
class ForeignKey {
 public:
  ForeignKey() {
    EXPECT_EQ(0, pthread_key_create(&m_key, nullptr));
    EXPECT_EQ(0, pthread_setspecific(m_key, &m_value));
  }
  ~ForeignKey() { pthread_key_delete(m_key); }
  bool Untouched() const { return pthread_getspecific(m_key) == &m_value; }
  pthread_key_t Key() const { return m_key; }

 private:
  pthread_key_t m_key;
  int m_value = 0;
};

TEST(ScopeKey, GetIdBeforeAnyInitCreatesTheKeyOnDemand) {
  ForeignKey foreign;
  EXPECT_EQ(0u, currentScopeKey);
  EXPECT_EQ(nullptr, GetId());
  EXPECT_NE(0u, currentScopeKey);
  EXPECT_NE(foreign.Key(), currentScopeKey);
  EXPECT_TRUE(foreign.Untouched());
}

TEST(ScopeKey, ScopedIdBeforeAnyInitUsesTheLibrarysOwnKey) {
  ForeignKey foreign;
  {
    ScopedId scope(ModuleId("early"), 4, __FILE__, __LINE__);
    EXPECT_EQ(&scope, ScopedId::GetCurrent());
    EXPECT_NE(0u, currentScopeKey);
    EXPECT_EQ(&scope, pthread_getspecific(currentScopeKey));
    EXPECT_NE(foreign.Key(), currentScopeKey);
    EXPECT_TRUE(foreign.Untouched());
  }
  EXPECT_EQ(nullptr, ScopedId::GetCurrent());
  EXPECT_TRUE(foreign.Untouched());
}

TEST(ScopeKey, SetIdBeforeAnyInitUsesTheLibrarysOwnKey) {
  ForeignKey foreign;
  int stand_in = 0;
  const ScopedId* scope = reinterpret_cast<const ScopedId*>(&stand_in);
  SetId(scope);
  EXPECT_NE(0u, currentScopeKey);
  EXPECT_EQ(scope, pthread_getspecific(currentScopeKey));
  EXPECT_TRUE(foreign.Untouched());
  EXPECT_EQ(scope, GetId());
  SetId(nullptr);
}

TEST(ScopeKey, SecondInitChangesNothing) {
  Init();
  const pthread_key_t key = currentScopeKey;
  PthreadKeyInitialization* owner = &PthreadKeyInitialization::getPthreadKeyInitialization();
  ScopedId scope(ModuleId("kept"), 1, __FILE__, __LINE__);

  Init();
  EXPECT_EQ(key, currentScopeKey);
  EXPECT_EQ(owner, &PthreadKeyInitialization::getPthreadKeyInitialization());
  EXPECT_EQ(&scope, ScopedId::GetCurrent());
  EXPECT_EQ(&scope, pthread_getspecific(key));
}

TEST(ScopeKey, InitCreatesALiveKeyWithANullSlot) {
  Init();
  EXPECT_EQ(nullptr, pthread_getspecific(currentScopeKey));
  int value = 0;
  EXPECT_EQ(0, pthread_setspecific(currentScopeKey, &value));
  EXPECT_EQ(static_cast<const void*>(&value), GetId());
  SetId(nullptr);
}

TEST(ScopeKey, KeyOwnerDeletesTheKeyWhenDestroyed) {
  const pthread_key_t saved = currentScopeKey;
  std::optional<PthreadKeyInitialization> owner;
  owner.emplace();
  const pthread_key_t key = currentScopeKey;
  int value = 0;
  EXPECT_EQ(0, pthread_setspecific(key, &value));

  owner.reset();
  EXPECT_EQ(EINVAL, pthread_setspecific(key, &value));
  currentScopeKey = saved;
}

void ExitWithKeyState() {
  int value = 0;
  _exit(pthread_setspecific(currentScopeKey, &value) == EINVAL ? 3 : 4);
}

TEST(ScopeKeyDeathTest, KeyIsDeletedWhenTheProcessExits) {
  // Registered before the key's owner exists, so it runs after the owner's
  // exit-time destructor.
  EXPECT_EXIT(
      {
        atexit(&ExitWithKeyState);
        Init();
        exit(0);
      },
      ::testing::ExitedWithCode(3), "");
}

}  // namespace
