// The settings, and what is in force instead of them.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "base/nearest_name.h"
#include "client/doctor/checks.h"
#include "client/local_time.h"
#include "client/setting_keys.h"

namespace brisko::client {
namespace {

std::string unusable(const Evidence& evidence) {
  const SettingsFile& file = evidence.state.settingsFile;
  if (file.text.problem == FileProblem::notPermitted) return needsRoot;
  if (file.text.problem == FileProblem::missing) return "there are no settings";
  return "the settings are not readable";
}

bool hasItsType(const SettingKey& key, const Json& value) {
  return key.type == SettingType::boolean ? value.is_boolean() : value.is_number();
}

// The known key that an unknown one was probably meant to be.
const SettingKey* meantBy(const std::string& name) {
  std::string small = name;
  std::transform(small.begin(), small.end(), small.begin(), [](unsigned char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : static_cast<char>(letter);
  });
  std::vector<std::string> names;
  for (const SettingKey& key : settingKeys()) names.emplace_back(key.name);
  for (const std::string& each : {name, small}) {
    if (const auto nearest = nearestName(each, names)) return findSetting(*nearest);
  }
  return nullptr;
}

// A setting that the daemon ignores: an unknown key, or a value of another type.
struct Ignored {
  std::string name = {};
  Json value = {};
  const SettingKey* key = nullptr;  // of the name, or the one that was probably meant
  bool known = false;
};

std::vector<Ignored> ignoredIn(const Json& settings) {
  std::vector<Ignored> ignored;
  for (const auto& [name, value] : settings.items()) {
    const SettingKey* key = findSetting(name);
    if (key == nullptr) {
      ignored.push_back({.name = name, .value = value, .key = meantBy(name)});
    } else if (!hasItsType(*key, value)) {
      ignored.push_back({.name = name, .value = value, .key = key, .known = true});
    }
  }
  return ignored;
}

std::string textOf(const Ignored& setting) {
  if (setting.known)
    return "\"" + setting.name + "\" is " + setting.value.dump() + ", not " + allowedValues(*setting.key);
  if (setting.key != nullptr)
    return "\"" + setting.name + "\" is unknown; \"" + setting.key->name + "\" was probably meant";
  return "\"" + setting.name + "\" is unknown";
}

// What the daemon uses instead of a number out of its range; the number itself where it takes any.
double inForce(const SettingKey& key, double value) {
  const std::string_view name = key.name;
  if (name == "limit" || name == "hysteresis") return std::clamp(value, key.least, key.most);
  if (name == "historyDays" || name == "blinkSeconds") return std::max(value, key.least);
  return value;
}

// A number out of its range.
struct Excess {
  const SettingKey* key = nullptr;
  double value = 0;
};

std::vector<Excess> excessesIn(const Json& settings) {
  std::vector<Excess> excesses;
  for (const SettingKey& key : settingKeys()) {
    if (key.type == SettingType::boolean) continue;
    const auto value = numberAt(settings, key.name);
    if (value && (*value < key.least || *value > key.most)) excesses.push_back({&key, *value});
  }
  return excesses;
}

std::string textOf(const Excess& excess) {
  const SettingKey& key = *excess.key;
  const double used = inForce(key, excess.value);
  const std::string unit = key.unit == std::string_view("points") ? "" : std::string(" ") + key.unit;
  std::string text = std::string("\"") + key.name + "\" is " + valueText(Json(excess.value)) + ", but " +
                     allowedValues(key) + " is allowed";
  if (used != excess.value) text += "; " + valueText(Json(used)) + unit + " is in force";
  return text;
}

Json withinRange(const SettingKey& key, double value) {
  const double inside = std::clamp(value, key.least, key.most);
  if (key.type == SettingType::integer) return static_cast<std::int64_t>(inside);
  return inside;
}

// The value as it was meant, if it can be one of the key.
std::optional<Json> meantValue(const SettingKey& key, const Json& value) {
  const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
  return settingValue(key, text);
}

std::vector<std::string> argumentsOf(const Evidence& evidence) {
  const auto& job = evidence.state.system.job;
  if (job && !job->arguments.empty()) return job->arguments;
  return evidence.jobFileArguments.value.value_or(std::vector<std::string>{});
}

}  // namespace

CheckResult checkStatusReadable(const Evidence& evidence) {
  constexpr std::uint32_t readableByAll = 004;
  if (evidence.state.statusProblem == FileProblem::notPermitted)
    return found("The status may be read by other users only.");
  if (!evidence.statusMode.value) return notLookedAt(evidence.statusMode.whyNot);
  if ((*evidence.statusMode.value & readableByAll) == 0)
    return found("Only root may read the status, so the app and brisko show nothing.");
  return clear();
}

CheckResult checkSettingsReadable(const Evidence& evidence) {
  const SettingsFile& file = evidence.state.settingsFile;
  if (file.text.problem == FileProblem::notPermitted) return notLookedAt(needsRoot);
  if (!file.flaw || fatalNumberIn(evidence)) return clear();
  return found(evidence.state.job.config + " is not usable: " + *file.flaw + ". The limit is " +
               percentText(evidence.state.job.limit) + " whatever you set.");
}

CheckResult checkSettingKeys(const Evidence& evidence) {
  const auto& settings = evidence.state.settingsFile.object;
  if (!settings) return notLookedAt(unusable(evidence));
  const auto ignored = ignoredIn(*settings);
  if (ignored.empty()) return clear();
  std::string text;
  for (const Ignored& each : ignored) text += (text.empty() ? "" : ". ") + textOf(each);
  return found("The daemon ignores a setting: " + text + ".");
}

CheckResult checkSettingRanges(const Evidence& evidence) {
  const auto& settings = evidence.state.settingsFile.object;
  if (!settings) return notLookedAt(unusable(evidence));
  const auto excesses = excessesIn(*settings);
  if (excesses.empty()) return clear();
  std::string text;
  for (const Excess& each : excesses) text += (text.empty() ? "" : ". ") + textOf(each);
  return found(text + ".");
}

CheckResult checkJobArguments(const Evidence& evidence) {
  const auto arguments = argumentsOf(evidence);
  if (arguments.empty()) return notLookedAt(evidence.jobFileArguments.whyNot);
  std::string text;
  for (std::size_t index = 1; index + 1 < arguments.size(); ++index) {
    const std::string& name = arguments[index];
    if (name == "--limit" || name == "--lower" || name == "--config") {
      text += (text.empty() ? "" : " ") + name + " " + arguments[index + 1];
    } else if (name != "--app" && name != "--guard") {
      continue;
    }
    ++index;
  }
  if (text.empty()) return clear();
  return found("The job starts the daemon with " + text + ", which the settings do not show.");
}

CheckResult checkSettingsWatched(const Evidence& evidence) {
  if (!evidence.configCreatedAt.value) return notLookedAt(evidence.configCreatedAt.whyNot);
  const auto& status = evidence.state.status;
  if (!status || !status->startedAt || !daemonRuns(evidence)) return clear();
  if (*evidence.configCreatedAt.value <= *status->startedAt) return clear();
  return found("The settings were created after the daemon started, so a change may take up to 12 s.");
}

CheckResult checkDischargeSupported(const Evidence& evidence) {
  const State& state = evidence.state;
  if (!state.status) return notLookedAt(noStatus);
  if (!state.settings.discharge || state.status->dischargeSupported) return clear();
  return found("Discharging is switched on, but this Mac cannot discharge while it is plugged in.");
}

Json repairedSettings(const Evidence& evidence) {
  const State& state = evidence.state;
  Json keys = Json::object();
  if (!state.settingsFile.object) {
    keys["limit"] = state.job.limit;
    return keys;
  }
  const Json& settings = *state.settingsFile.object;
  const Json inUse = configObject(state.settings);
  for (const Ignored& each : ignoredIn(settings)) {
    if (each.key == nullptr || each.key->isRequest || (!each.known && settings.contains(each.key->name)))
      continue;
    keys[each.key->name] = meantValue(*each.key, each.value).value_or(inUse.at(each.key->name));
  }
  for (const Excess& each : excessesIn(settings)) keys[each.key->name] = withinRange(*each.key, each.value);
  // All keys are written again, which removes the unknown ones.
  if (keys.empty()) keys["limit"] = withinRange(*findSetting("limit"), inUse.at("limit").get<double>());
  return keys;
}

}  // namespace brisko::client
