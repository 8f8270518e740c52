// client/recent_history.h
// The last samples of the charge history, and the rate of change of the charge.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "state/charge_state_record.h"

namespace brisko::client {

struct RecentSample {
  double time = 0;  // seconds since 1970
  std::int64_t pct = 0;
  ChargeState state = ChargeState::allow;
  bool plugged = false;
  std::optional<double> watts = {};  // of the battery; negative while it drains
  bool hot = false;                  // charging is paused for heat
};

// The sample in a line of a day file; none when it is not one.
[[nodiscard]] std::optional<RecentSample> sampleIn(const std::string& line);

// All samples in the text of a day file.
[[nodiscard]] std::vector<RecentSample> samplesIn(std::string_view text);

struct RecentHistory {
  std::vector<RecentSample> samples = {};  // of the last 15 minutes, oldest first
  std::optional<double> stateSince =
      {};  // when the present state began; none when the files do not reach back
};

// `dayText` returns the text of the day file that contains a moment, or an empty text. Samples after `now`
// are left out: the clock was set back.
[[nodiscard]] RecentHistory recentHistory(double now, const std::function<std::string(double)>& dayText);

// The samples since state and adapter last changed; valid as long as `samples`.
[[nodiscard]] std::span<const RecentSample> sinceLastChange(const std::vector<RecentSample>& samples);

// Percentage points in a minute, below 0 while the charge falls. From the samples since state and adapter
// last changed; none when these are too few, or the charge did not move in one direction.
struct Slope {
  double perMinute = 0;
  double lastTime = 0;       // when the charge last changed …
  std::int64_t lastPct = 0;  // … and to what
};
[[nodiscard]] std::optional<Slope> slopeOf(const std::vector<RecentSample>& samples);

// Minutes from `now` until the charge reaches `target`, by the slope, or more for a nearly full battery,
// which charges more and more slowly. None if the charge moves in the other direction.
[[nodiscard]] std::optional<double> minutesUntil(double target, const Slope& slope, double now);

}  // namespace brisko::client
