// The calling thread's current module scope, set and restored by ScopedId.
#include <gtest/gtest.h>

#include <memory>

#include "quendal/classification.h"

namespace {

using namespace Quendal::Classification;

TEST(ScopedId, ThreadWithoutScopeHasNullCurrentScope) {
  Init();
  EXPECT_EQ(nullptr, ScopedId::GetCurrent());
  EXPECT_EQ(nullptr, GetId());
}

TEST(ScopedId, InnerScopeIsCurrentThenOuterThenNone) {
  {
    ScopedId outer(ModuleId("outer"), 1, __FILE__, __LINE__);
    EXPECT_EQ(&outer, ScopedId::GetCurrent());
    {
      ScopedId inner(ModuleId("inner"), 2, __FILE__, __LINE__);
      EXPECT_EQ(&inner, ScopedId::GetCurrent());
      EXPECT_EQ(&outer, inner.GetPrevious());
    }
    EXPECT_EQ(&outer, ScopedId::GetCurrent());
  }
  EXPECT_EQ(nullptr, ScopedId::GetCurrent());
}

TEST(ScopedId, AccessorsReturnWhatTheConstructorWasGiven) {
  static const char kFile[] = "player.cpp";
  ScopedId outer(ModuleId("audio"), 7, kFile, 1234);
  EXPECT_EQ(nullptr, outer.GetPrevious());
  EXPECT_EQ(1, outer.GetModuleId());
  EXPECT_EQ(7, outer.GetSubModuleId());
  // The file name is kept as the caller's pointer, not copied.
  EXPECT_EQ(kFile, outer.GetFile());
  EXPECT_EQ(1234, outer.GetLine());

  ScopedId inner(ModuleId("video"), 65535, nullptr, -1);
  EXPECT_EQ(&outer, inner.GetPrevious());
  EXPECT_EQ(2, inner.GetModuleId());
  EXPECT_EQ(65535, inner.GetSubModuleId());
  EXPECT_EQ(nullptr, inner.GetFile());
  EXPECT_EQ(-1, inner.GetLine());
}

TEST(ScopedId, SameModuleTwiceGivesTheSameModuleId) {
  ModuleId module("net");
  ScopedId outer(module, 1, __FILE__, __LINE__);
  ScopedId inner(ModuleId("net"), 2, __FILE__, __LINE__);
  EXPECT_EQ(outer.GetModuleId(), inner.GetModuleId());
  EXPECT_EQ(module.m_id, inner.GetModuleId());
}

const ScopedId* g_currentDuringCallback = nullptr;
bool g_callbackRan = false;

void RecordCurrentScope(const char*, unsigned short) {
  g_callbackRan = true;
  g_currentDuringCallback = ScopedId::GetCurrent();
}

TEST(ScopedId, NameIsLookedUpBeforeTheScopeIsEntered) {
  ScopedId outer(ModuleId("outer"), 0, __FILE__, __LINE__);
  SetNewIdCallback(&RecordCurrentScope);
  {
    ScopedId inner(ModuleId("new-module"), 0, __FILE__, __LINE__);
    SetNewIdCallback(nullptr);
    EXPECT_EQ(2, inner.GetModuleId());
  }
  ASSERT_TRUE(g_callbackRan);
  EXPECT_EQ(&outer, g_currentDuringCallback);
}

TEST(ScopedId, DestroyingTheOuterScopeFirstRestoresItsPreviousAndThenItself) {
  std::unique_ptr<ScopedId> a(new ScopedId(ModuleId("a"), 1, __FILE__, __LINE__));
  std::unique_ptr<ScopedId> b(new ScopedId(ModuleId("b"), 2, __FILE__, __LINE__));
  const ScopedId* const addressOfA = a.get();
  ASSERT_EQ(b.get(), ScopedId::GetCurrent());

  // B still lives, yet A's previous scope (none) becomes current.
  a.reset();
  EXPECT_EQ(nullptr, ScopedId::GetCurrent());

  // B restores A although A is gone: only the address is compared.
  b.reset();
  EXPECT_EQ(addressOfA, ScopedId::GetCurrent());
  SetId(nullptr);
}

TEST(ScopedId, SetIdMakesAnyScopeCurrentAndGetIdReturnsIt) {
  ScopedId scope(ModuleId("x"), 3, __FILE__, __LINE__);
  ScopedId* other = reinterpret_cast<ScopedId*>(0x1000);
  SetId(other);
  EXPECT_EQ(other, GetId());
  EXPECT_EQ(other, ScopedId::GetCurrent());
  SetId(nullptr);
  EXPECT_EQ(nullptr, GetId());
  SetId(&scope);
}

}  // namespace
