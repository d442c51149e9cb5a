// Captures what is written to file descriptor 2 while it lives.
#ifndef QUENDAL_TESTS_UTIL_STDERR_CAPTURE_H
#define QUENDAL_TESTS_UTIL_STDERR_CAPTURE_H

#include <gtest/gtest.h>

#include <string>

namespace quendal_test {

class StderrCapture {
 public:
  StderrCapture() { ::testing::internal::CaptureStderr(); }
  ~StderrCapture() {
    if (!taken_) {
      ::testing::internal::GetCapturedStderr();
    }
  }
  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;

  // Ends the capture and returns the bytes written.
  std::string Take() {
    taken_ = true;
    return ::testing::internal::GetCapturedStderr();
  }

 private:
  bool taken_ = false;
};

}  // namespace quendal_test

#endif
