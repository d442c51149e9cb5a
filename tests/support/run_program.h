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
  // RunOptions::watchdogSeconds passed and the program was killed.
  bool timedOut = false;
  // RunOptions::userId was given and the child could not switch to it: the
  // program was not started.
  bool userSwitchFailed = false;
  // The program could not be executed (not found, or not allowed).
  bool execFailed = false;
};

struct RunOptions {
  // A safety net, not a measure: a program still running after this many
  // seconds is killed (SIGKILL) and reported as timedOut, so that a program
  // that hangs fails its test instead of stalling the run. 0: no limit.
  unsigned watchdogSeconds = 0;
  // When not negative, the program runs as this user and group, without
  // supplementary groups (the test process must be allowed to switch).
  int userId = -1;
  // A library to preload into the program (LD_PRELOAD; under the emulator,
  // into the emulated program).
  std::string preload;
};

// Starts path with arguments (argv[0] is path itself) in the current working
// directory, standard error passed through, and waits for it.
ProgramResult RunProgram(const std::string& path, const std::vector<std::string>& arguments);

// The same with the options above.
ProgramResult RunProgram(const std::string& path, const std::vector<std::string>& arguments,
                         const RunOptions& options);

}  // namespace QuendalTest

#endif
