// The record of what a fuzz input did so far, printed when a check fails so
// that the failing sequence can be read without replaying it.
#ifndef QUENDAL_TESTS_FUZZ_FUZZ_FAILURE_H
#define QUENDAL_TESTS_FUZZ_FUZZ_FAILURE_H

#include <string>

// For the fuzzers' own checking loops: their comparisons are not worth
// coverage feedback and would cost more time than the code under test.
// The replay build under CTest compiles them with other compilers too.
#if defined(__clang__)
#define QUENDAL_FUZZ_NO_COVERAGE __attribute__((no_sanitize("coverage")))
#else
#define QUENDAL_FUZZ_NO_COVERAGE
#endif

namespace QuendalFuzz {

// Forgets the steps of the previous input.
void BeginTrace();

// Adds one step to the record.
void Trace(const std::string& step);

// Prints the record and the message to standard error and aborts, which
// libFuzzer reports as a crash and saves the input for.
[[noreturn]] void Fail(const std::string& message);

// printf-style formatting into a std::string.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace QuendalFuzz

#endif
