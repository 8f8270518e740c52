#include "sim/what_if/play_days.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/files.h"
#include "sim/machine/machine.h"
#include "sim/process/scratch.h"
#include "sim/replay/play.h"

namespace brisko::lab {
namespace {

static_assert(std::is_trivially_copyable_v<PlayedMoment>);

// --- One play

constexpr double watchEvery = 300;  // seconds; a Mac that is awake writes its history as often

// What the daemon does not see: the charge while the Mac sleeps, and its wakes.
class SleepWatch {
 public:
  void look(const virtual_mac::Machine& machine) {
    const double now = virtual_mac::wallClock(machine);
    const std::uint64_t wakes = machine.sleep.wakes;
    if (isNight(now)) nightWakes_ += static_cast<std::size_t>(wakes - wakesBefore_);
    wakesBefore_ = wakes;
    if (!machine.system.asleep) return;
    asleep_.push_back({.time = now,
                       .percent = static_cast<double>(machine.gauge.percent),
                       .temperatureC = machine.battery.temperatureC,
                       .plugged = machine.adapter.present});
  }

  // The moments of the daemon and those of the sleep, in order of time. Asleep the state stays as it is.
  [[nodiscard]] PlayedDays with(const std::vector<PlayedMoment>& daemons) const {
    PlayedDays days{.nightWakes = nightWakes_};
    std::merge(daemons.begin(), daemons.end(), asleep_.begin(), asleep_.end(),
               std::back_inserter(days.moments),
               [](const PlayedMoment& one, const PlayedMoment& other) { return one.time < other.time; });
    std::size_t next = 0;
    const PlayedMoment* latest = nullptr;
    for (PlayedMoment& moment : days.moments) {
      while (next < daemons.size() && daemons[next].time <= moment.time) latest = &daemons[next++];
      if (latest == nullptr) continue;
      moment.state = latest->state;
      moment.hot = latest->hot;
    }
    return days;
  }

 private:
  std::uint64_t wakesBefore_ = 0;
  std::size_t nightWakes_ = 0;
  std::vector<PlayedMoment> asleep_ = {};
};

// --- Its process

bool writeAll(int file, const void* bytes, std::size_t count) {
  const char* place = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = ::write(file, place, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    place += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

[[noreturn]] void playAndReport(const Reconstruction& reconstruction, const std::string& scratch,
                                int pipe) noexcept {
  try {
    sim::setScratchRoot(scratch);
    const PlayedDays days = playDays(reconstruction);
    const bool isWritten = writeAll(pipe, &days.nightWakes, sizeof days.nightWakes) &&
                           writeAll(pipe, days.moments.data(), days.moments.size() * sizeof(PlayedMoment));
    ::_exit(isWritten ? 0 : 1);
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "%s\n", error.what()));
    ::_exit(1);
  }
}

PlayedDays daysIn(const std::string& bytes) {
  PlayedDays days;
  const std::size_t begin = sizeof days.nightWakes;
  if (bytes.size() < begin || (bytes.size() - begin) % sizeof(PlayedMoment) != 0)
    throw std::runtime_error("a play of these days was cut off");
  std::memcpy(&days.nightWakes, bytes.data(), begin);
  days.moments.resize((bytes.size() - begin) / sizeof(PlayedMoment));
  std::memcpy(days.moments.data(), bytes.data() + begin, bytes.size() - begin);
  return days;
}

class Play {
 public:
  Play(std::size_t number, const Reconstruction& reconstruction, const std::string& scratch)
      : number_(number) {
    std::array<int, 2> ends{-1, -1};
    if (::pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    output_ = Descriptor(ends[0]);
    const Descriptor writing(ends[1]);
    static_cast<void>(::fcntl(output_.number(), F_SETFD, FD_CLOEXEC));
    process_ = ::fork();
    if (process_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (process_ > 0) return;
    // A group of its own, which ends with it: the process of its daemon too.
    static_cast<void>(::setpgid(0, 0));
    playAndReport(reconstruction, scratch, writing.number());
  }
  ~Play() {
    if (process_ > 0) static_cast<void>(end(SIGKILL));
  }
  Play(Play&& other) noexcept
      : number_(other.number_),
        process_(std::exchange(other.process_, 0)),
        output_(std::move(other.output_)),
        bytes_(std::move(other.bytes_)) {}
  Play& operator=(Play&& other) noexcept {
    std::swap(number_, other.number_);
    std::swap(process_, other.process_);
    std::swap(output_, other.output_);
    std::swap(bytes_, other.bytes_);
    return *this;
  }
  Play(const Play&) = delete;
  Play& operator=(const Play&) = delete;

  [[nodiscard]] std::size_t number() const { return number_; }
  [[nodiscard]] int output() const { return output_.number(); }

  // False at the end of its output.
  bool read() {
    std::array<char, 65'536> piece;
    const ssize_t count = ::read(output_.number(), piece.data(), piece.size());
    if (count > 0) bytes_.append(piece.data(), static_cast<std::size_t>(count));
    return count > 0 || (count < 0 && errno == EINTR);
  }

  [[nodiscard]] PlayedDays result() {
    if (end(0) != 0) throw std::runtime_error("these days could not be played");
    return daysIn(bytes_);
  }

 private:
  int end(int signal) {
    if (signal != 0) static_cast<void>(::kill(process_, signal));
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) continue;
    static_cast<void>(::kill(-process_, SIGKILL));
    process_ = 0;
    return status;
  }

  std::size_t number_;
  pid_t process_ = 0;
  Descriptor output_ = {};
  std::string bytes_ = {};
};

// --- Signals

volatile std::sig_atomic_t gAskedToEnd = 0;

// While it exists, signals that end a program only interrupt what waits.
class EndSignals {
 public:
  EndSignals() {
    gAskedToEnd = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { gAskedToEnd = 1; };
    for (std::size_t index = 0; index < signals.size(); ++index)
      static_cast<void>(::sigaction(signals.at(index), &action, &before_.at(index)));
  }
  ~EndSignals() {
    for (std::size_t index = 0; index < signals.size(); ++index)
      static_cast<void>(::sigaction(signals.at(index), &before_.at(index), nullptr));
  }
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;

