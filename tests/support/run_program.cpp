#include "support/run_program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

extern char** environ;

namespace QuendalTest {

ProgramResult RunProgram(const std::string& path, const std::vector<std::string>& arguments) {
  ProgramResult result;
  int pipeEnds[2];
  if (pipe(pipeEnds) != 0) {
    return result;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
  posix_spawn_file_actions_addclose(&actions, pipeEnds[1]);

  // Cross builds run their programs under an emulator, named by the test
  // environment as words separated by spaces.
  std::vector<std::string> argvStrings;
  const char* emulator = getenv("QUENDAL_TEST_EMULATOR");
  std::istringstream emulatorWords(emulator != nullptr ? emulator : "");
  for (std::string word; emulatorWords >> word;) {
    argvStrings.push_back(word);
  }
  argvStrings.push_back(path);
  argvStrings.insert(argvStrings.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& argument : argvStrings) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);

  pid_t child = 0;
  int spawned = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipeEnds[1]);
  if (spawned != 0) {
    close(pipeEnds[0]);
    return result;
  }
  char buffer[4096];
  for (;;) {
    ssize_t count = read(pipeEnds[0], buffer, sizeof(buffer));
    if (count > 0) {
      result.output.append(buffer, static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      break;
    }
  }
  close(pipeEnds[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) {
    result.exited = true;
    result.exitCode = WEXITSTATUS(status);
  }
  return result;
}

}  // namespace QuendalTest
