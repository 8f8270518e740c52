#include "running.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brisko::bench {
namespace {

std::vector<char*> pointersTo(std::vector<std::string>& words) {
  std::vector<char*> list;
  for (std::string& word : words) list.push_back(word.data());
  list.push_back(nullptr);
  return list;
}

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

std::string sibling(const std::string& name) {
  std::error_code ignored;
  return (std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / name).string();
}

Running::Running(std::vector<std::string> words, const std::string& machine) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) variables.emplace_back(*variable);
  variables.push_back("BRISKO_VIRTUAL_MAC=" + machine);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  if (::posix_spawn(&pid_, words[0].c_str(), &actions, nullptr, pointersTo(words).data(),
                    pointersTo(variables).data()) != 0) {
    pid_ = 0;
  }
  ::posix_spawn_file_actions_destroy(&actions);
}

Running::~Running() {
  if (pid_ == 0) return;
  ::kill(pid_, SIGTERM);
  static_cast<void>(wait());
}

std::optional<Usage> Running::wait() {
  if (pid_ == 0) return std::nullopt;
  int status = 0;
  rusage usage{};
  while (::wait4(pid_, &status, 0, &usage) < 0 && errno == EINTR) {
  }
  pid_ = 0;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
  return Usage{.cpuSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime),
               .megabytes = static_cast<double>(usage.ru_maxrss) / 1024};
}

}  // namespace brisko::bench
