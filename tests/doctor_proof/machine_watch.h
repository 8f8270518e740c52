// tests/doctor_proof/machine_watch.h
// What a virtual Mac and its user have really been doing, so that an alarm of the doctor can be compared with
// it. Of the daemon's files only the settings are read, for the limit that the user chose.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string_view>

#include "sim/process/simulation.h"
#include "sim/scenario/generated_scenario.h"

namespace brisko::proof {

// The Mac at one moment.
struct Sight {
  double time = 0;           // machine time
  std::int64_t percent = 0;  // that macOS shows
  std::int64_t limit = 0;    // percent, that the user wrote
  double temperatureC = 0;   // likewise
  double watts = 0;          // into the battery, likewise
  double chargeMAh = 0;      // that the battery really has
  bool adapter = false;      // that reaches the battery
  bool awake = false;
  bool isOpen = false;     // charging, by the keys and by macOS's own limit
  bool isStopped = false;  // … a key says that it is to stop, at any charge or at a band's edge
};

class MachineWatch {
 public:
  // The scenario must outlive it.
  explicit MachineWatch(const lab::GeneratedScenario& scenario) : scenario_(scenario) {}

  void begin(double machineTime) { begin_ = machineTime; }
  // After each step of the scenario, and once in each period.
  void see(const sim::Simulation& simulation);
  static constexpr std::int64_t period = 120;  // seconds

  // --- What the user did

  // The app asked a daemon for this ("purge" or "release").
  [[nodiscard]] bool wasAsked(std::string_view request) const;
  // A calibration was asked for, at least so many seconds ago.
  [[nodiscard]] bool calibrationWasAskedFor(double secondsAgo) const;
  // The limit that the user last chose in macOS's own settings; none while it is untouched.
  [[nodiscard]] std::optional<std::int64_t> limitByHand() const;
  // The app was missing while a daemon ran, and one has run ever since.
  [[nodiscard]] bool appWasMissing() const { return appWasMissing_; }

  // --- What the Mac did

  // The sights of the last seconds, the oldest first: at least the latest one.
  [[nodiscard]] std::deque<Sight> since(double seconds) const;

 private:
  const lab::GeneratedScenario& scenario_;
  double begin_ = 0;
  bool appWasMissing_ = false;
  std::deque<Sight> sights_ = {};
};

}  // namespace brisko::proof
