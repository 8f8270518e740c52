#include "client/child_process.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;  // NOLINT(readability-redundant-declaration): not every system's headers declare it

namespace brisko::client {
namespace {

// Starts it with standard output to nowhere, and with SIGPIPE as other programs expect it.
int start(std::vector<std::string> words, pid_t& process) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawnattr_init(&attributes);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  ::posix_spawnattr_setsigdefault(&attributes, &signals);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const int error =
      ::posix_spawnp(&process, words.front().c_str(), &actions, &attributes, arguments.data(), environ);
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  return error;
}

}  // namespace

bool runProgram(const std::vector<std::string>& words, std::string& reason) {
  pid_t process = 0;
  if (const int error = start(words, process); error != 0) {
    reason = words.front() + ": " + std::strerror(error);
    return false;
  }
  int status = 0;
  while (::waitpid(process, &status, 0) < 0) {
    if (errno == EINTR) continue;
    reason = words.front() + " cannot be waited for";
    return false;
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
  reason = words.front() + " refused it";
  return false;
}

}  // namespace brisko::client
