// client/log_reader.h
// The lines of the daemon's log with their times.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/log_catalogue.h"

namespace brisko::client {

inline constexpr const char* logPath = "/Library/Logs/Brisko/daemon.log";
inline constexpr const char* previousLogPath = "/Library/Logs/Brisko/daemon.log.1";

struct LogLine {
  double time = 0;           // seconds since 1970
  std::string message = {};  // without the time
};

// None when it does not begin with a time such as 2026-03-01T08:15:30Z and two blanks.
[[nodiscard]] std::optional<LogLine> logLineIn(std::string_view line);

// Omits summaries that differ from the previous one only in charge and temperature.
class SummaryFilter {
 public:
  // Whether a line is worth showing.
  [[nodiscard]] bool shows(const LogMatch& match);

 private:
  std::string last_;
};

}  // namespace brisko::client
