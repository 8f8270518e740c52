// client/day_range.h
// The days of the history that a command line asks for.
#pragma once

#include <optional>
#include <string>

#include "client/command_line.h"
#include "report/local_days.h"

namespace brisko::client {

struct DayRange {
  lab::Date first = {};
  lab::Date last = {};  // not before `first`, and not after today
};

struct AskedDays {
  std::optional<DayRange> range = {};
  std::string error = {};  // what is wrong, without a range
};

// By --days, --from and --to; seven days up to today without any of them.
[[nodiscard]] AskedDays askedDays(const Invocation& invocation, const lab::Date& today);

}  // namespace brisko::client
