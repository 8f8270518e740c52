#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "figures.h"
#include "sim/process/scratch.h"

namespace brisko::bench {
namespace {

std::string sibling(const std::string& name) {
  std::error_code ignored;
  return (std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / name).string();
}

void sleepFor(double seconds) {
  const auto whole = static_cast<time_t>(seconds);
  const timespec time{whole, static_cast<long>((seconds - static_cast<double>(whole)) * 1e9)};
  static_cast<void>(::nanosleep(&time, nullptr));
}

// A program that runs until it is ended; its output is discarded.
class Running {
 public:
  Running(std::vector<std::string> words, const std::string& machine) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) variables.emplace_back(*variable);
    variables.push_back("BRISKO_VIRTUAL_MAC=" + machine);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (::posix_spawn(&pid_, words[0].c_str(), &actions, nullptr, pointers(words).data(),
                      pointers(variables).data()) != 0) {
      pid_ = 0;
    }
    ::posix_spawn_file_actions_destroy(&actions);
  }
  ~Running() {
    if (pid_ == 0) return;
    ::kill(pid_, SIGTERM);
    static_cast<void>(wait());
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }
  // `usage` is that of the whole program.
  bool wait(rusage* usage = nullptr) {
    int status = 0;
    while (::wait4(pid_, &status, 0, usage) < 0 && errno == EINTR) {
    }
    pid_ = 0;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

 private:
  static std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> list;
    for (std::string& word : words) list.push_back(word.data());
    list.push_back(nullptr);
    return list;
  }
  pid_t pid_ = 0;
};

class Machine {
 public:
  Machine() {
    made_ = vmac({"new", folder(), "--charge", "80", "--speed", "1"});
    const std::string data = folder() + "/volume/Library/Application Support/Brisko";
    std::error_code ignored;
    std::filesystem::create_directories(data, ignored);
    std::ofstream(data + "/config.json") << "{\"enabled\":true,\"limit\":80,\"hysteresis\":5}";
  }

  [[nodiscard]] bool made() const { return made_; }
  [[nodiscard]] std::string folder() const { return scratch_.path("mac"); }
  [[nodiscard]] bool hold() { return vmac({"key", folder(), "CHTE=01000000"}); }
  [[nodiscard]] bool speed(double factor) { return vmac({"speed", folder(), std::to_string(factor)}); }

 private:
  bool vmac(std::vector<std::string> words) {
    words.insert(words.begin(), sibling("brisko-vmac"));
    Running command(words, folder());
    return command.pid() != 0 && command.wait();
  }
  sim::ScratchFolder scratch_{"brisko-bench"};
  bool made_ = false;
};

struct LoadSample {
  double machineMinutes = 0;
  double waits = 0;
  double cpuSeconds = 0;
};

// Measures a process while the machine runs at `speed` for `seconds` of real time.
LoadSample observe(Machine& machine, pid_t pid, double speed, double seconds) {
  if (!machine.speed(speed)) return {};
  sleepFor(0.3);  // the change of speed causes a wake-up of its own
  const ProcessFigures before = processFigures(pid);
  const double start = realNow();
  sleepFor(seconds);
  const ProcessFigures after = processFigures(pid);
  return {(realNow() - start) * speed / 60, after.waits - before.waits, after.cpuSeconds - before.cpuSeconds};
}

// The slowest of many runs, from the start of the program to its end, in milliseconds. Below 0 when one
// failed.
double slowestProbe(const Machine& machine) {
  constexpr int times = 50;
  double slowest = 0;
  for (int count = 0; count < times; ++count) {
    const double start = realNow();
    Running probe({sibling("brisko-daemon"), "--probe"}, machine.folder());
    if (probe.pid() == 0 || !probe.wait()) return -1;
    slowest = std::max(slowest, (realNow() - start) * 1000);
  }
  return slowest;
}

// Of "brisko status" while the daemon runs: the median of many runs. Empty when one failed.
std::vector<Figure> clientFigures(const Machine& machine) {
  constexpr int times = 50;
  std::vector<double> milliseconds;
  std::vector<double> megabytes;
  for (int count = 0; count < times; ++count) {
    Running status({sibling("brisko"), "status"}, machine.folder());
    rusage usage{};
    if (status.pid() == 0 || !status.wait(&usage)) return {};
    const auto inMilliseconds = [](const timeval& time) {
      return static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
    };
    milliseconds.push_back(inMilliseconds(usage.ru_utime) + inMilliseconds(usage.ru_stime));
    megabytes.push_back(static_cast<double>(usage.ru_maxrss) / 1024);
  }
  std::sort(milliseconds.begin(), milliseconds.end());
  std::sort(megabytes.begin(), megabytes.end());
  return {{"brisko status, processor time", milliseconds[times / 2], "ms", Target::atMost, 20},
          {"brisko status, memory", megabytes[times / 2], "MB", Target::atMost, 10}};
}

double microsecondsPerTick(const LoadSample& sample) {
  constexpr double ticksPerMinute = 5;
  return sample.cpuSeconds * 1e6 / (sample.machineMinutes * ticksPerMinute);
}

}  // namespace

std::vector<Figure> liveFigures() {
  constexpr double gentle = 30;  // speeds
  constexpr double hurried = 1200;
  Machine machine;
  if (!machine.made()) return {};
  const double probe = slowestProbe(machine);
  if (probe < 0) return {};
  std::vector<Figure> figures;
  figures.push_back({"--probe answers, the slowest of 50", probe, "ms", Target::atMost, 50});
  LoadSample daemonSample;
  {
    const Running daemon({sibling("brisko-daemon")}, machine.folder());
    sleepFor(1);
    const LoadSample steady = observe(machine, daemon.pid(), gentle, 10);
    const ProcessFigures process = processFigures(daemon.pid());
    if (process.threads == 0) return {};
    figures.push_back({"threads", process.threads, "", Target::atMost, 1});
    figures.push_back({"resident memory", process.residentKB / 1024, "MB", Target::atMost, 4});
    figures.push_back({"private memory", process.privateKB / 1024, "MB"});
    figures.push_back(
        {"wake-ups a minute in a steady hold", steady.waits / steady.machineMinutes, "", Target::atMost, 8});
    for (const Figure& figure : clientFigures(machine)) figures.push_back(figure);
    daemonSample = observe(machine, daemon.pid(), hurried, 5);
  }
  // The daemon handed the charge back when it ended. Restore the same steady hold for the floor program.
  if (!machine.hold()) return {};
  const Running floor({sibling("brisko-baseline")}, machine.folder());
  sleepFor(0.5);
  const LoadSample baselineSample = observe(machine, floor.pid(), hurried, 5);
  const double own = microsecondsPerTick(daemonSample);
  const double least = microsecondsPerTick(baselineSample);
  figures.push_back({"processor time per tick, whole loop", own, "us"});
  figures.push_back({"processor time per tick of the floor program", least, "us"});
  figures.push_back({"the daemon's as a multiple of the floor's", own / least, "", Target::atMost, 2});
  return figures;
}

}  // namespace brisko::bench
