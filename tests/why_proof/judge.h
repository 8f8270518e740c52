// tests/why_proof/judge.h
// Whether what an answer of brisko why named came true.
//
// An answer names what would end the present state: a percentage, a temperature, a moment or an event. From
// the answer on, the Mac is observed about once a minute:
//   kept        what was named came true, and what the answer described then ended, as it said
//   broken      the state ended otherwise, or it continued although what was named had come true
//   not judged  an event came between that makes the answer obsolete, or the scenario ended first
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "client/daemon_status.h"
#include "client/why.h"

namespace brisko::proof {

// The Mac and its daemon at one moment.
struct Observation {
  double at = 0;           // machine time
  double clockOffset = 0;  // of the wall clock
  bool serviceIsLoaded = true;
  bool daemonRuns = true;
  bool awake = true;         // fully
  bool plugged = false;      // an adapter is connected
  bool macOSPermits = true;  // it leaves the keys open, or has a limit of its own
  std::int64_t starts = 0;   // of the daemon until then, by its log
  std::int64_t pct = 0;      // as macOS shows it …
  double publishedAt = 0;    // … and the machine time at which it published that
  double temperature = 0;    // of the battery, °C: the lowest since the observation before
  double currentMA = 0;      // into the battery
  std::optional<client::DaemonStatus> status = {};  // none unless it is current
};

enum class EventKind : std::uint8_t {
  settings,    // somebody changed them, or their file
  service,     // the daemon was ended, removed, asked to restart …
  removal,     // it was removed
  restart,     // of the Mac
  macOSLimit,  // its slider, or a full charge asked for in the Battery menu
  fault,
  adapter,  // plugged in or unplugged, or another one
  heat,     // charging was paused for heat
  expiry,   // the time of a full charge was over
  stall,    // a calibration was given up because it took too long
  warning,  // the daemon logged that something does not work
  sleep,    // the Mac fell asleep or woke up
  work,     // the load or the surroundings changed
};
inline constexpr std::size_t eventKinds = 13;
[[nodiscard]] const char* textOf(EventKind kind);

struct Event {
  double at = 0;  // machine time
  EventKind kind = EventKind::fault;
};

// A question, and what was known when it was asked.
struct Question {
  double at = 0;  // machine time
  client::Answer answer = {};
  std::optional<client::DaemonStatus> status = {};
  double samplesSpan = 0;        // seconds of charge history since the state or the adapter changed
  bool faultIsInEffect = false;  // something was wrong with the Mac already
};

enum class Outcome : std::uint8_t { kept, broken, notJudged };
struct Verdict {
  Outcome outcome = Outcome::notJudged;
  std::string reason = {};     // why it was not judged, or what was seen instead
  double seconds = 0;          // of a kept one: from the answer until what it named came true …
  bool isUndisturbed = false;  // … without any event
};

// `after`: what was observed from the answer on. `events`: all of the scenario, in order of time.
[[nodiscard]] Verdict judge(const Question& question, std::span<const Observation> after,
                            std::span<const Event> events);

}  // namespace brisko::proof