 private:
  static constexpr std::array signals{SIGINT, SIGTERM, SIGHUP};
  std::array<struct sigaction, signals.size()> before_ = {};
};

// Reads what has come, and removes those that have ended.
void takeResults(std::vector<Play>& plays, std::vector<PlayedDays>& results) {
  constexpr int milliseconds = 200;  // a signal may come just before the wait
  std::vector<pollfd> waits;
  for (const Play& each : plays) waits.push_back({.fd = each.output(), .events = POLLIN, .revents = 0});
  if (::poll(waits.data(), static_cast<nfds_t>(waits.size()), milliseconds) <= 0) return;
  for (std::size_t index = plays.size(); index-- > 0;) {
    if (waits[index].revents == 0 || plays[index].read()) continue;
    results[plays[index].number()] = plays[index].result();
    plays.erase(plays.begin() + static_cast<std::ptrdiff_t>(index));
  }
}

}  // namespace

PlayedDays playDays(const Reconstruction& reconstruction) {
  SleepWatch watch;
  const Trace trace =
      play(reconstruction, {.longestPass = watchEvery,
                            .look = [&watch](const virtual_mac::Machine& machine) { watch.look(machine); }});
  return watch.with(momentsOf(trace));
}

std::optional<std::vector<PlayedDays>> playAll(const std::vector<Reconstruction>& reconstructions,
                                               const std::function<void(std::size_t)>& finished) {
  const std::size_t most = std::max(1U, std::thread::hardware_concurrency());
  const EndSignals signals;
  const sim::ScratchFolder scratch("brisko-what-if");
  std::vector<PlayedDays> results(reconstructions.size());
  std::vector<Play> plays;
  std::size_t begun = 0;
  while (begun < reconstructions.size() || !plays.empty()) {
    if (gAskedToEnd != 0) return std::nullopt;
    if (begun < reconstructions.size() && plays.size() < most) {
      plays.emplace_back(begun, reconstructions[begun], scratch.path());
      ++begun;
      continue;
    }
    const std::size_t before = plays.size();
    takeResults(plays, results);
    if (finished && plays.size() < before) finished(begun - plays.size());
  }
  return results;
}

}  // namespace brisko::lab
