#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "figures.h"
#include "running.h"
#include "sim/process/scratch.h"

namespace brisko::bench {
namespace {

void sleepFor(double seconds) {
  const auto whole = static_cast<time_t>(seconds);
  const timespec time{whole, static_cast<long>((seconds - static_cast<double>(whole)) * 1e9)};
  static_cast<void>(::nanosleep(&time, nullptr));
}

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
    return command.wait().has_value();
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
    if (!probe.wait()) return -1;
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
    const auto usage = status.wait();
    if (!usage) return {};
    milliseconds.push_back(usage->cpuSeconds * 1000);
    megabytes.push_back(usage->megabytes);
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
