// policy/maintenance_wake.h
// In a maintenance wake the display stays off and a discharge can't be verified, so none is started. If a
// wanted discharge has to wait, that is logged once for each series of such wakes.
#pragma once

#include <cstdint>

namespace brisko {

struct WakeInputs {
  bool full = true;          // the wake; otherwise it is a maintenance wake
  bool dischargeOn = false;  // wanted and allowed
  std::int64_t pct = 0;
  std::int64_t target = 80;  // down to which it would discharge
  bool waitLogged = false;   // by an earlier tick
};

struct WakeDecision {
  bool dischargeNow = false;  // a discharge may run
  bool logWait = false;       // to be logged in this tick
  bool waitLogged = false;    // for the next tick
  bool operator==(const WakeDecision&) const = default;
};

[[nodiscard]] WakeDecision decideWake(const WakeInputs& inputs);

}  // namespace brisko
