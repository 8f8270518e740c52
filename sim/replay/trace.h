// sim/replay/trace.h
// What a daemon leaves behind of its days: the lines of its history and of its log. A report and a replay are
// read by the same functions, so that they can be compared.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "report/picture.h"
#include "state/charge_state_record.h"

namespace brisko::lab {

// The settings as far as a summary in the log shows them.
struct SummarySettings {
  bool enabled = true;
  std::int64_t limit = 0;  // percent; without a meaning unless enabled
  bool topUp = false;
  bool discharge = false;
  std::string phase = {};  // of a calibration; empty without one
  std::int64_t phaseTarget = 0;
  bool operator==(const SummarySettings&) const = default;
};

// What the daemon saw in one tick.
struct Sighting {
  double time = 0;  // wall clock, seconds since 1970
  std::int64_t percent = 0;
  ChargeState state = ChargeState::allow;
  std::optional<bool> plugged = {};  // a summary does not show it during a discharge
  bool hot = false;
  std::optional<double> temperatureC = {};
  std::optional<double> watts = {};  // into the battery; the history has it, the log has not
  bool inHistory = false;
  std::optional<SummarySettings> settings = {};  // of a summary
};

struct Trace {
  std::vector<Sighting> sightings = {};  // in order of time
  std::vector<LoggedLine> lines = {};    // all others of the log, without their stamps, in order of time
  std::vector<LoggedLine> earlier = {};  // such lines from before the days that it covers
};

// A line of the history; none when it is broken. `midnight`: the day's of its file in UTC.
[[nodiscard]] std::optional<Sighting> readSample(const std::string& line, double midnight);

// A summary without its stamp: "cap 80%  batt 72%  31.5°C  ac  state=allow  LED=orange".
[[nodiscard]] std::optional<Sighting> readSummary(std::string_view message, double time);

// The stamp of a line of the log, as seconds since 1970; none when the line has none.
[[nodiscard]] std::optional<double> stampOf(std::string_view line);

// Adds the lines of a log. Returns how many have no stamp, or are a summary that cannot be read.
std::size_t readLog(std::string_view text, Trace& trace);

// Brings the sightings and the lines into the order of their times, those of equal times as they were added.
void arrange(Trace& trace);

// Seconds from the start of the daemon to its first sample, at most.
inline constexpr double longestStartUp = 120;

// When a line says that the daemon started, and that it ended in an orderly way.
[[nodiscard]] bool isStart(const std::string& message);
[[nodiscard]] bool isEnd(const std::string& message);

// The state from a moment on.
struct StateChange {
  double time = 0;
  ChargeState state = ChargeState::allow;
};
// In order of time, from the sightings and from the lines that report a change. A daemon that changes its
// state on the way to sleep logs nothing else.
[[nodiscard]] std::vector<StateChange> statesOf(const Trace& trace);

struct Span {
  double from = 0, until = 0;
};
// From each orderly end of the daemon to its next start, or to `until`.
[[nodiscard]] std::vector<Span> outagesOf(const Trace& trace, double until);

}  // namespace brisko::lab
