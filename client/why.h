// client/why.h
// Why the daemon does what it does, as one sentence, and what would change it. A pure function of what the
// files, the job's arguments and the last 15 minutes of history show.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/settings.h"
#include "client/daemon_status.h"
#include "client/recent_history.h"
#include "policy/charge_bounds.h"

namespace brisko::client {

// In the order in which they are considered: the first that applies is the answer.
enum class Reason : std::uint8_t {
  notInstalled,
  starting,      // the Mac was just started
  notRunning,    // also: its status is out of date
  clockSetBack,  // the status is from the future
  purged,        // all data was erased, and the daemon writes nothing until it is restarted
  dormant,       // the app is gone
  released,      // the app is about to remove the service
  keysClosed,    // this macOS closed the keys: the daemon only observes
  disobeyed,     // charging continues although it was stopped
  off,
  hot,
  calibrationFill,
  calibrationDrain,
  calibrationDrainWaits,  // for the adapter to be unplugged
  calibrationRefill,
  calibrationSoak,
  calibrationRestore,
  unplugged,
  fullOnce,
  fullByMacOS,  // asked for in the Battery menu, and waited for
  discharging,
  dischargeGivenUp,  // the hardware did not follow
  dischargeUnseen,   // a cut adapter could not be told from an unplugged one
  dischargeWaits,    // for a full wake
  atLimit,
  aboveLimit,
  insideBand,
  limitOverridden,  // macOS charges beyond its own limit
  charging,
  noCurrent,  // charging is allowed, but no current flows
};

// Its name in JSON, e.g. "insideBand".
[[nodiscard]] const char* codeOf(Reason reason);

enum class UntilKind : std::uint8_t { percent, temperature, time, event };
struct Until {
  UntilKind kind = UntilKind::event;
  double value = 0;                               // percent, °C, or seconds since 1970
  std::string event = {};                         // of an event: "unplugged", "pluggedIn" …
  std::optional<std::int64_t> aboutMinutes = {};  // until then, by the recent slope
};

struct Answer {
  Reason reason = Reason::notInstalled;
  std::string text = {};
  std::optional<Until> until = {};
};

// Why the daemon does nothing, by its last log lines.
enum class Resting : std::uint8_t { no, purged, dormant, released };

struct Situation {
  double now = 0;  // wall clock
  bool installed = true;
  std::optional<bool> running = {};     // by the launch service
  std::optional<double> bootedAt = {};  // of the Mac
  std::optional<double> wokeAt = {};
  bool asleep = false;
  std::optional<DaemonStatus> status = {};
  Resting resting = Resting::no;
  Settings settings = {};  // in force
  Bounds band = {};        // by settings and the job's arguments
  double topUpSince = 0;   // 0: none runs
  std::vector<RecentSample> recent = {};
};

enum class Freshness : std::uint8_t { fresh, stale, fromTheFuture };
// How current the status is; stale without one. Sleep and the 15 s after a wake do not count.
[[nodiscard]] Freshness freshnessOf(const Situation& situation);

// Where charging stops: the limit in force, which is higher than that in the settings if macOS accepts none
// that is lower.
[[nodiscard]] std::int64_t limitInForce(const DaemonStatus& status);

[[nodiscard]] Answer why(const Situation& situation);

}  // namespace brisko::client
