#include "client/report_json.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace brisko::client {
namespace {

enum class ValueKind : std::uint8_t { flag, number, text, path, arguments, list, object };

// What may stand under a key.
struct JsonRule {
  std::string_view key = {};
  ValueKind kind = ValueKind::number;
  std::vector<std::string_view> patterns = {};  // of a text
  std::vector<JsonRule> members = {};           // of an object; a list has one rule for all its values
};

JsonRule number(std::string_view key) { return {.key = key}; }
JsonRule flag(std::string_view key) { return {.key = key, .kind = ValueKind::flag}; }
JsonRule path(std::string_view key) { return {.key = key, .kind = ValueKind::path}; }
JsonRule text(std::string_view key, std::vector<std::string_view> patterns) {
  return {.key = key, .kind = ValueKind::text, .patterns = std::move(patterns)};
}
JsonRule object(std::string_view key, std::vector<JsonRule> members) {
  return {.key = key, .kind = ValueKind::object, .members = std::move(members)};
}
JsonRule list(std::string_view key, JsonRule each) {
  return {.key = key, .kind = ValueKind::list, .members = {std::move(each)}};
}

// --- The rules

const std::vector<std::string_view> phases{"idle", "fill", "drain", "refill", "soak", "restore"};
const std::vector<std::string_view> states{"allow", "hold", "discharge"};

JsonRule failureRule() { return object("lastFailure", {text("phase", phases), text("reason", {"stalled"})}); }

JsonRule runsRule() {
  return list("runs", object("", {number("at"), number("beforeRaw"), number("afterRaw"),
                                  number("beforeNominal"), number("afterNominal"), number("design"),
                                  number("cyclesBefore"), number("cyclesAfter")}));
}

const JsonRule& statusRule() {
  static const JsonRule rule =
      object("", {text("state", states),
                  number("pct"),
                  flag("plugged"),
                  number("upper"),
                  flag("enabled"),
                  flag("discharge"),
                  flag("hot"),
                  flag("topUp"),
                  flag("gateVerified"),
                  number("nativeFloor"),
                  list("guards", text("", {"night", "menu", "swing"})),
                  number("nextWake"),
                  number("fullUntil"),
                  flag("dischargeUnseen"),
                  number("temp"),
                  number("protectedSeconds"),
                  number("since"),
                  flag("ledSupported"),
                  flag("dischargeSupported"),
                  flag("dischargeFailed"),
                  text("chargeMode", {"CHTE", "CH0B+CH0C", "bfD0/bfE0/bfF0", "macOS", "none"}),
                  list("smcKeys", text("", {"CHTE", "CH0B", "CH0C", "bfF0", "bfD0", "bfE0", "CHIE", "CH0I",
                                            "CH0J", "ACLC", "AC-W", "TB0T", "bfG0"})),
                  path("daemonPath"),
                  text("daemonVersion", {"<@|@@>.<@|@@>.<@|@@>"}),
                  number("startedAt"),
                  number("ts"),
                  object("cal", {text("phase", phases), runsRule(), failureRule(), number("startedAt"),
                                 number("phaseSince"), number("soakBanked"), number("soakSeconds"),
                                 number("drainTarget")})});
  return rule;
}

const JsonRule& configRule() {
  static const JsonRule rule =
      object("", {flag("enabled"), number("limit"), flag("discharge"), flag("led"), number("blinkSeconds"),
                  flag("thermal"), number("thermalLimit"), flag("topUp"), number("topUpHours"),
                  number("hysteresis"), flag("history"), number("historyDays"), flag("calibrate"),
                  number("calDrain"), number("calSoakMinutes"), flag("resetStats")});
  return rule;
}

const JsonRule& statisticsRule() {
  static const JsonRule rule = object("", {number("protectedSeconds"), number("since"), number("topUpSince"),
                                           flag("atLimit"), number("nativeBefore")});
  return rule;
}

const JsonRule& calibrationRule() {
  static const JsonRule rule =
      object("", {text("phase", phases), number("startedAt"), number("phaseSince"), number("soakBanked"),
                  object("before", {number("raw"), number("nominal"), number("design"), number("cycles")}),
                  runsRule(), failureRule()});
  return rule;
}

const JsonRule& sampleRule() {
  static const JsonRule rule = object(
      "", {number("t"), number("p"), text("s", states), flag("g"), flag("hot"), number("ct"), number("wt")});
  return rule;
}

const JsonRule& jobRule() {
  static const JsonRule rule =
      object("", {text("Label", {"com.brisko.daemon"}),
                  JsonRule{.key = "ProgramArguments", .kind = ValueKind::arguments}, path("Program"),
                  object("MachServices", {flag("com.brisko.daemon.xpc")}), flag("RunAtLoad"),
                  flag("KeepAlive"), flag("Disabled"), number("ThrottleInterval"),
                  text("ProcessType", {"Standard", "Background", "Adaptive", "Interactive"}),
                  path("StandardErrorPath"), path("StandardOutPath"), number("Umask"), number("ExitTimeOut"),
                  list("AssociatedBundleIdentifiers", text("", {"com.brisko.Brisko"}))});
  return rule;
}

const JsonRule& doctorRule() {
  static const std::vector<std::string_view> ids{"D@@"};
  static const JsonRule rule = object(
      "", {text("schema", {"brisko.doctor/1"}), number("clear"),
           list("notLookedAt", object("", {text("id", ids)})),
           list("findings",
                object("", {text("id", ids), text("severity", {"info", "warning", "error"}), flag("fix")}))});
  return rule;
}

const JsonRule& batteryRule() {
  static const JsonRule rule = object(
      "",
      {number("Amperage"),
       number("InstantAmperage"),
       number("Voltage"),
       number("AppleRawBatteryVoltage"),
       number("CurrentCapacity"),
       number("MaxCapacity"),
       number("DesignCapacity"),
       number("NominalChargeCapacity"),
       number("AppleRawCurrentCapacity"),
       number("AppleRawMaxCapacity"),
       number("PackReserve"),
       number("CycleCount"),
       number("DesignCycleCount9C"),
       number("Temperature"),
       number("VirtualTemperature"),
       number("AvgTimeToEmpty"),
       number("AvgTimeToFull"),
       number("TimeRemaining"),
       number("UpdateTime"),
       flag("AppleRawExternalConnected"),
       flag("AtCriticalLevel"),
       flag("BatteryInstalled"),
       flag("ExternalChargeCapable"),
       flag("ExternalConnected"),
       flag("FullyCharged"),
       flag("IsCharging"),
       object("AdapterDetails", {number("Watts"), number("FamilyCode"), number("Current"),
                                 number("AdapterVoltage"), flag("IsWireless")}),
       object("BatteryData",
              {number("CurrentCapacity"), number("CycleCount"), number("DesignCapacity"),
               number("FullChargeCapacity"), number("MaxCapacity"), number("NominalChargeCapacity"),
               number("RemainingCapacity"), number("StateOfCharge"), number("Temperature"), number("Voltage"),
               flag("FullyCharged"), list("CellVoltage", number(""))}),
       object("ChargerData",
              {number("ChargingCurrent"), number("ChargingVoltage"), number("NotChargingReason"),
               number("ChargerInhibitReason"), number("TimeChargingThermallyLimited"), flag("IsCharging")}),
       object("PowerTelemetryData", {number("BatteryPower"), number("SystemLoad"), number("SystemPowerIn"),
                                     number("SystemCurrentIn"), number("SystemVoltageIn")})});
  return rule;
}

// --- Keeping

// Larger ones are no quantity or time of ours, but could be somebody's number.
bool isQuantity(const Json& value) {
  constexpr double beyond = 1e10;
  return value.is_number() && std::fabs(value.get<double>()) < beyond;
}

class Keeper {
 public:
  [[nodiscard]] std::size_t dropped() const { return dropped_; }

