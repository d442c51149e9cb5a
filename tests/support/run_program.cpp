#include "support/run_program.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

extern char** environ;

namespace QuendalTest {

namespace {

// The emulator's words, then path and arguments.
std::vector<std::string> CommandWords(const std::string& path,
                                      const std::vector<std::string>& arguments) {
  std::vector<std::string> words;
  const char* emulator = getenv("QUENDAL_TEST_EMULATOR");
  std::istringstream emulatorWords(emulator != nullptr ? emulator : "");
  for (std::string word; emulatorWords >> word;) {
    words.push_back(word);
  }
  words.push_back(path);
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

// Null-terminated pointers into strings, which must outlive them.
std::vector<char*> Pointers(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& text : strings) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

long long NowMilliseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// What the child reports through the status pipe before it would exec.
const char kUserSwitchFailed = 'u';
const char kExecFailed = 'x';

void ReportAndExit(int statusPipe, char failure) {
  ssize_t ignored = write(statusPipe, &failure, 1);
  (void)ignored;
  _exit(127);
}

}  // namespace

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
  std::vector<std::string> argvStrings = CommandWords(path, arguments);
  std::vector<char*> argv = Pointers(argvStrings);

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

// Started with fork and exec, so that the child can switch its user first.
ProgramResult RunProgram(const std::string& path, const std::vector<std::string>& arguments,
                         const RunOptions& options) {
  ProgramResult result;
  std::vector<std::string> argvStrings = CommandWords(path, arguments);
  std::vector<char*> argv = Pointers(argvStrings);
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    std::string text = *entry;
    if (options.preload.empty() || text.rfind("LD_PRELOAD=", 0) != 0) {
      environment.push_back(text);
    }
  }
  if (!options.preload.empty()) {
    const char* emulator = getenv("QUENDAL_TEST_EMULATOR");
    bool emulated = emulator != nullptr && emulator[0] != '\0';
    // qemu passes QEMU_SET_ENV's variables to the program it runs, not to itself.
    environment.push_back((emulated ? "QEMU_SET_ENV=LD_PRELOAD=" : "LD_PRELOAD=") +
                          options.preload);
  }
  std::vector<char*> envp = Pointers(environment);

  int outputPipe[2];
  int statusPipe[2];
  if (pipe(outputPipe) != 0) {
    return result;
  }
  if (pipe2(statusPipe, O_CLOEXEC) != 0) {
    close(outputPipe[0]);
    close(outputPipe[1]);
    return result;
  }
  pid_t child = fork();
  if (child == 0) {
    dup2(outputPipe[1], STDOUT_FILENO);
    close(outputPipe[0]);
    close(outputPipe[1]);
    close(statusPipe[0]);
    if (options.userId >= 0) {
      uid_t user = static_cast<uid_t>(options.userId);
      if (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0) {
        ReportAndExit(statusPipe[1], kUserSwitchFailed);
      }
    }
    execvpe(argv[0], argv.data(), envp.data());
    ReportAndExit(statusPipe[1], kExecFailed);
  }
  close(outputPipe[1]);
  close(statusPipe[1]);
  if (child < 0) {
    close(outputPipe[0]);
    close(statusPipe[0]);
    return result;
  }
  // The exec closes the status pipe; a failure before it writes one byte.
  char failure = 0;
  ssize_t reported = 0;
  do {
    reported = read(statusPipe[0], &failure, 1);
  } while (reported < 0 && errno == EINTR);
  close(statusPipe[0]);
  if (reported == 1) {
    close(outputPipe[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    result.userSwitchFailed = failure == kUserSwitchFailed;
    result.execFailed = failure == kExecFailed;
    return result;
  }

  long long deadline =
      options.watchdogSeconds > 0 ? NowMilliseconds() + 1000LL * options.watchdogSeconds : 0;
  // Milliseconds left for poll: -1 without a watchdog, 0 once it is due.
  auto left = [&]() -> int {
    if (deadline == 0) {
      return -1;
    }
    long long remaining = deadline - NowMilliseconds();
    return remaining > 0 ? static_cast<int>(remaining) : 0;
  };
  char buffer[4096];
  for (;;) {
    pollfd ready = {outputPipe[0], POLLIN, 0};
    int polled = poll(&ready, 1, left());
    if (polled < 0) {
      if (errno == EINTR) {
        continue;
      }
      break;
    }
    if (polled == 0) {
      kill(child, SIGKILL);
      result.timedOut = true;
      break;
    }
    ssize_t count = read(outputPipe[0], buffer, sizeof(buffer));
    if (count > 0) {
      result.output.append(buffer, static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      break;
    }
  }
  close(outputPipe[0]);
  int status = 0;
  for (;;) {
    pid_t waited = waitpid(child, &status, result.timedOut || deadline == 0 ? 0 : WNOHANG);
    if (waited == child) {
      break;
    }
    if (waited < 0) {
      if (errno == EINTR) {
        continue;
      }
      return result;
    }
    // Standard output is closed but the program runs on.
    if (left() == 0) {
      kill(child, SIGKILL);
      result.timedOut = true;
    } else {
      usleep(10000);
    }
  }
  if (!result.timedOut && WIFEXITED(status)) {
    result.exited = true;
    result.exitCode = WEXITSTATUS(status);
  }
  return result;
}

}  // namespace QuendalTest
