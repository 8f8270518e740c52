#include "process/program.h"

#include <cerrno>
#include <csignal>
#include <ctime>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/testing.h"

namespace brisko::test {
namespace {

double realNow() {
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_MONOTONIC, &now));
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::vector<char*> pointersTo(Words& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

// The environment of this process without a virtual Mac, and the added variables.
Words environmentWith(const Environment& added) {
  Words variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    const std::string name = text.substr(0, text.find('='));
    if (!name.starts_with("BRISKO_") && !added.contains(name)) variables.push_back(text);
  }
  for (const auto& [name, value] : added) variables.push_back(name + "=" + value);
  return variables;
}

}  // namespace

std::string programPath(const std::string& name) {
  return name.starts_with('/') ? name : std::string(BRISKO_PROGRAMS) + "/" + name;
}

Program::Program(const std::string& name, const Words& arguments, const Environment& environment,
                 std::optional<int> output) {
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  if (output) {
    ::posix_spawn_file_actions_adddup2(&actions, *output, STDOUT_FILENO);
  } else {
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (streams_.path() + "/output").c_str(),
                                       O_WRONLY | O_CREAT | O_APPEND, 0600);
  }
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, (streams_.path() + "/errors").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
  Words words{programPath(name)};
  words.insert(words.end(), arguments.begin(), arguments.end());
  Words variables = environmentWith(environment);
  // With the signals as launchd sets them, whatever this process inherited.
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  sigset_t all;
  sigset_t none;
  sigfillset(&all);
  sigemptyset(&none);
  ::posix_spawnattr_setsigdefault(&attributes, &all);
  ::posix_spawnattr_setsigmask(&attributes, &none);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  const int failure = ::posix_spawn(&pid_, words.front().c_str(), &actions, &attributes,
                                    pointersTo(words).data(), pointersTo(variables).data());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  EXPECT_EQ(failure, 0) << words.front();
}

Program::~Program() {
  if (ended_ || pid_ == 0) return;
  ::kill(pid_, SIGKILL);
  static_cast<void>(::waitpid(pid_, nullptr, 0));
}

std::string Program::output() const { return contents(streams_.path() + "/output"); }
std::string Program::errors() const { return contents(streams_.path() + "/errors"); }
void Program::signal(int number) const { ::kill(pid_, number); }

void Program::stop() const {
  signal(SIGSTOP);
  siginfo_t stopped{};
  EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(pid_), &stopped, WSTOPPED), 0);
}

bool Program::ends(double seconds) {
  return eventually(
      [this] {
        int status = 0;
        if (!ended_ && ::waitpid(pid_, &status, WNOHANG) == pid_) ended_ = status;
        return ended_.has_value();
      },
      seconds);
}

std::optional<int> Program::status() const {
  return ended_ && WIFEXITED(*ended_) ? std::optional(WEXITSTATUS(*ended_)) : std::nullopt;
}

std::optional<int> Program::endSignal() const {
  return ended_ && WIFSIGNALED(*ended_) ? std::optional(WTERMSIG(*ended_)) : std::nullopt;
}

// The program is opened first, so that the user that the child becomes needs no access to its path.
Ended runPrepared(const Words& arguments, const Environment& environment,
                  const std::function<void()>& prepare, const std::string& name) {
  return inChild([&] {
    const int program = ::open(programPath(name).c_str(), O_RDONLY | O_CLOEXEC);
    Words words{name};
    words.insert(words.end(), arguments.begin(), arguments.end());
    Words variables = environmentWith(environment);
    prepare();
    ::fexecve(program, pointersTo(words).data(), pointersTo(variables).data());
    ::_exit(99);
  });
}

Ended runAsNobody(const Words& arguments, const Environment& environment, mode_t fileMask,
                  const std::string& name) {
  return runPrepared(
      arguments, environment,
      [fileMask] {
        ::umask(fileMask);
        becomeNobody();
      },
      name);
}

bool eventually(const std::function<bool()>& seen, double seconds) {
  const double end = realNow() + seconds;
  const timespec moment{0, 2'000'000};
  while (!seen()) {
    if (realNow() > end) return false;
    static_cast<void>(::nanosleep(&moment, nullptr));
  }
  return true;
}

Finished run(const std::string& name, const Words& arguments, const Environment& environment) {
  Program program(name, arguments, environment);
  EXPECT_TRUE(program.ends(60)) << name;
  return {program.status(), program.endSignal(), program.output(), program.errors()};
}

}  // namespace brisko::test
