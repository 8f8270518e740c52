#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "platform/clock.h"
#include "platform/registry.h"
#include "platform/run_loop.h"
#include "platform/system_power.h"
#include "tools/first_light/questions.h"

namespace brisko::first_light {
namespace {

constexpr double interval = 1;      // seconds of uptime
constexpr double leastSleep = 2.5;  // a shorter difference of the clocks is no sleep

std::string text(double seconds) {
  std::array<char, 32> digits{};
  static_cast<void>(std::snprintf(digits.data(), digits.size(), "%.1f", seconds));
  return digits.data();
}

// With the name that the system's headers give it.
std::string nameOf(platform::PowerMessage message) {
  switch (static_cast<std::uint32_t>(message)) {
    case 0xE0000270:
      return "CanSystemSleep";
    case 0xE0000280:
      return "WillSleep";
    case 0xE0000290:
      return "WillNotSleep";
    case 0xE0000300:
      return "HasPoweredOn";
    case 0xE0000320:
      return "WillPowerOn";
    default:
      break;
  }
  std::array<char, 16> digits{};
  static_cast<void>(
      std::snprintf(digits.data(), digits.size(), "0x%08X", static_cast<unsigned int>(message)));
  return digits.data();
}

std::string property(const char* key) {
  const auto value = platform::registryProperty("IOPMrootDomain", key);
  if (!value) return "?";
  if (const auto number = value->asInteger()) return std::to_string(*number);
  if (const auto flag = value->asBoolean()) return *flag ? "yes" : "no";
  return "?";
}

// Every line begins with the seconds since the start by the wall clock, which also counts while the Mac
// sleeps.
class Listener {
 public:
  void report(const std::string& what) {
    answer(text(platform::wallNow() - begun_), what + ", capabilities " + property("System Capabilities"));
  }

  void heard(platform::PowerMessage message, std::intptr_t argument) {
    noteSleep();
    report(nameOf(message));
    const bool asks = message == platform::PowerMessage::canSystemSleep ||
                      message == platform::PowerMessage::systemWillSleep;
    if (asks) platform::allowPowerChange(port, argument);
  }

  // In a dark wake no message comes, but timers run.
  void tick() {
    noteSleep();
    const std::string now = property("System Capabilities");
    if (now == capabilities_) return;
    capabilities_ = now;
    report("changed");
  }

  platform::RootPowerPort port = 0;

 private:
  void noteSleep() {
    const double apart = platform::wallNow() - platform::uptime();
    if (apart > apart_ + leastSleep) report("slept " + text(apart - apart_) + " s");
    apart_ = apart;
  }

  double begun_ = platform::wallNow();
  double apart_ = platform::wallNow() - platform::uptime();
  std::string capabilities_ = property("System Capabilities");
};

}  // namespace

int listenForPower() {
  static Listener listener;
  const auto registration = platform::registerSystemPower(
      [](platform::PowerMessage message, std::intptr_t argument) { listener.heard(message, argument); });
  listener.port = registration.rootPort;
  listener.report("listening, lid closed: " + property("AppleClamshellState"));
  if (!registration.notifying) return 1;
  platform::addSignalSource(SIGTERM, platform::stopMain);
  static_cast<void>(platform::addRepeatingTimer(interval, [] { listener.tick(); }));
  platform::runMain();
  listener.report("ended");
  return 0;
}

}  // namespace brisko::first_light
