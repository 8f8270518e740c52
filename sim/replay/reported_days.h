// sim/replay/reported_days.h
// The days that a bug report describes. A report is an archive that a stranger sent: it is read in memory,
// nothing is unpacked, and what cannot be believed is refused with one sentence.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/machine/models.h"
#include "sim/replay/trace.h"

namespace brisko::lab {

// Of macOS's own log of power events. One that is not listed here does not matter.
enum class PowerEventKind : std::uint8_t { sleep, darkWake, wake };
struct PowerEvent {
  double time = 0;
  PowerEventKind kind = PowerEventKind::sleep;
};

struct ReportedDays {
  Trace trace = {};                           // at least one line of the history
  std::vector<PowerEvent> powerEvents = {};   // in order of time
  std::string registry = {};                  // the battery's entry as JSON; empty: assumedModel() has it
  virtual_mac::MachineOptions options = {};   // of the Mac: its keys, its macOS
  std::vector<std::string> arguments = {};    // of the daemon
  std::optional<nlohmann::json> config = {};  // config.json at the end: an object; none: no such file
  std::optional<nlohmann::json> stats = {};   // likewise
  std::size_t brokenLines = 0;                // that were left out
  std::vector<std::string> assumptions = {};  // what the report does not contain: a sentence each

  [[nodiscard]] double begin() const { return trace.sightings.front().time; }
  [[nodiscard]] double end() const { return trace.sightings.back().time; }
};

struct ReportReading {
  std::optional<ReportedDays> days = {};
  std::string error = {};  // a clause; empty if the days were read
};

struct ReportLimits {
  double longestDays = 60;
  bool needsBattery = true;  // refused without its registry entry
};
[[nodiscard]] ReportReading readReport(std::string_view archive, const ReportLimits& limits = {});

// The model whose battery is assumed when a Mac's own is unknown.
[[nodiscard]] const virtual_mac::Model& assumedModel();

// Lines as `pmset -g log` prints them: "2026-03-01 08:15:30 +0100 Sleep  Entering Sleep state …".
[[nodiscard]] std::vector<PowerEvent> readPowerLog(std::string_view text);

}  // namespace brisko::lab
