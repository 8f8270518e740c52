#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include "base/json_file.h"
#include "base/options.h"
#include "base/paths.h"
#include "base/settings.h"
#include "base/volume_path.h"
#include "figures.h"
#include "hardware/adapter.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "platform/run_loop.h"
#include "policy/evaluation.h"
#include "records/history.h"
#include "records/statistics.h"
#include "records/status.h"
#include "sim/machine/machine_store.h"
#include "sim/process/kept_files.h"
#include "sim/seam/simulated/driver.h"

namespace brisko::bench {
namespace {

constexpr double year = 365 * 86'400.0;  // seconds

double processorNow() {
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now));
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Seconds per year when `work` runs every `interval` seconds, from the fastest of several rounds.
double yearOf(double interval, const std::function<void()>& work) {
  constexpr int rounds = 5;
  constexpr int times = 4000;
  double fastest = std::numeric_limits<double>::infinity();
  for (int round = 0; round < rounds; ++round) {
    const double start = processorNow();
    for (int count = 0; count < times; ++count) work();
    fastest = std::min(fastest, (processorNow() - start) / times);
  }
  return fastest * year / interval;
}

// The same machine and the same timers in virtual time, with timers that do nothing.
double yearOfTheMachine() {
  constexpr double days = 20 * 86'400.0;
  const double begin = virtual_mac::attachedMachine()->view().machine().now;
  const platform::TimerToken heartbeat = platform::addRepeatingTimer(12, [] {});
  const platform::TimerToken statistics = platform::addRepeatingTimer(20, [] {});
  virtual_mac::setHorizon(begin + days, [] {
    platform::stopMain();
    return std::numeric_limits<double>::infinity();
  });
  const double start = processorNow();
  platform::runMain();
  const double seconds = processorNow() - start;
  platform::invalidateTimer(heartbeat);
  platform::invalidateTimer(statistics);
  return seconds * year / days;
}

void drop(bool) {}

// The controller queries of a tick in a steady hold.
void askController() {
  drop(readTemp().has_value());
  for (int times = 0; times < 4; ++times) drop(adapterPresent());
  drop(gGate->chargingIsStopped());
  drop(readFirstByte("ACLC").has_value());
}

void askRegistry() {
  drop(powerState().has_value());
  drop(systemCapabilities().has_value());
  drop(amperageNow().has_value());
}

void writeAnotherStatus() {
  static std::int64_t times = 0;
  writeStatus({.state = ChargeState::hold, .pct = ++times, .plugged = true, .temp = 30.0});
}

void writeAnotherLine() {
  static bool plugged = false;
  plugged = !plugged;
  recordSample({.pct = 80, .state = ChargeState::hold, .plugged = plugged, .temp = 30.0}, Settings{});
}

}  // namespace

std::vector<Figure> partsOfAYear(double wholeSeconds) {
  constexpr double tick = 12;  // seconds between two of them
  constexpr double statusTick = 24;
  constexpr double statisticsInterval = 20;
  constexpr double line = 300;
  const int kept = ::dup(STDOUT_FILENO);
  const int nowhere = ::open("/dev/null", O_WRONLY);
  std::fflush(stdout);
  ::dup2(nowhere, STDOUT_FILENO);
  keepFiles();

  evaluate();
  const double configuration = yearOf(tick, [] { drop(readConfig(gConfigPath).has_value()); });
  const double controller = yearOf(tick, askController);
  const double registry = yearOf(tick, askRegistry);
  const double deciding = yearOf(tick, evaluate) - configuration - controller - registry;
  const double status = yearOf(statusTick, writeAnotherStatus);
  const double statusFile = yearOf(statusTick, [&] { writeJsonFile(onVolume(statusPath), Json("x")); });
  const double statistics = yearOf(statisticsInterval, writeStats);
  const double history = yearOf(line, writeAnotherLine);
  const double machine = yearOfTheMachine();

  sim::resumeWithFiles(false);  // the ticks that follow are those of a Mac
  ::dup2(kept, STDOUT_FILENO);
  ::close(kept);
  ::close(nowhere);
  const double told =
      machine + configuration + controller + registry + deciding + status + statistics + history;
  return {{"… the machine's own physics and its run loop", machine, "s"},
          {"… reading the configuration", configuration, "s"},
          {"… asking the controller", controller, "s"},
          {"… asking the power sources and the registry", registry, "s"},
          {"… deciding and verifying", deciding, "s"},
          {"… the status: values and JSON", status - statusFile, "s"},
          {"… the status: its file", statusFile, "s"},
          {"… the statistics, every 20 s", statistics, "s"},
          {"… the history, every 300 s", history, "s"},
          {"… not accounted for", wholeSeconds - told, "s"}};
}

}  // namespace brisko::bench
