#include "client/day_range.h"

#include <algorithm>
#include <cstdint>

#include "base/options.h"

namespace brisko::client {
namespace {

constexpr int usualDays = 7;
constexpr int mostDays = 3650;  // the longest time that the daemon keeps

struct AskedDate {
  std::optional<lab::Date> date = {};
  std::string error = {};
};

AskedDate dateAt(const Invocation& invocation, const std::string& option) {
  const auto text = invocation.value(option);
  if (!text) return {};
  if (const auto date = lab::dateIn(*text)) return {.date = date};
  return {.error = option + " takes a day such as 2026-03-01, not \"" + *text + "\""};
}

AskedDays refusal(const std::string& error) { return {.error = error}; }

}  // namespace

AskedDays askedDays(const Invocation& invocation, const lab::Date& today) {
  const auto text = invocation.value("--days");
  const auto days = text ? parseInteger(*text) : std::int64_t{usualDays};
  if (!days || *days < 1 || *days > mostDays) {
    return refusal("--days takes a whole number from 1 to " + std::to_string(mostDays) + ", not \"" +
                   text.value_or("") + "\"");
  }
  const AskedDate from = dateAt(invocation, "--from");
  const AskedDate to = dateAt(invocation, "--to");
  if (!from.error.empty()) return refusal(from.error);
  if (!to.error.empty()) return refusal(to.error);
  if (text && from.date) return refusal("--days and --from exclude each other");
  const lab::Date last = std::min(to.date.value_or(today), today);
  const lab::Date first = from.date.value_or(lab::dateAfter(last, 1 - static_cast<int>(*days)));
  if (from.date && to.date && *from.date > *to.date)
    return refusal(lab::isoText(*from.date) + " is after " + lab::isoText(*to.date));
  if (first > today) return refusal(lab::isoText(first) + " is after today, " + lab::isoText(today));
  if (lab::daysBetween(first, last) >= mostDays)
    return refusal("these are more than " + std::to_string(mostDays) +
                   " days, the most that the daemon keeps");
  return {.range = DayRange{.first = first, .last = last}};
}

}  // namespace brisko::client
