#include "client/program_output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/files.h"
#include "client/real_time.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): not every system's headers declare it

namespace brisko::client {
namespace {

// Starts it in a process group of its own, with both streams to `output`. Below 0 if that failed.
pid_t startInGroup(std::vector<std::string> words, int output) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawnattr_init(&attributes);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGPIPE, SIGXFSZ}) sigaddset(&signals, signal);
  ::posix_spawnattr_setsigdefault(&attributes, &signals);
  ::posix_spawnattr_setpgroup(&attributes, 0);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  pid_t process = -1;
  if (::posix_spawn(&process, words.front().c_str(), &actions, &attributes, arguments.data(), environ) != 0)
    process = -1;
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  return process;
}

// Reads to the end of the pipe.
ProgramEnd readAll(int pipe, double deadline, std::string& text) {
  constexpr std::size_t longest = std::size_t{64} << 20U;
  std::array<char, 65'536> piece;
  for (;;) {
    const double left = deadline - steadyNow();
    pollfd entry{.fd = pipe, .events = POLLIN, .revents = 0};
    const int ready = left <= 0 ? 0 : ::poll(&entry, 1, static_cast<int>(std::min(left, 1000.0) * 1000) + 1);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0 && steadyNow() >= deadline) return ProgramEnd::outOfTime;
    const ssize_t got = ready > 0 ? ::read(pipe, piece.data(), piece.size()) : -1;
    if (got == 0) return ProgramEnd::itself;
    if (got < 0) continue;
    text.append(piece.data(), static_cast<std::size_t>(got));
    if (text.size() > longest) return ProgramEnd::tooLong;
  }
}

// False if it still runs at the deadline.
bool endsUntil(pid_t process, double deadline) {
  constexpr double pause = 0.005;
  for (;;) {
    const pid_t ended = ::waitpid(process, nullptr, WNOHANG);
    if (ended == process || (ended < 0 && errno != EINTR)) return true;
    if (steadyNow() >= deadline) return false;
    pauseReally(pause);
  }
}

void killGroup(pid_t process) {
  static_cast<void>(::kill(-process, SIGKILL));
  while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

ProgramOutput outputOf(const std::vector<std::string>& words, double seconds) {
  const double deadline = steadyNow() + seconds;
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return {.end = ProgramEnd::notThere};
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  for (const int end : ends) static_cast<void>(::fcntl(end, F_SETFD, FD_CLOEXEC));
  const pid_t process = startInGroup(words, writing.number());
  writing.close();
  if (process < 0) return {.end = ProgramEnd::notThere};
  ProgramOutput output;
  output.end = readAll(reading.number(), deadline, output.text);
  if (output.end == ProgramEnd::itself && !endsUntil(process, deadline)) output.end = ProgramEnd::outOfTime;
  if (output.end != ProgramEnd::itself) killGroup(process);
  return output;
}

}  // namespace brisko::client
