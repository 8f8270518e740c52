#include "sim/generate/players.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <list>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/process/scratch.h"

namespace brisko::lab {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double newsEvery = 86400;  // of machine time
constexpr std::size_t lastWords = 2000;

class File {
 public:
  explicit File(int number) : number_(number) {}
  ~File() { close(); }
  File(File&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  File& operator=(File&&) = delete;
  void close() {
    if (number_ >= 0) ::close(number_);
    number_ = -1;
  }
  [[nodiscard]] int number() const { return number_; }

 private:
  int number_;
};

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    out = ends[0];
    in = ends[1];
  }
  int out = -1;
  int in = -1;
};

void say(int pipe, const std::string& line) {
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t count = ::write(pipe, rest.data(), rest.size());
    if (count < 0 && errno != EINTR) ::_exit(1);  // nobody listens any more
    if (count > 0) rest.remove_prefix(static_cast<std::size_t>(count));
  }
}

// Nothing is ever sent through the pipe: it ends when the lab wants it or is no more.
bool hasEnded(int pipe) {
  pollfd look{.fd = pipe, .events = POLLIN, .revents = 0};
  return ::poll(&look, 1, 0) > 0;
}

[[noreturn]] void playAndTell(const Players::Play& play, int tells, int goesOnWhile) noexcept {
  double told = 0;
  const GoesOn goesOn = [&](double seconds) {
    if (seconds - told >= newsEvery) {
      say(tells, std::to_string(static_cast<std::int64_t>(seconds)) + "\n");
      told = seconds;
    }
    return !hasEnded(goesOnWhile);
  };
  try {
    say(tells, lineOf(play(goesOn)) + "\n");
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "%s\n", error.what()));
    ::_exit(1);
  }
  ::_exit(0);
}

std::string endOf(int file) {
  std::array<char, lastWords> text{};
  const off_t size = ::lseek(file, 0, SEEK_END);
  const off_t from = std::max<off_t>(0, size - static_cast<off_t>(text.size()));
  const ssize_t count = ::pread(file, text.data(), text.size(), from);
  return {text.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

std::string endText(int status) {
  if (WIFSIGNALED(status)) return "by signal " + std::to_string(WTERMSIG(status));
  return "with status " + std::to_string(WEXITSTATUS(status));
}

struct Player {
  std::uint64_t number;
  pid_t process;
  File news;    // what it tells
  File errors;  // its standard error
  std::string heard = {};
  double seconds = 0;  // that it has played
  Clock::time_point heardAt = Clock::now();
  bool wasSilent = false;
};

}  // namespace

struct Players::Inside {
  unsigned most;
  std::chrono::milliseconds patience;
  std::string folder = lives::makeScratchFolder("brisko-players-" + std::to_string(::getpid()));
  Pipe goesOn{};
  std::list<Player> players{};

  // What they tell until they end. True when there is nothing more to hear of it.
  bool hear(Player& player) const {
    std::array<char, 4096> part{};
    const ssize_t count = ::read(player.news.number(), part.data(), part.size());
    if (count < 0) return errno != EINTR && errno != EAGAIN;
    player.heard.append(part.data(), static_cast<std::size_t>(count));
    player.heardAt = Clock::now();
    for (std::size_t end = 0; (end = player.heard.find('\n')) != std::string::npos;) {
      if (player.heard.front() == '{') break;  // the verdict
      player.seconds = std::stod(player.heard.substr(0, end));
      player.heard.erase(0, end + 1);
    }
    return count == 0;
  }

  Verdict takeVerdict(Player& player) const {
    int status = 0;
    while (::waitpid(player.process, &status, 0) < 0 && errno == EINTR) continue;
    // What it forked ends with it.
    ::kill(-player.process, SIGKILL);
    if (auto verdict = verdictOf(player.heard)) return *verdict;
    Verdict died{.seconds = player.seconds};
    died.seen = player.wasSilent ? "the process that played it said nothing for " +
                                       std::to_string(patience.count() / 1000) + " s and was ended"
                                 : "the process that played it ended " + endText(status);
    const std::string words = endOf(player.errors.number());
    if (!words.empty()) died.seen += "; its last words:\n" + words;
    return died;
  }

  void endTheSilent() {
    for (Player& player : players) {
      if (player.wasSilent || Clock::now() - player.heardAt < patience) continue;
      player.wasSilent = true;
      ::kill(-player.process, SIGKILL);
    }
  }
};

Players::Players(unsigned most, std::chrono::milliseconds patience)
    : inside_(std::make_unique<Inside>(Inside{.most = most, .patience = patience})) {}

Players::~Players() {
  for (Player& player : inside_->players) {
    ::kill(-player.process, SIGKILL);
    static_cast<void>(inside_->takeVerdict(player));
  }
  ::close(inside_->goesOn.out);
  breakOff();
  std::error_code ignored;
  std::filesystem::remove_all(inside_->folder, ignored);
}

bool Players::allBusy() const { return inside_->players.size() >= inside_->most; }
bool Players::allIdle() const { return inside_->players.empty(); }

void Players::begin(std::uint64_t number, const Play& play) {
  Pipe news;
  const int errors = lives::namelessFile();
  std::fflush(nullptr);
  const pid_t process = ::fork();
  if (process < 0) throw std::system_error(errno, std::generic_category(), "fork");
  // Both set it, so that it is set for either: control-C at the terminal is for the lab alone.
  ::setpgid(process, process);
  if (process == 0) {
    for (const int signal : {SIGINT, SIGTERM, SIGPIPE}) std::signal(signal, SIG_DFL);
    ::close(news.out);
    ::close(inside_->goesOn.in);
    ::dup2(errors, STDERR_FILENO);
    ::close(errors);
    lives::setScratchRoot(inside_->folder);
    playAndTell(play, news.in, inside_->goesOn.out);
  }
  ::close(news.in);
  inside_->players.push_back(
      {.number = number, .process = process, .news = File(news.out), .errors = File(errors)});
}

std::vector<Players::Ended> Players::wait(std::chrono::milliseconds atMost) {
  std::vector<pollfd> looks;
  for (const Player& player : inside_->players) {
    looks.push_back({.fd = player.news.number(), .events = POLLIN, .revents = 0});
  }
  std::vector<Ended> ended;
  const auto longest = static_cast<int>(std::min(atMost, inside_->patience).count());
  if (::poll(looks.data(), looks.size(), longest) < 0) return ended;
  auto player = inside_->players.begin();
  for (const pollfd& look : looks) {
    const auto here = player++;
    if (look.revents == 0 || !inside_->hear(*here)) continue;
    ended.push_back({here->number, inside_->takeVerdict(*here)});
    inside_->players.erase(here);
  }
  inside_->endTheSilent();
  return ended;
}

double Players::secondsUnderWay() const {
  double seconds = 0;
  for (const Player& player : inside_->players) seconds += player.seconds;
  return seconds;
}

void Players::breakOff() {
  if (inside_->goesOn.in >= 0) ::close(inside_->goesOn.in);
  inside_->goesOn.in = -1;
}

}  // namespace brisko::lab
