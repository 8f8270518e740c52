#include "client/child_process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <utility>

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

using FileActions = posix_spawn_file_actions_t;
using Redirect = std::function<void(FileActions&)>;

void printToNowhere(FileActions& actions) {
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
}

// All that it prints, without input.
Redirect printInto(int pipe) {
  return [pipe](FileActions& actions) {
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, pipe, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, pipe, STDERR_FILENO);
  };
}

Redirect readFrom(int pipe) {
  return [pipe](FileActions& actions) { ::posix_spawn_file_actions_adddup2(&actions, pipe, STDIN_FILENO); };
}

// Whoever stays in the group of this program can use its terminal, for a password for example.
enum class Group : std::uint8_t { ofThisProgram, itsOwn };

// Starts it with the signals that this program ignores as other programs expect them. One with a group of its
// own can be killed with all that it starts.
int start(std::vector<std::string> words, const Redirect& redirect, Group group, pid_t& process) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawnattr_init(&attributes);
  redirect(actions);
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGPIPE, SIGXFSZ}) sigaddset(&signals, signal);
  ::posix_spawnattr_setsigdefault(&attributes, &signals);
  ::posix_spawnattr_setpgroup(&attributes, 0);
  const int flags =
      group == Group::itsOwn ? POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP : POSIX_SPAWN_SETSIGDEF;
  ::posix_spawnattr_setflags(&attributes, static_cast<short>(flags));
  const int error =
      ::posix_spawnp(&process, words.front().c_str(), &actions, &attributes, arguments.data(), environ);
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  return error;
}

// --- Several at a time

constexpr std::size_t mostOutput = std::size_t{64} << 20U;

struct Pipe {
  Descriptor reading = {};
  Descriptor writing = {};
};

// Not passed on to other programs that are started meanwhile.
Pipe openPipe() {
  std::array<int, 2> ends{-1, -1};
  if (::pipe(ends.data()) != 0) return {};
  for (const int end : ends) static_cast<void>(::fcntl(end, F_SETFD, FD_CLOEXEC));
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// A command while it runs.
class Running {
 public:
  explicit Running(const TimedCommand& command) : deadline_(steadyNow() + command.seconds) {
    Pipe pipe = openPipe();
    if (command.words.empty() || !pipe.reading) return;
    const int error = start(command.words, printInto(pipe.writing.number()), Group::itsOwn, process_);
    if (error == 0) {
      output_ = std::move(pipe.reading);
      static_cast<void>(::fcntl(output_.number(), F_SETFL, O_NONBLOCK));
    } else {
      process_ = 0;
      result_.end = error == ENOENT ? CommandEnd::notFound : CommandEnd::failed;
    }
  }

  [[nodiscard]] bool isDone() const { return process_ == 0; }
  [[nodiscard]] int output() const { return output_ ? output_.number() : -1; }
  CommandResult take() { return std::move(result_); }

  void proceed() {
    readOutput();
    if (result_.output.size() > mostOutput) return kill(CommandEnd::tooLong);
    // Its output may be complete before it has ended, and the other way round.
    if (!output_) awaitEnd(WNOHANG);
    if (!isDone() && steadyNow() >= deadline_) kill(CommandEnd::timedOut);
  }

 private:
  void kill(CommandEnd end) {
    static_cast<void>(::kill(-process_, SIGKILL));
    awaitEnd(0);
    result_.end = end;
  }

  void readOutput() {
    std::array<char, 16'384> piece;
    while (output_ && result_.output.size() <= mostOutput) {
      const ssize_t got = ::read(output_.number(), piece.data(), piece.size());
      if (got < 0 && errno == EINTR) continue;
      if (got < 0 && errno == EAGAIN) return;
      if (got <= 0) {
        output_ = Descriptor();
        return;
      }
      result_.output.append(piece.data(), static_cast<std::size_t>(got));
    }
  }

  void awaitEnd(int flags) {
    int status = 0;
    pid_t ended = 0;
    do ended = ::waitpid(process_, &status, flags);
    while (ended < 0 && errno == EINTR);
    if (ended == 0) return;
    process_ = 0;
    if (ended < 0) return;
    result_.end = WIFEXITED(status) ? CommandEnd::exited : CommandEnd::signalled;
    if (WIFEXITED(status)) result_.status = WEXITSTATUS(status);
  }

  double deadline_;
  pid_t process_ = 0;
  Descriptor output_ = {};
  CommandResult result_ = {};
};

// Until one of them prints something, but only for a moment: their ends are not announced.
void awaitOutput(const std::vector<Running>& commands) {
  constexpr int milliseconds = 10;
  std::vector<pollfd> waits;
  for (const Running& command : commands) {
    if (command.output() >= 0) waits.push_back({.fd = command.output(), .events = POLLIN, .revents = 0});
  }
  static_cast<void>(::poll(waits.data(), static_cast<nfds_t>(waits.size()), milliseconds));
}

}  // namespace

std::vector<CommandResult> runTogether(const std::vector<TimedCommand>& commands) {
  std::vector<Running> running;
  running.reserve(commands.size());
  for (const TimedCommand& command : commands) running.emplace_back(command);
  const auto allDone = [&running] {
    return std::all_of(running.begin(), running.end(), [](const Running& each) { return each.isDone(); });
  };
  while (!allDone()) {
    awaitOutput(running);
    for (Running& each : running) {
      if (!each.isDone()) each.proceed();
    }
  }
  std::vector<CommandResult> results;
  for (Running& each : running) results.push_back(each.take());
  return results;
}

std::string clauseOf(CommandEnd end) {
  switch (end) {
    case CommandEnd::notFound:
      return "no such command here";
    case CommandEnd::timedOut:
      return "timed out";
    case CommandEnd::tooLong:
      return "prints too much";
    case CommandEnd::exited:
    case CommandEnd::signalled:
    case CommandEnd::failed:
      break;
  }
  return "its command failed";
}

namespace {

// As waitpid() gives it; none and a reason when waiting fails.
std::optional<int> statusOf(pid_t process, const std::string& program, std::string& reason) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0) {
    if (errno == EINTR) continue;
    reason = program + " cannot be waited for";
    return std::nullopt;
  }
  return status;
}

// Until it is written, or the other end is closed.
void writeInto(int pipe, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(pipe, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

std::optional<int> runWithInput(const std::vector<std::string>& words, std::string_view input,
                                std::string& reason) {
  Pipe pipe = openPipe();
  pid_t process = 0;
  const int error =
      pipe.reading ? start(words, readFrom(pipe.reading.number()), Group::ofThisProgram, process) : errno;
  if (error != 0) {
    reason = words.front() + ": " + std::strerror(error);
    return std::nullopt;
  }
  pipe.reading = Descriptor();
  writeInto(pipe.writing.number(), input);
  pipe.writing = Descriptor();
  const auto status = statusOf(process, words.front(), reason);
  if (!status) return std::nullopt;
  if (WIFEXITED(*status)) return WEXITSTATUS(*status);
  reason = words.front() + " was ended by signal " + std::to_string(WTERMSIG(*status));
  return std::nullopt;
}

bool runProgram(const std::vector<std::string>& words, std::string& reason) {
  pid_t process = 0;
  if (const int error = start(words, printToNowhere, Group::ofThisProgram, process); error != 0) {
    reason = words.front() + ": " + std::strerror(error);
    return false;
  }
  const auto status = statusOf(process, words.front(), reason);
  if (!status) return false;
  if (WIFEXITED(*status) && WEXITSTATUS(*status) == 0) return true;
  reason = words.front() + " refused it";
  return false;
}

}  // namespace brisko::client
