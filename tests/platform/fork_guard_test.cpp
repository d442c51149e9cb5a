// The fork guard's order: the registry's lock before the heap's, released
// in reverse in the parent and in the child, whichever was registered first.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "platform/fork_guard.h"

namespace {

using namespace Quendal::Platform;

std::string calls;

void Acquire(void* lock) {
  calls += "take " + *static_cast<std::string*>(lock) + ";";
}
void ReleaseInParent(void* lock) {
  calls += "parent " + *static_cast<std::string*>(lock) + ";";
}
void ReleaseInChild(void* lock) {
  calls += "child " + *static_cast<std::string*>(lock) + ";";
}

const ForkLockCalls recordingCalls = {Acquire, ReleaseInParent, ReleaseInChild};

std::string registry = "registry";
std::string heap = "heap";

// Forks; the child exits with 0 when it saw expectedInChild. Returns what the
// parent saw.
std::string ForkAndCheckChild(const std::string& expectedInChild) {
  calls.clear();
  pid_t child = fork();
  if (child == 0) {
    _exit(calls == expectedInChild ? 0 : 1);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  return calls;
}

TEST(PlatformForkGuard, TakesTheRegistryThenTheHeapWhicheverCameFirst) {
  GuardAcrossFork(kHeapLockRank, &heap, &recordingCalls);
  GuardAcrossFork(kRegistryLockRank, &registry, &recordingCalls);
  EXPECT_EQ(ForkAndCheckChild("take registry;take heap;child heap;child registry;"),
            "take registry;take heap;parent heap;parent registry;");
}

TEST(PlatformForkGuard, TakesOnlyTheLocksItKnows) {
  GuardAcrossFork(kHeapLockRank, &heap, &recordingCalls);
  EXPECT_EQ(ForkAndCheckChild("take heap;child heap;"), "take heap;parent heap;");
  GuardAcrossFork(kRegistryLockRank, &registry, &recordingCalls);
  StopGuardingAcrossFork(kHeapLockRank);
  EXPECT_EQ(ForkAndCheckChild("take registry;child registry;"), "take registry;parent registry;");
}

}  // namespace
