// The length-control byte: (length + length / 255) mod 256.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "guarded_block.h"
#include "quendal/validation.h"

namespace {

using quendal_test::GuardedBlock;

struct ControlByteExample {
  unsigned int length;
  unsigned char controlByte;
};

// Names the example in test listings instead of dumping its bytes, padding
// included.
void PrintTo(const ControlByteExample& example, std::ostream* out) {
  *out << "length " << example.length << ", control byte " << static_cast<int>(example.controlByte);
}

class ControlByte : public ::testing::TestWithParam<ControlByteExample> {};

TEST_P(ControlByte, IsWrittenToByteSevenAndKeptInLenCtrlFlag) {
  const ControlByteExample example = GetParam();
  GuardedBlock b(example.length < 8 ? 8 : example.length);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), example.length));
  EXPECT_EQ(example.controlByte, b[7]);
  EXPECT_EQ(example.controlByte, QDValidation::lenCtrlFlag);
}

std::string LengthName(const ::testing::TestParamInfo<ControlByteExample>& info) {
  return "Length" + std::to_string(info.param.length);
}

INSTANTIATE_TEST_SUITE_P(
    Examples, ControlByte,
    ::testing::Values(ControlByteExample{0, 0x00}, ControlByteExample{12, 0x0C},
                      ControlByteExample{254, 0xFE}, ControlByteExample{255, 0x00},
                      ControlByteExample{256, 0x01}, ControlByteExample{1000, 0xEB},
                      ControlByteExample{510, 0x00}),
    LengthName);

TEST(ControlByteOf, Length255IsZeroAnd256IsOne) {
  GuardedBlock b255(255);
  GuardedBlock b256(256);
  ASSERT_TRUE(QDValidation::write_markers(b255.block(), 255));
  ASSERT_TRUE(QDValidation::write_markers(b256.block(), 256));
  EXPECT_EQ(0x00, b255[7]);
  EXPECT_EQ(0x01, b256[7]);
  unsigned int length = 0;
  EXPECT_EQ(QDValidation::eOk, QDValidation::check_markers(b255.block(), length));
  EXPECT_EQ(QDValidation::eOk, QDValidation::check_markers(b256.block(), length));
}

}  // namespace
