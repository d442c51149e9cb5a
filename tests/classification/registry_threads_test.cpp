// Look-ups from several threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "new_id_recorder.h"
#include "quendal/classification.h"

namespace {

using namespace Quendal::Classification;
using quendal_test::NewIdRecorderTest;
using quendal_test::RecordedNewIds;

using ModuleRegistryThreadsTest = NewIdRecorderTest;

const int kThreads = 4;
const int kNames = 400;
const int kNamesPerThread = 200;
const int kRounds = 3;

std::string NameOf(int n) {
  return "module-" + std::to_string(n);
}

TEST_F(ModuleRegistryThreadsTest, OverlappingConcurrentLookUpsGiveUniqueConsistentIds) {
  std::atomic<bool> go(false);
  std::vector<std::map<std::string, unsigned short> > seen(kThreads);
  std::vector<ModuleRegistry<Mutex>*> registries(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &go, &seen, &registries] {
      while (!go.load()) {
        std::this_thread::yield();
      }
      registries[t] = &getmoduleRegistry();
      // Thread t covers names t*100 to t*100+199 (mod 400); odd threads walk
      // them backwards, so every name is wanted by two threads at once.
      for (int round = 0; round < kRounds; ++round) {
        for (int i = 0; i < kNamesPerThread; ++i) {
          const int k = (t % 2 == 0) ? i : kNamesPerThread - 1 - i;
          const std::string name = NameOf((t * 100 + k) % kNames);
          const unsigned short id = LookUpModuleId(name.c_str());
          std::map<std::string, unsigned short>::iterator known = seen[t].find(name);
          if (known == seen[t].end()) {
            seen[t][name] = id;
          } else {
            EXPECT_EQ(known->second, id) << name;
          }
        }
      }
    });
  }
  go.store(true);
  for (std::thread& thread : threads) {
    thread.join();
  }

  for (int t = 1; t < kThreads; ++t) {
    EXPECT_EQ(registries[0], registries[t]);
  }

  std::map<std::string, unsigned short> idOf;
  for (int t = 0; t < kThreads; ++t) {
    for (const auto& entry : seen[t]) {
      auto inserted = idOf.insert(entry);
      EXPECT_EQ(inserted.first->second, entry.second) << entry.first;
    }
  }
  ASSERT_EQ(static_cast<size_t>(kNames), idOf.size());

  std::set<unsigned short> ids;
  for (const auto& entry : idOf) {
    ids.insert(entry.second);
    EXPECT_STREQ(entry.first.c_str(), LookUpModuleName(entry.second));
  }
  ASSERT_EQ(static_cast<size_t>(kNames), ids.size());
  EXPECT_EQ(1, *ids.begin());
  EXPECT_EQ(kNames, *ids.rbegin());

  // Exactly one callback per name, with the id every thread saw.
  ASSERT_EQ(static_cast<size_t>(kNames), RecordedNewIds().size());
  // The calls are serialised with the look-ups, so they come in id order.
  std::set<std::string> called;
  for (size_t i = 0; i < RecordedNewIds().size(); ++i) {
    const quendal_test::NewIdCall& call = RecordedNewIds()[i];
    EXPECT_TRUE(called.insert(call.name).second) << call.name;
    EXPECT_EQ(idOf[call.name], call.id) << call.name;
    EXPECT_EQ(i + 1, call.id);
  }
}

}  // namespace
