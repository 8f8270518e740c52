// report/picture.h
// What a picture of something that happened is drawn from: moments in the order of time, what was done, and
// what was logged. A scenario is recorded into one (recording.h), and the daemon's own history files are read
// into one (history_files.h). What is not known of a moment, or of a whole picture, is missing and left out.
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
enum class Supply : std::uint8_t { none, cut, connected };  // no adapter; one that does not reach the battery
enum class Wakefulness : std::uint8_t { awake, darkWake, asleep, off };
// Why the charge is elsewhere than in the band.
enum class Occasion : std::uint8_t { none, topUp, heat, fill, drain, refill, soak, restore };

// Discrete values hold until the next moment; between two moments the numbers go straight from one to the
// other, unless the later one stands after a gap.
struct Moment {
  double time = 0;                              // seconds since 1970
  std::optional<double> level = {};             // percent that the battery holds
  std::optional<std::int64_t> shown = {};       // percent that the gauge shows
  std::optional<double> currentMA = {};         // below 0 out of the battery
  std::optional<double> watts = {};             // likewise
  std::optional<double> temperatureC = {};      // of the battery
  std::optional<Bounds> band = {};              // in force; none when nothing limits the charge
  std::optional<ChargeState> state = {};        // as the daemon has it; none when none runs
  std::optional<ChargeState> hardware = {};     // what the hardware follows
  std::optional<Light> light = {};              // of the connector; none without an adapter
  std::optional<Supply> supply = {};            // what the adapter gives
  std::optional<Wakefulness> wakefulness = {};  // of the Mac
  Occasion occasion = Occasion::none;
  bool afterGap = false;  // nothing is known of the time since the moment before

  bool operator==(const Moment&) const = default;
};
static_assert(std::is_trivially_copyable_v<Moment>);

// What somebody or something did.
struct Event {
  double time = 0;
  std::string words;
};

struct LoggedLine {
  double time = 0;
  std::string text;  // with the time that it was given
};

struct Picture {
  std::string title = {};
  std::string facts = {};  // one line: the Mac, or where the data lie
  std::vector<Moment> moments = {};
  std::vector<Event> events = {};
  std::vector<LoggedLine> log = {};
  std::vector<std::string> failures = {};  // of a scenario: each with its place, possibly of several lines
  std::vector<std::string> notes = {};     // what the reader should know of the picture
};

}  // namespace brisko::lab
