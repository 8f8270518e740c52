#include "diagnostics/checks.h"

#include <nlohmann/json.hpp>

#include "base/json_file.h"
#include "base/utc_text.h"

namespace brisko {
namespace {

std::string textOf(std::int64_t value) { return std::to_string(value); }
std::string textOf(const std::optional<std::int64_t>& value) {
  return value ? std::to_string(*value) : "nil";
}
std::string textOf(std::string_view value) { return std::string(value); }
std::string textOf(const SleepPlan& plan) {
  if (const auto target = plan.target()) return "carryOn(toward: " + std::to_string(*target) + ")";
  return plan.isFreeze() ? "freeze" : "leaveAlone";
}
std::string textOf(bool value) { return value ? "true" : "false"; }
std::string textOf(double value) { return jsonText(Json(value)).value_or("?"); }

// Field by field, because the code that reads and writes the file may be what is broken.
std::string textOf(const Settings& settings) {
  std::string text;
  const auto add = [&text](const char* name, const auto& value) {
    text += (text.empty() ? "" : ", ") + std::string(name) + ": " + textOf(value);
  };
  add("enabled", settings.enabled);
  add("limit", settings.limit);
  add("discharge", settings.discharge);
  add("led", settings.led);
  add("blinkSeconds", settings.blinkSeconds);
  add("thermal", settings.thermal);
  add("thermalLimit", settings.thermalLimit);
  add("topUp", settings.topUp);
  add("topUpHours", settings.topUpHours);
  add("hysteresis", settings.hysteresis);
  add("history", settings.history);
  add("historyDays", settings.historyDays);
  add("calibrate", settings.calibrate);
  add("calDrain", settings.calDrain);
  add("calSoakMinutes", settings.calSoakMinutes);
  add("resetStats", settings.resetStats);
  return "Settings(" + text + ")";
}

std::string dateText(double secondsSince1970) {
  const UtcText text = utcText(secondsSince1970);
  return text.date + " " + text.time + " +0000";
}

void fail(std::string_view label, const std::string& got, const std::string& want) {
  failures.push_back(std::string(label) + ": got " + got + ", want " + want);
}

template <typename Value>
void compare(const Value& got, const Value& want, std::string_view label) {
  ++checks;
  if (got != want) fail(label, textOf(got), textOf(want));
}

}  // namespace

void expect(bool ok, std::string_view label) {
  ++checks;
  if (!ok) failures.emplace_back(label);
}

void expectEqual(std::int64_t got, std::int64_t want, std::string_view label) { compare(got, want, label); }

void expectEqual(const std::optional<std::int64_t>& got, const std::optional<std::int64_t>& want,
                 std::string_view label) {
  compare(got, want, label);
}

void expectEqual(std::string_view got, std::string_view want, std::string_view label) {
  compare(got, want, label);
}

void expectEqual(const SleepPlan& got, const SleepPlan& want, std::string_view label) {
  compare(got, want, label);
}

void expectEqual(const Settings& got, const Settings& want, std::string_view label) {
  compare(got, want, label);
}

void expectEqualDates(double got, double want, std::string_view label) {
  ++checks;
  if (got != want) fail(label, dateText(got), dateText(want));
}

std::string summaryOfChecks() {
  if (failures.empty()) return "✓ " + std::to_string(checks) + " vérifications, aucune erreur.\n";
  std::string text = "✗ " + std::to_string(failures.size()) + " erreur(s) sur " + std::to_string(checks) +
                     " vérifications :\n";
  for (const std::string& failure : failures) text += "  - " + failure + "\n";
  return text;
}

}  // namespace brisko
