// power/sleep.h
// What happens to the charge while the Mac sleeps. Asleep, the daemon runs no ticks: the gate's state at that
// moment stays all night. So it is decided when the sleep is announced.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/system_power.h"
#include "policy/charge_bounds.h"

namespace brisko {

class SleepPlan {
 public:
  // Keep charging toward `percent`, and wake on the way to take control again.
  [[nodiscard]] static constexpr SleepPlan carryOn(std::int64_t percent) { return {Kind::carryOn, percent}; }
  // Stop charging now and keep the charge where it is.
  [[nodiscard]] static constexpr SleepPlan freeze() { return {Kind::freeze, 0}; }
  // Change nothing.
  [[nodiscard]] static constexpr SleepPlan leaveAlone() { return {Kind::leaveAlone, 0}; }

  [[nodiscard]] constexpr bool isFreeze() const { return kind_ == Kind::freeze; }
  // The percentage that a plan to carry on aims at; none for other plans.
  [[nodiscard]] constexpr std::optional<std::int64_t> target() const {
    return kind_ == Kind::carryOn ? std::optional(target_) : std::nullopt;
  }
  bool operator==(const SleepPlan&) const = default;

 private:
  enum class Kind : std::uint8_t { carryOn, freeze, leaveAlone };
  constexpr SleepPlan(Kind kind, std::int64_t target) : kind_(kind), target_(target) {}
  Kind kind_;
  std::int64_t target_;  // 0 unless it carries on
};

// The inputs of the plan.
struct SleepSituation {
  std::int64_t pct = 0;
  Bounds band;
  bool adapterPresent = true;
  bool enabled = true;  // the limit is switched on
  bool topUp = false;
  bool calibrating = false;
};
[[nodiscard]] SleepPlan planSleep(const SleepSituation& now);

// Minutes until a charge from one percentage to another should be done. 0 when there is nothing to charge,
// else 5 … 45, so that the Mac wakes neither too early nor too late. 20 when the current (mA) or the design
// capacity (mAh) is unknown or the battery hardly charges.
[[nodiscard]] std::int64_t minutesToCharge(std::int64_t from, std::int64_t to,
                                           std::optional<std::int64_t> designMAh,
                                           std::optional<std::int64_t> amperageMA);
// The same with the battery's present readings.
[[nodiscard]] std::int64_t minutesToCharge(std::int64_t from, std::int64_t to);

// Plans for the coming sleep and carries out the plan. Does nothing without a gate whose keys we write or
// while the daemon is dormant; macOS keeps its own limit through sleep.
void prepareForSleep();

inline platform::RootPowerPort gRootPort = 0;  // where answers are sent; 0: not registered

// With the guard "night": a process that starts in a dark wake has missed the announcement of the sleep.
void watchSleepFromStart();

// Handles the system's announcements. Sleep is always allowed, but only after the plan is carried out.
void systemPowerCallback(platform::PowerMessage message, std::intptr_t argument);

}  // namespace brisko
