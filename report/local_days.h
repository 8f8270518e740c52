// report/local_days.h
// Calendar days in the zone in force.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace brisko::lab {

using Date = std::chrono::year_month_day;

// The date in a text like "2026-03-01"; none when it has another form or there is no such day.
[[nodiscard]] std::optional<Date> dateIn(std::string_view text);

// "2026-03-01"
[[nodiscard]] std::string isoText(const Date& date);
// "1 March 2026"
[[nodiscard]] std::string dateText(const Date& date);

[[nodiscard]] Date dateAfter(const Date& date, int days);
// How many days `last` is after `first`.
[[nodiscard]] int daysBetween(const Date& first, const Date& last);

// The day that contains the moment, which is in seconds since 1970.
[[nodiscard]] Date dateOf(double time);
// Its first moment: midnight, or when the clock jumps over that, the moment after it.
[[nodiscard]] double beginOf(const Date& date);
// Its midnight in UTC, whatever the zone.
[[nodiscard]] double utcMidnightOf(const Date& date);

}  // namespace brisko::lab
