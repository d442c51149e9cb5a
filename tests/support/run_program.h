// Runs a program to completion and captures what it writes to standard output.
#ifndef QUENDAL_TESTS_SUPPORT_RUN_PROGRAM_H
#define QUENDAL_TESTS_SUPPORT_RUN_PROGRAM_H

#include <string>
#include <vector>

namespace QuendalTest {

struct ProgramResult {
  // False when the program could not be started or did not exit normally
  // (a signal ended it).
  bool exited = false;
  int exitCode = -1;
  std::string output;
};

// Starts path with arguments (argv[0] is path itself) in the current working
// directory, standard error passed through, and waits for it.
ProgramResult RunProgram(const std::string& path, const std::vector<std::string>& arguments);

}  // namespace QuendalTest

#endif
