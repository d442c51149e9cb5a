// Each thread sees only its own scopes.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "quendal/classification.h"

namespace {

using namespace Quendal::Classification;

// A one-way signal between two threads.
class Signal {
 public:
  void Raise() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_raised = true;
    m_changed.notify_all();
  }
  void Wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_raised; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_raised = false;
};

TEST(ScopeThreads, NewThreadHasNoScopeEvenIfItsCreatorHasOne) {
  ScopedId creatorScope(ModuleId("creator"), 1, __FILE__, __LINE__);
  const ScopedId* seenInThread = &creatorScope;
  std::thread thread([&seenInThread] { seenInThread = ScopedId::GetCurrent(); });
  thread.join();

  EXPECT_EQ(nullptr, seenInThread);
  EXPECT_EQ(&creatorScope, ScopedId::GetCurrent());
}

TEST(ScopeThreads, ScopeInOneThreadIsInvisibleToAnother) {
  Signal threadEntered;
  Signal mainChecked;
  Signal threadLeft;
  ScopedId mainScope(ModuleId("main"), 1, __FILE__, __LINE__);
  const ScopedId* threadScope = nullptr;
  const ScopedId* seenInThreadWhileMainHasScope = &mainScope;
  const ScopedId* seenInThreadAfterItsScope = &mainScope;
  std::thread thread([&] {
    {
      ScopedId scope(ModuleId("worker"), 2, __FILE__, __LINE__);
      threadScope = &scope;
      seenInThreadWhileMainHasScope = ScopedId::GetCurrent();
      threadEntered.Raise();
      mainChecked.Wait();
    }
    seenInThreadAfterItsScope = ScopedId::GetCurrent();
    threadLeft.Raise();
  });

  threadEntered.Wait();
  // Both scopes live now, each current in its own thread only.
  EXPECT_EQ(&mainScope, ScopedId::GetCurrent());
  EXPECT_EQ(nullptr, mainScope.GetPrevious());
  mainChecked.Raise();
  threadLeft.Wait();
  thread.join();

  EXPECT_EQ(threadScope, seenInThreadWhileMainHasScope);
  EXPECT_EQ(nullptr, seenInThreadAfterItsScope);
  EXPECT_EQ(&mainScope, ScopedId::GetCurrent());
}

TEST(ScopeThreads, ThreadsNestTheirScopesIndependently) {
  const int kThreads = 4;
  const int kDepth = 50;
  bool chainsIntact[kThreads] = {};
  std::thread threads[kThreads];
  for (int t = 0; t < kThreads; ++t) {
    threads[t] = std::thread([t, &chainsIntact] {
      bool intact = true;
      // Recursion keeps every scope on this thread's stack.
      struct Nest {
        static void Enter(int depth, const ScopedId* outer, bool& ok) {
          ScopedId scope(ModuleId("nest"), static_cast<unsigned short>(depth), __FILE__, depth);
          ok = ok && scope.GetPrevious() == outer && ScopedId::GetCurrent() == &scope;
          if (depth > 0) {
            Enter(depth - 1, &scope, ok);
          }
          ok = ok && ScopedId::GetCurrent() == &scope;
        }
      };
      Nest::Enter(kDepth, nullptr, intact);
      chainsIntact[t] = intact && ScopedId::GetCurrent() == nullptr;
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_TRUE(chainsIntact[t]) << "thread " << t;
  }
}

}  // namespace
