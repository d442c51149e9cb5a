// PIAssertReportFailure: the two report formats on standard error.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "quendal/assertion.h"
#include "stderr_capture.h"

namespace {

using quendal_test::StderrCapture;

std::string Report(const char* quotedText, const char* file, int line, const char* label,
                   const char* message, int* result = nullptr) {
  StderrCapture capture;
  const int returned = PIAssertReportFailure(quotedText, file, line, label, message);
  if (result != nullptr) {
    *result = returned;
  }
  return capture.Take();
}

TEST(PIAssertReportFailure, WithQuotedTextPrintsLocationLabelAndQuotedText) {
  EXPECT_EQ("\nassertion failed in heap(42): Alloc : \"p != 0\"\n",
            Report("p != 0", "heap", 42, "Alloc", nullptr));
}

TEST(PIAssertReportFailure, MessageAddsASecondLine) {
  EXPECT_EQ("\nassertion failed in heap(42): Alloc : \"p != 0\"\nmessage: bad size\n",
            Report("p != 0", "heap", 42, "Alloc", "bad size"));
}

TEST(PIAssertReportFailure, NullMessageAddsNothingAfterTheAssertionLine) {
  const std::string report = Report("x", "f.cpp", 1, "L", nullptr);
  ASSERT_FALSE(report.empty());
  EXPECT_EQ('\n', report.back());
  EXPECT_EQ(std::string::npos, report.find("message"));
  EXPECT_EQ(report.size() - 1, report.find('\n', 1));
}

TEST(PIAssertReportFailure, NullQuotedTextSelectsTheShortFormat) {
  EXPECT_EQ("\nassertion failed in heap(42) Alloc\n",
            Report(nullptr, "heap", 42, "Alloc", nullptr));
}

TEST(PIAssertReportFailure, ShortFormatTakesAMessageToo) {
  EXPECT_EQ("\nassertion failed in heap(42) Alloc\nmessage: bad size\n",
            Report(nullptr, "heap", 42, "Alloc", "bad size"));
}

TEST(PIAssertReportFailure, EmptyTextsArePrintedAsEmpty) {
  EXPECT_EQ("\nassertion failed in (0):  : \"\"\nmessage: \n", Report("", "", 0, "", ""));
}

TEST(PIAssertReportFailure, LineIsSignedDecimal) {
  EXPECT_EQ("\nassertion failed in a.c(-7) L\n", Report(nullptr, "a.c", -7, "L", nullptr));
  EXPECT_EQ("\nassertion failed in a.c(2147483647) L\n",
            Report(nullptr, "a.c", INT_MAX, "L", nullptr));
  EXPECT_EQ("\nassertion failed in a.c(-2147483648) L\n",
            Report(nullptr, "a.c", INT_MIN, "L", nullptr));
}

TEST(PIAssertReportFailure, TextsArePrintedAsTheyAre) {
  EXPECT_EQ("\nassertion failed in dir/f%s.cpp(3): a \"b\" : \"x % y\"\nmessage: 100%\n",
            Report("x % y", "dir/f%s.cpp", 3, "a \"b\"", "100%"));
}

TEST(PIAssertReportFailure, ResultIsOneWhateverTheArguments) {
  int result = 0;
  Report("p", "f", 1, "l", "m", &result);
  EXPECT_EQ(1, result);
  result = 0;
  Report(nullptr, "f", -1, "l", nullptr, &result);
  EXPECT_EQ(1, result);
  result = 0;
  Report(nullptr, nullptr, 0, nullptr, nullptr, &result);
  EXPECT_EQ(1, result);
}

TEST(PIAssertReportFailure, NullFileAndLabelPrintAsNull) {
  EXPECT_EQ("\nassertion failed in (null)(5): (null) : \"q\"\n",
            Report("q", nullptr, 5, nullptr, nullptr));
  EXPECT_EQ("\nassertion failed in (null)(5) (null)\n",
            Report(nullptr, nullptr, 5, nullptr, nullptr));
}

TEST(PIAssertReportFailure, MessageOf1013CharactersIsPrintedWhole) {
  const std::string message(1013, 'm');
  EXPECT_EQ("\nassertion failed in f(1) L\nmessage: " + message + "\n",
            Report(nullptr, "f", 1, "L", message.c_str()));
}

TEST(PIAssertReportFailure, LongerMessageIsCutToTheBuffer) {
  // "message: " and the text fill the 1023 characters of the 1024-byte buffer;
  // the line break no longer fits.
  const std::string message = std::string(1014, 'm') + std::string(4000, 'x');
  EXPECT_EQ("\nassertion failed in f(1) L\nmessage: " + std::string(1014, 'm'),
            Report(nullptr, "f", 1, "L", message.c_str()));
}

TEST(PIAssertReportFailure, MessageOneOverTheLimitLosesOnlyItsLineBreak) {
  const std::string message(1014, 'm');
  EXPECT_EQ("\nassertion failed in f(1): L : \"q\"\nmessage: " + message,
            Report("q", "f", 1, "L", message.c_str()));
}

}  // namespace