  std::optional<Json> keep(const Json& value, const JsonRule& rule) {
    switch (rule.kind) {
      case ValueKind::flag:
        // Older systems write 0 and 1.
        return keepIf(value.is_boolean() || value == 0 || value == 1, value);
      case ValueKind::number:
        return keepIf(isQuantity(value), value);
      case ValueKind::text:
        return keepIf(value.is_string() && isListed(value.get_ref<const std::string&>(), rule.patterns),
                      value);
      case ValueKind::path:
        if (value.is_string()) return Json(keptPath(value.get_ref<const std::string&>()));
        return keepIf(false, value);
      case ValueKind::arguments:
        return keepArguments(value);
      case ValueKind::list:
        return keepList(value, rule.members.front());
      case ValueKind::object:
        return keepObject(value, rule.members);
    }
    return std::nullopt;
  }

 private:
  std::optional<Json> keepIf(bool isAllowed, const Json& value) {
    if (isAllowed) return value;
    ++dropped_;
    return std::nullopt;
  }

  static bool isListed(const std::string& text, const std::vector<std::string_view>& patterns) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&text](std::string_view pattern) { return fitsPattern(text, pattern); });
  }

  std::optional<Json> keepObject(const Json& value, const std::vector<JsonRule>& members) {
    if (!value.is_object()) return keepIf(false, value);
    Json kept = Json::object();
    for (const auto& [key, member] : value.items()) {
      const auto rule = std::find_if(members.begin(), members.end(),
                                     [&name = key](const JsonRule& each) { return each.key == name; });
      if (rule == members.end()) {
        ++dropped_;
      } else if (auto keptMember = keep(member, *rule)) {
        kept[key] = std::move(*keptMember);
      }
    }
    return kept;
  }

  std::optional<Json> keepList(const Json& value, const JsonRule& each) {
    if (!value.is_array()) return keepIf(false, value);
    Json kept = Json::array();
    for (const Json& element : value) {
      if (auto keptElement = keep(element, each)) kept.push_back(std::move(*keptElement));
    }
    return kept;
  }

  // Each option of the daemon with its value, and of anything else that it was there.
  std::optional<Json> keepArguments(const Json& value) {
    if (!value.is_array()) return keepIf(false, value);
    Json kept = Json::array();
    std::string option;
    for (const Json& element : value) {
      const std::string argument = element.is_string() ? element.get<std::string>() : "";
      const bool isPath = kept.empty() || option == "--config" || option == "--app";
      const bool isKnown =
          isPath ||
          (option.empty() ? fitsPattern(argument, "--<config|app|limit|lower|guard>")
           : option == "--guard"
               ? fitsPattern(argument, "<night|menu|swing><|,night|,menu|,swing><|,night|,menu|,swing>")
               : fitsPattern(argument, "#"));
      if (!isKnown) ++dropped_;
      const bool isOption = !isPath && isKnown && option.empty();
      kept.push_back(isPath ? keptPath(argument) : isKnown ? argument : "…");
      option = isOption ? argument : "";
    }
    return kept;
  }

  std::size_t dropped_ = 0;
};

