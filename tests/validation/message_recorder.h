// Records the messages check_pointer passes on, for as long as it lives.
#ifndef QUENDAL_TESTS_VALIDATION_MESSAGE_RECORDER_H
#define QUENDAL_TESTS_VALIDATION_MESSAGE_RECORDER_H

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "validation/check_report.h"

namespace quendal_test {

class MessageRecorder {
 public:
  MessageRecorder() : previous_(Quendal::Validation::messageSink) {
    messages().clear();
    Quendal::Validation::messageSink = Record;
  }
  ~MessageRecorder() { Quendal::Validation::messageSink = previous_; }
  MessageRecorder(const MessageRecorder&) = delete;
  MessageRecorder& operator=(const MessageRecorder&) = delete;

  static std::vector<std::string>& messages() {
    static std::vector<std::string> recorded;
    return recorded;
  }

 private:
  static void Record(const char* message) { messages().push_back(message); }

  Quendal::Validation::MessageSink previous_;
};

// The block's address as "0x" and lower-case hex digits of its low 32 bits,
// without leading zeros.
inline std::string AddressText(const void* block) {
  std::ostringstream text;
  text << "0x" << std::hex << static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(block));
  return text.str();
}

}  // namespace quendal_test

#endif
