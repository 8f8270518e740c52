#include "client/log_reader.h"

#include <chrono>

#include "base/options.h"

namespace brisko::client {
namespace {

// The id of the summary in the catalogue.
constexpr std::string_view summaryId = "cap-batt-state-led";

std::optional<int> digits(std::string_view text) {
  if (text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  const auto value = parseInteger(text);
  return value ? std::optional(static_cast<int>(*value)) : std::nullopt;
}

}  // namespace

std::optional<LogLine> logLineIn(std::string_view line) {
  constexpr std::string_view form = "0000-00-00T00:00:00Z  ";
  if (line.size() < form.size()) return std::nullopt;
  for (std::size_t at = 0; at < form.size(); ++at) {
    if (form[at] != '0' && form[at] != line[at]) return std::nullopt;
  }
  const auto number = [line](std::size_t at, std::size_t count) { return digits(line.substr(at, count)); };
  const auto year = number(0, 4), month = number(5, 2), day = number(8, 2);
  const auto hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok()) return std::nullopt;
  const auto days = std::chrono::sys_days(date).time_since_epoch().count();
  return LogLine{.time = static_cast<double>(days) * 86'400.0 + *hour * 3600.0 + *minute * 60.0 + *second,
                 .message = std::string(line.substr(form.size()))};
}

bool SummaryFilter::shows(const LogMatch& match) {
  if (match.entry->id != summaryId) return true;
  std::string shown;
  for (const auto& [name, value] : match.fields) {
    if (name != "charge" && name != "temperature") shown += value + "|";
  }
  const bool differs = shown != last_;
  last_ = shown;
  return differs;
}

}  // namespace brisko::client
