#include "base/settings.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "base/checked.h"
#include "base/options.h"
#include "base/process_flags.h"
#include "base/volume_path.h"

namespace brisko {
namespace {

// Passes every field to `visit`, together with its key in the file.
template <typename Record, typename Visit>
void eachField(Record& settings, const Visit& visit) {
  visit("enabled", settings.enabled);
  visit("limit", settings.limit);
  visit("discharge", settings.discharge);
  visit("led", settings.led);
  visit("blinkSeconds", settings.blinkSeconds);
  visit("thermal", settings.thermal);
  visit("thermalLimit", settings.thermalLimit);
  visit("topUp", settings.topUp);
  visit("topUpHours", settings.topUpHours);
  visit("hysteresis", settings.hysteresis);
  visit("history", settings.history);
  visit("historyDays", settings.historyDays);
  visit("calibrate", settings.calibrate);
  visit("calDrain", settings.calDrain);
  visit("calSoakMinutes", settings.calSoakMinutes);
  visit("resetStats", settings.resetStats);
}

// Takes the value under `key` if the object has it; otherwise the field keeps its default.
void take(const Json& object, const char* key, bool& field) {
  field = booleanAt(object, key).value_or(field);
}

void take(const Json& object, const char* key, std::int64_t& field) {
  if (const auto whole = integerAt(object, key)) {
    field = *whole;
  } else if (const auto number = numberAt(object, key)) {
    // A fraction is dropped. A number beyond 64 bits ends the process: any guess at a limit could be wrong.
    field = checkedInteger(*number);
  }
}

void take(const Json& object, const char* key, double& field) {
  field = numberAt(object, key).value_or(field);
}

// The last content read from the file, and the settings parsed from it.
struct LastRead {
  std::optional<std::string> bytes;  // none until a file was read
  std::optional<Settings> settings;
};
LastRead gLastRead;

std::optional<Settings> settingsIn(std::string_view bytes) {
  const std::optional<Json> value = parseJson(bytes);
  if (!value || !value->is_object()) return std::nullopt;
  return parseConfig(*value);
}

}  // namespace

Settings parseConfig(const Json& object) {
  Settings settings;
  eachField(settings, [&object](const char* key, auto& field) { take(object, key, field); });
  return settings;
}

Json configObject(const Settings& settings) {
  Json object = Json::object();
  eachField(settings, [&object](const char* key, const auto& field) { object[key] = field; });
  return object;
}

std::optional<Settings> readConfig(const std::string& path) {
  std::optional<std::string> bytes = readWholeFile(onVolume(path));
  if (!bytes) return std::nullopt;
  if (bytes != gLastRead.bytes) {
    gLastRead.settings = settingsIn(*bytes);
    gLastRead.bytes = std::move(bytes);
  }
  return gLastRead.settings;
}

Settings settingsInForce() { return readConfig(gConfigPath).value_or(Settings{.limit = gCliLimit}); }

void writeConfig(const Settings& settings, std::optional<bool> topUp, std::optional<bool> resetStats,
                 std::optional<bool> calibrate) {
  if (gPurged) return;
  Settings written = settings;
  written.topUp = topUp.value_or(settings.topUp);
  written.resetStats = resetStats.value_or(settings.resetStats);
  written.calibrate = calibrate.value_or(settings.calibrate);

  writeJsonFile(onVolume(gConfigPath), configObject(written));
}

}  // namespace brisko
