// tests/replay_proof/generated_report.h
// The bug report that the Mac of a generated scenario would send, made from the virtual Mac's own files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/replay/trace.h"
#include "sim/scenario/generated_scenario.h"

namespace brisko::proof {

struct GeneratedReport {
  std::string archive = {};
  std::string failure = {};  // of the scenario; empty when it was run to its end
};

struct ReportOptions {
  bool powerLog = true;  // with macOS's own log of power events
};

[[nodiscard]] GeneratedReport reportOf(const lab::GeneratedScenario& scenario, const ReportOptions& options);

// A scenario with one fault at a random moment that no file of a report mentions.
struct HiddenFault {
  std::int64_t at = 0;     // seconds since the beginning
  std::string words = {};  // the action
};
[[nodiscard]] HiddenFault addHiddenFault(std::uint64_t seed, lab::GeneratedScenario& scenario);

// The first moment at which two reports differ; none if they do not.
[[nodiscard]] std::optional<double> firstDifference(const lab::Trace& one, const lab::Trace& other);

}  // namespace brisko::proof
