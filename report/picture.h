// report/picture.h
// The data that a picture is drawn from: moments in order of time, events, and log lines. A scenario is
// recorded into one (recording.h), and the daemon's own history files are read into one (history_files.h).
// Unknown values of a moment or of a whole picture are missing and not drawn.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "policy/charge_bounds.h"
#include "state/charge_state_record.h"

namespace brisko::lab {

enum class Light : std::uint8_t { system, off, green, orange, blinking };
enum class Supply : std::uint8_t { none, cut, connected };  // cut: does not reach the battery
enum class Wakefulness : std::uint8_t { awake, darkWake, asleep, off };
// Why the charge is outside the band.
enum class Occasion : std::uint8_t { none, topUp, heat, fill, drain, refill, soak, restore };

// Discrete values hold until the next moment. Between two moments the numbers change linearly, unless the
// later one follows a gap.
struct Moment {
  double time = 0;                              // seconds since 1970
  std::optional<double> level = {};             // percent in the battery
  std::optional<std::int64_t> shown = {};       // percent shown by the gauge
  std::optional<double> currentMA = {};         // below 0 out of the battery
  std::optional<double> watts = {};             // likewise
  std::optional<double> temperatureC = {};      // of the battery
  std::optional<Bounds> band = {};              // in force; none when nothing limits the charge
  std::optional<ChargeState> state = {};        // the daemon's; none when no daemon runs
  std::optional<ChargeState> hardware = {};     // what the hardware follows
  std::optional<Light> light = {};              // on the connector; none without an adapter
  std::optional<Supply> supply = {};            // what the adapter supplies
  std::optional<Wakefulness> wakefulness = {};  // of the Mac
  Occasion occasion = Occasion::none;
  bool afterGap = false;  // the time since the moment before is unknown

  bool operator==(const Moment&) const = default;
};
static_assert(std::is_trivially_copyable_v<Moment>);

// Something that a user, the system or a fault did.
struct Event {
  double time = 0;
  std::string words;
};

struct LoggedLine {
  double time = 0;
  std::string text;  // including its time stamp
};

// The names of what a picture shows twice, when they are not the battery and its gauge, the daemon and the
// hardware.
struct CurveNames {
  std::string level = {};     // of the charge
  std::string shown = {};     // of the other charge
  std::string state = {};     // of the row of states
  std::string hardware = {};  // of the other row
};

struct Picture {
  std::string title = {};
  std::string facts = {};  // one line: the Mac, or where the data come from
  std::vector<Moment> moments = {};
  std::vector<Event> events = {};
  std::vector<LoggedLine> log = {};
  std::vector<std::string> failures = {};  // of a scenario: each with its place, possibly several lines long
  std::vector<std::string> notes = {};     // what the reader should know about the picture
  std::optional<CurveNames> curves = {};   // both are then drawn, however close they are
};

}  // namespace brisko::lab