KeptText keptObject(std::string_view bytes, const JsonRule& rule) {
  const auto value = parseJson(bytes);
  if (!value || !value->is_object()) return {.unreadable = true};
  Keeper keeper;
  const auto kept = keeper.keep(*value, rule);
  const auto line = kept ? jsonText(*kept) : std::nullopt;
  if (!line) return {.unreadable = true};
  return {.text = *line + "\n", .dropped = keeper.dropped()};
}

Json jsonOfValue(const platform::Value& value) {
  if (const auto known = value.asBoolean()) return *known;
  if (const auto known = value.asWrappedInteger()) return *known;
  if (const auto known = value.asDouble()) return *known;
  if (const std::string* known = value.asText()) return *known;
  if (const platform::Dictionary* known = value.asDictionary()) return jsonOf(*known);
  Json elements;
  if (const platform::List* known = value.asList()) {
    elements = Json::array();
    for (const platform::Value& element : *known) elements.push_back(jsonOfValue(element));
  }
  return elements;
}

}  // namespace

KeptText keptStatus(std::string_view text) { return keptObject(text, statusRule()); }
KeptText keptConfig(std::string_view text) { return keptObject(text, configRule()); }
KeptText keptStatistics(std::string_view text) { return keptObject(text, statisticsRule()); }
KeptText keptCalibration(std::string_view text) { return keptObject(text, calibrationRule()); }
KeptText keptJob(std::string_view text) { return keptObject(text, jobRule()); }
KeptText keptDoctor(std::string_view text) { return keptObject(text, doctorRule()); }
KeptText keptBattery(std::string_view text) { return keptObject(text, batteryRule()); }

KeptText keptHistory(std::string_view text) {
  KeptText kept;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const KeptText line = keptObject(text.substr(0, end), sampleRule());
    kept.text += line.text;
    kept.dropped += line.unreadable ? 1 : line.dropped;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return kept;
}

Json jsonOf(const platform::Dictionary& properties) {
  Json object = Json::object();
  for (const auto& [key, value] : properties) object[key] = jsonOfValue(value);
  return object;
}

}  // namespace brisko::client
