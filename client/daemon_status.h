// client/daemon_status.h
// The status file as a client needs it. Any version of the daemon may have written it, so only the values
// without which the client cannot work are required.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/json_file.h"
#include "state/calibration_state.h"
#include "state/charge_state_record.h"

namespace brisko::client {

struct CalibrationStatus {
  CalPhase phase = CalPhase::idle;
  double startedAt = 0;
  double phaseSince = 0;
  std::int64_t soakBanked = 0;  // seconds
  std::int64_t soakSeconds = 0;
  std::int64_t drainTarget = 0;  // percent
  std::vector<CalRun> runs = {};
  std::optional<CalFailure> lastFailure = {};
};

struct DaemonStatus {
  ChargeState state = ChargeState::allow;
  std::int64_t pct = 0;
  double ts = 0;  // when it was written, wall clock
  bool plugged = false;
  std::int64_t upper = 80;  // percent
  bool enabled = true;
  bool discharge = false;  // wanted and allowed
  bool hot = false;
  bool topUp = false;
  bool dischargeSupported = false;
  bool dischargeFailed = false;
  bool ledSupported = false;
  std::optional<bool> gateVerified = {};
  std::optional<std::int64_t> nativeFloor = {};
  std::optional<double> temperature = {};  // °C
  std::optional<double> startedAt = {};    // of the daemon
  std::string chargeMode = {};             // empty when unknown
  std::string daemonVersion = {};
  std::string daemonPath = {};
  CalibrationStatus calibration = {};
  std::vector<std::string> guards = {};  // that are on
  std::optional<double> nextWake = {};   // wall clock, of a sleeping Mac that charges
  std::optional<double> fullUntil = {};  // wall clock: a full charge asked of macOS is waited for
  bool dischargeUnseen = false;          // it is wanted, but a cut adapter could not be seen
};

// None when it lacks the state, the charge or the time.
[[nodiscard]] std::optional<DaemonStatus> daemonStatusIn(const Json& object);

}  // namespace brisko::client
