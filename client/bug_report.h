// client/bug_report.h
// A bug report: one ustar archive of what shows how the daemon did on a Mac, without what identifies the Mac
// or its user. Its members are in the folder brisko-report, in this order; one that is not there is named in
// the manifest:
//
//   manifest.json                 what follows, and what was left out
//   status.json, config.json, stats.json, calibration.json
//   history/2026-03-01.jsonl      the last seven days, the oldest first
//   daemon.log.1, daemon.log, daemon.err.log
//   probe.txt, self-test.txt      what the daemon's diagnostics print
//   doctor.json                   what "brisko doctor" found
//   job.json                      the daemon's job
//   signature.txt                 what "codesign -dv" prints of the daemon
//   power-log.txt                 what "pmset -g log" prints of sleep and wakes in the same seven days
//   power-schedule.txt            what "pmset -g sched" prints
//   battery.json                  properties of the battery in the registry
//
// What a member may contain is listed in report_lines.cpp and report_json.cpp; docs/report.md explains it.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/json_file.h"
#include "client/report_lines.h"

namespace brisko::client {

// A possible member with what was read for it.
struct ReportPart {
  std::string name;    // in the folder
  std::string source;  // for people: the path of a file, or a command
  std::function<KeptText(std::string_view)> keep;
  std::string bytes = {};
  std::string problem = "not looked at";  // why there is nothing to keep; empty if there is
};

// All parts, with nothing read yet. `days` are those of the history, such as "2026-03-01", the oldest first.
[[nodiscard]] std::vector<ReportPart> reportParts(const std::vector<std::string>& days);

struct ReportFacts {
  double now = 0;                         // seconds since 1970
  std::string daemonVersion = {};         // according to its status; empty when unknown
  std::int64_t macOS = 0;                 // major version
  std::optional<std::string> model = {};  // the Mac's
};

struct BugReport {
  Json manifest;        // docs/schemas/brisko-report.schema.json
  std::string archive;  // empty if it would be larger than 64 MiB
};
[[nodiscard]] BugReport bugReport(const std::vector<ReportPart>& parts, const ReportFacts& facts);

}  // namespace brisko::client
