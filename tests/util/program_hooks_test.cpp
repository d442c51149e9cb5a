// A program that defines the framework's hooks itself gets the library's
// calls of them: the library's empty definitions only stand in until the
// framework links its own. Built against libQuendal.so and against the
// drop-in, never against the internal archives.
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "quendal/quendal.h"

namespace {

std::vector<std::string>& ReceivedMessages() {
  static std::vector<std::string> messages;
  return messages;
}

int g_memoryDumps = 0;

// The block's address as check_pointer prints it: "0x" and the lower-case
// hex digits of its low 32 bits.
std::string AddressText(const void* block) {
  std::ostringstream text;
  text << "0x" << std::hex << static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(block));
  return text.str();
}

}  // namespace

extern "C" void QDExcHdlWriteMessageToExceptionFile(const char* message) QD_NOTHROW {
  ReceivedMessages().push_back(message != nullptr ? message : "(null message)");
}

void MT_dump_allocted_memory() {
  ++g_memoryDumps;
}

namespace {

TEST(ProgramHooks, ExceptionFileReceivesTheMessageOfABrokenEndMarker) {
  unsigned char block[64] = {};
  ASSERT_TRUE(QDValidation::write_markers(block, sizeof(block)));
  block[60] = 0xEE;
  EXPECT_FALSE(QDValidation::check_pointer(block));
  EXPECT_EQ(std::vector<std::string>{"QDValidation::check_pointer eFailedEndMarker " +
                                     AddressText(block) + " len 64"},
            ReceivedMessages());
}

TEST(ProgramHooks, ExceptionFileReceivesTheNullPointerMessage) {
  EXPECT_FALSE(QDValidation::check_pointer(nullptr));
  EXPECT_EQ(std::vector<std::string>{"QDValidation::check_pointer: Null pointer."},
            ReceivedMessages());
}

TEST(ProgramHooks, IntactBlockSendsNoMessage) {
  unsigned char block[64] = {};
  ASSERT_TRUE(QDValidation::write_markers(block, sizeof(block)));
  EXPECT_TRUE(QDValidation::check_pointer(block));
  EXPECT_TRUE(ReceivedMessages().empty());
}

TEST(ProgramHooks, ConfigDeInitCallsTheProgramsMemoryDump) {
  ConfigFileReader::DeInit();
  EXPECT_EQ(1, g_memoryDumps);
}

}  // namespace
