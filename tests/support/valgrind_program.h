// Runs a test program under valgrind with every error it finds made fatal
// (exit code 99), for tests built with quendal_add_program_test.
#ifndef QUENDAL_TESTS_SUPPORT_VALGRIND_PROGRAM_H
#define QUENDAL_TESTS_SUPPORT_VALGRIND_PROGRAM_H

#include <stdlib.h>

#include <string>

#include "support/run_program.h"

namespace QuendalTest {

// Why the program cannot run under valgrind in this configuration, or empty
// when it can: valgrind missing or unusable with the build's sanitizer, or
// programs that run under an emulator.
inline std::string WhyNotUnderValgrind(const std::string& valgrind, const std::string& missing) {
  if (valgrind.empty()) {
    return missing;
  }
  if (getenv("QUENDAL_TEST_EMULATOR") != nullptr) {
    return "skipped: this configuration runs its programs under an emulator, not under valgrind";
  }
  return std::string();
}

inline ProgramResult RunUnderValgrind(const std::string& valgrind, const std::string& program) {
  return RunProgram(valgrind, {"--error-exitcode=99", "--leak-check=no", program});
}

}  // namespace QuendalTest

#endif
