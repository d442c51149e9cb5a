// Records the calls of the registry's new-id callback for the tests.
#ifndef QUENDAL_TESTS_CLASSIFICATION_NEW_ID_RECORDER_H
#define QUENDAL_TESTS_CLASSIFICATION_NEW_ID_RECORDER_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quendal/classification.h"

namespace quendal_test {

struct NewIdCall {
  const char* pointer;
  std::string name;
  unsigned short id;
};

// No lock of its own: the registry calls the callback under its lock.
inline std::vector<NewIdCall>& RecordedNewIds() {
  static std::vector<NewIdCall> calls;
  return calls;
}

inline void RecordNewId(const char* name, unsigned short id) {
  RecordedNewIds().push_back(NewIdCall{name, name, id});
}

// Installs the recorder for one test and removes it afterwards.
class NewIdRecorderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RecordedNewIds().clear();
    Quendal::Classification::SetNewIdCallback(&RecordNewId);
  }
  void TearDown() override { Quendal::Classification::SetNewIdCallback(nullptr); }
};

}  // namespace quendal_test

#endif
