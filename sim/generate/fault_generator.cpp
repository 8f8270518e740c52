#include "sim/generate/fault_generator.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "sim/machine/faults.h"

// No two random numbers may be drawn in the arguments of one call: compilers differ in the order in which
// they evaluate them.

namespace brisko::lab {
namespace {

using virtual_mac::Fault;

constexpr const char* dataFolder = "/Library/Application Support/Brisko/";

// What incidents are generated from.
struct Context {
  const MacTraits& mac;
  const ScenarioJson& settings;  // which the user's app restores
  Rng& rng;
  Timeline& timeline;
};

struct Range {
  std::int64_t least, most;
};

std::int64_t between(const Range& range, Rng& rng) { return rng.between(range.least, range.most); }

// --- Durations

// Some minutes, some hours, or days.
std::int64_t randomWhile(Rng& rng) {
  return between(
      rng.oneOf(std::array{Range{15, 900}, Range{900, 10800}, Range{10800, 43200}, Range{43200, 200000}}),
      rng);
}

// A fault that keeps the daemon from starting is repaired soon. Otherwise the daemon would do nothing but
// restart.
std::int64_t shortWhile(Rng& rng) { return rng.between(15, 900); }

// --- Arguments of the faults

// The keys of a Mac and their sizes in bytes.
struct Key {
  const char* name;
  std::int64_t size;
};
constexpr std::array readings{Key{"AC-W", 1}, Key{"TB0T", 4}, Key{"CHSC", 1}, Key{"B0AC", 2}};

std::vector<Key> keysOf(const MacTraits& mac) {
  std::vector<Key> keys{{"ACLC", 1}};
  if (mac.charge == "chte") keys.push_back({"CHTE", 4});
  if (mac.charge == "ch0b0c") keys.insert(keys.end(), {{"CH0B", 1}, {"CH0C", 1}});
  if (mac.charge == "firmware-band") keys.insert(keys.end(), {{"bfF0", 1}, {"bfD0", 1}, {"bfE0", 1}});
  if (mac.cut == "chie") keys.push_back({"CHIE", 1});
  if (mac.cut == "ch0i") keys.push_back({"CH0I", 1});
  if (mac.cut == "ch0j") keys.push_back({"CH0J", 1});
  return keys;
}

constexpr std::array everyKey{Key{"CHTE", 4}, Key{"CH0B", 1}, Key{"CH0C", 1}, Key{"bfF0", 1}, Key{"bfD0", 1},
                              Key{"bfE0", 1}, Key{"CHIE", 1}, Key{"CH0I", 1}, Key{"CH0J", 1}, Key{"bfG0", 1}};

Key randomKey(const MacTraits& mac, Rng& rng) {
  const std::uint64_t which = rng.below(10);
  if (which < 2) return rng.oneOf(readings);
  return which == 2 ? rng.oneOf(everyKey) : rng.oneOf(keysOf(mac));
}

std::string hex(std::uint64_t byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  return {digits[(byte >> 4U) & 15U], digits[byte & 15U]};
}

// Bytes that such keys really contain, or arbitrary ones.
std::string randomBytes(const Key& key, Rng& rng) {
  std::string bytes;
  const bool anything = rng.oneIn(3);
  constexpr std::array<std::uint64_t, 6> known{0x00, 0x01, 0x02, 0x08, 0x50, 0xFF};
  for (std::int64_t count = 0; count < key.size; ++count) {
    const std::uint64_t byte = anything ? rng.below(256) : count == 0 ? rng.oneOf(known) : 0;
    bytes += hex(byte);
  }
  return bytes;
}

constexpr std::array properties{"CurrentCapacity",
                                "MaxCapacity",
                                "Amperage",
                                "Voltage",
                                "CycleCount",
                                "DesignCapacity",
                                "AppleRawMaxCapacity",
                                "BatteryData",
                                "IsCharging",
                                "ExternalConnected",
                                "Temperature",
                                "System Capabilities",
                                "BatteryData/DesignCapacity",
                                "BatteryInstalled",
                                "AppleRawCurrentCapacity",
                                "NominalChargeCapacity"};

// How a fault is chosen and repaired; a fault without a row is drawn from its possible range and stays.
struct FaultRow {
  std::string_view fault;
  std::optional<Range> usual = {};          // of its number; the list of faults has the possible range
  std::string_view repairedBy = {};         // another fault, with the same arguments
  std::optional<std::int64_t> normal = {};  // the number of a healthy Mac, which repairs it
};
constexpr std::array faultRows{
    FaultRow{.fault = "plug", .usual = {{20, 140}}},
    FaultRow{.fault = "charge", .usual = {{5, 100}}},
    FaultRow{.fault = "load", .usual = {{3, 60}}, .normal = 8},
    FaultRow{.fault = "ambient", .usual = {{5, 40}}, .normal = 23},
    FaultRow{.fault = "temperature", .usual = {{10, 50}}, .normal = 28},
    FaultRow{.fault = "health", .usual = {{2500, 9000}}},
    FaultRow{.fault = "cycles", .usual = {{0, 1200}}},
    FaultRow{.fault = "slow-current", .usual = {{0, 120}}, .normal = 0},
    FaultRow{.fault = "trickle", .usual = {{0, 300}}, .normal = 0},
    FaultRow{.fault = "key-size", .usual = {{0, 4}}},
    FaultRow{.fault = "key-taken-back-after", .usual = {{1, 900}}, .repairedBy = "key-stays"},
    FaultRow{.fault = "late-power-source", .usual = {{1, 60}}, .normal = 0},
    FaultRow{.fault = "macos", .usual = {{14, 27}}},
    FaultRow{.fault = "capabilities", .usual = {{0, 15}}, .normal = 15},
    FaultRow{.fault = "dark-wake", .usual = {{10, 300}}},
    FaultRow{.fault = "scheduled-wakes", .usual = {{0, 1}}},
    FaultRow{.fault = "battery-wakes", .usual = {{5, 45}}},
    FaultRow{.fault = "adapter-wakes", .usual = {{0, 1}}},
    FaultRow{.fault = "cut-keeps-external", .usual = {{0, 1}}},
    FaultRow{.fault = "late-capabilities", .usual = {{0, 5}}},
    FaultRow{.fault = "limit", .usual = {{80, 100}}},
    FaultRow{.fault = "charge-to-full", .usual = {{0, 43200}}},
    FaultRow{.fault = "limit-put-back", .usual = {{5, 3600}}, .normal = -1},
    FaultRow{.fault = "limit-delay", .usual = {{0, 120}}, .normal = 5},
    FaultRow{.fault = "limit-supported-after", .usual = {{0, 300}}, .normal = 0},
    FaultRow{.fault = "limit-readable-after", .usual = {{0, 300}}, .normal = 0},
    FaultRow{.fault = "clock-step", .usual = {{-7200, 7200}}},
    FaultRow{.fault = "user", .usual = {{501, 502}}, .normal = 0},
    FaultRow{.fault = "key-missing", .repairedBy = "key-appears"},
    FaultRow{.fault = "key-ignores-write", .repairedBy = "key-obeys"},
    FaultRow{.fault = "key-without-effect", .repairedBy = "key-obeys"},
    FaultRow{.fault = "key-refuses-write", .repairedBy = "key-obeys"},
    FaultRow{.fault = "key-write-fails", .repairedBy = "key-obeys"},
    FaultRow{.fault = "key-refused", .repairedBy = "key-granted"},
    FaultRow{.fault = "light-taken", .repairedBy = "light-left"},
    FaultRow{.fault = "no-controller", .repairedBy = "controller-present"},
    FaultRow{.fault = "controller-refuses", .repairedBy = "controller-present"},
    FaultRow{.fault = "property-missing", .repairedBy = "property-healed"},
    FaultRow{.fault = "property-text", .repairedBy = "property-healed"},
    FaultRow{.fault = "property-real", .repairedBy = "property-healed"},
    FaultRow{.fault = "property-unsigned", .repairedBy = "property-healed"},
    FaultRow{.fault = "no-power-snapshot", .repairedBy = "power-sources-healed"},
    FaultRow{.fault = "no-power-sources", .repairedBy = "power-sources-healed"},
    FaultRow{.fault = "no-internal-battery", .repairedBy = "power-sources-healed"},
    FaultRow{.fault = "ups-first", .repairedBy = "power-sources-healed"},
    FaultRow{.fault = "battery-out", .repairedBy = "battery-in"},
    FaultRow{.fault = "weak-adapter", .repairedBy = "plug"},
    FaultRow{.fault = "idle-sleep-vetoed", .repairedBy = "sleep-granted"},
    FaultRow{.fault = "sleep-cancelled", .repairedBy = "sleep-granted"},
    FaultRow{.fault = "sleep-refused", .repairedBy = "sleep-granted"},
    FaultRow{.fault = "schedule-refused", .repairedBy = "schedule-granted"},
    FaultRow{.fault = "no-power-clients", .repairedBy = "power-clients"},
    FaultRow{.fault = "no-limit-framework", .repairedBy = "limit-client"},
    FaultRow{.fault = "no-limit-class", .repairedBy = "limit-client"},
    FaultRow{.fault = "no-limit-selector", .repairedBy = "limit-client"},
    FaultRow{.fault = "limit-state-unreadable", .repairedBy = "limit-state-readable"},
    FaultRow{.fault = "limit-value-unreadable", .repairedBy = "limit-value-readable"},
    FaultRow{.fault = "limit-refused", .repairedBy = "limit-granted"},
    FaultRow{.fault = "limit-set-fails", .repairedBy = "limit-granted"},
    FaultRow{.fault = "preferences-fail", .repairedBy = "preferences-written"},
    FaultRow{.fault = "daemon-signature-unreadable", .repairedBy = "daemon-signature-readable"},
};

FaultRow rowOf(const Fault& fault) {
  const auto* row = std::find_if(faultRows.begin(), faultRows.end(),
                                 [&](const FaultRow& each) { return each.fault == fault.name; });
  return row == faultRows.end() ? FaultRow{.fault = fault.name} : *row;
}

std::int64_t randomNumber(const Fault& fault, Rng& rng) {
  const std::optional<Range> usual = rowOf(fault).usual;
  if (usual && !rng.oneIn(6)) return between(*usual, rng);
  return rng.between(static_cast<std::int64_t>(fault.range().least),
                     static_cast<std::int64_t>(fault.range().most));
}

// --- Repairs

struct RandomFault {
  ScenarioJson action;
  std::optional<ScenarioJson> repair;
  bool keepsFromStarting = false;
};

std::optional<ScenarioJson> repairOf(const Fault& fault, const MacTraits& mac, const Key& key,
                                     const ScenarioJson& value) {
  const FaultRow row = rowOf(fault);
  const std::string repairedBy(row.repairedBy);
  if (!repairedBy.empty() && fault.asks.key) return actionOf(repairedBy, key.name);
  if (!repairedBy.empty() && fault.asks.text) return actionOf(repairedBy, value);
  if (!repairedBy.empty()) return ScenarioJson(repairedBy);
  if (row.normal) return actionOf(std::string(fault.name), *row.normal);
  if (fault.name == "key-size") return actionOf("key-size", {{"key", key.name}, {"number", key.size}});
  if (fault.name == "key-written" && key.name[0] != 'C') return actionOf("key-truthful", key.name);
  if (fault.name == "capabilities-unreadable") return actionOf("capabilities", 15);
  if (fault.name == "flat-layout" || fault.name == "nested-layout") {
    return ScenarioJson(mac.macOS >= 27 ? "nested-layout" : "flat-layout");
  }
  return std::nullopt;
}

bool keepsFromStarting(const Fault& fault, const Key& key, const MacTraits& mac) {
  if (fault.name == "no-controller" || fault.name == "controller-refuses" || fault.name == "user")
    return true;
  const std::vector<Key> own = keysOf(mac);
  const bool ofGate = std::any_of(own.begin(), own.end(), [&](const Key& one) {
    return std::string_view(one.name) == key.name && one.name != std::string_view("ACLC");
  });
  return ofGate && (fault.name == "key-missing" || fault.name == "key-size" || fault.name == "key-refused");
}

RandomFault addFaultAt(const Fault& fault, const MacTraits& mac, Rng& rng) {
  const std::string name(fault.name);
  Key key{"", 0};
  ScenarioJson value;
  if (fault.asks.key) key = randomKey(mac, rng);
  if (fault.asks.key) value = key.name;
  if (fault.asks.text) value = rng.oneOf(properties);
  if (fault.asks.number) {
    const std::int64_t number = randomNumber(fault, rng);
    value = fault.asks.key ? ScenarioJson{{"key", key.name}, {"number", number}} : ScenarioJson(number);
  }
  if (fault.asks.bytes) value = {{"key", key.name}, {"bytes", randomBytes(key, rng)}};
  return {.action = value.is_null() ? ScenarioJson(name) : actionOf(name, value),
          .repair = repairOf(fault, mac, key, value),
          .keepsFromStarting = keepsFromStarting(fault, key, mac)};
}

void note(std::int64_t at, const RandomFault& randomFault, bool repaired, const Context& context) {
  context.timeline.note(at, randomFault.action);
  if (!randomFault.repair || (!repaired && !randomFault.keepsFromStarting)) return;
  context.timeline.note(
      at + (randomFault.keepsFromStarting ? shortWhile(context.rng) : randomWhile(context.rng)),
      *randomFault.repair);
}

// --- More than a single fault

void upgrade(std::int64_t at, const Context& context) {
  const std::int64_t version = context.rng.between(15, 27);
  context.timeline.note(at, "shutdown");
  context.timeline.note(at + 60, actionOf("macos", version));
  context.timeline.note(at + context.rng.between(300, 2400), "boot");
}

void losePower(std::int64_t at, const Context& context) {
  context.timeline.note(at, "power-loss");
  context.timeline.note(at + context.rng.oneOf(std::array{20, 300, 7200}), "boot");
}

void fillDisk(std::int64_t at, const Context& context) {
  context.timeline.note(at, "disk-full");
  context.timeline.note(at + randomWhile(context.rng), "disk-freed");
}

void spoilSettings(std::int64_t at, const Context& context) {
  const ScenarioJson odd = oddSettings(context.rng);
  context.timeline.note(
      at, context.rng.oneIn(2) ? actionOf("settings-file", odd) : actionOf("settings-replaced", odd));
  context.timeline.note(at + randomWhile(context.rng), actionOf("settings-file", context.settings));
}

void removeSettings(std::int64_t at, const Context& context) {
  context.timeline.note(at, "settings-removed");
  context.timeline.note(at + randomWhile(context.rng), actionOf("settings-replaced", context.settings));
}

// Writes a number that ends the daemon at every start.
void writeFatalNumber(std::int64_t at, const Context& context) {
  constexpr std::array texts{R"({"limit": 1e30})", R"({"hysteresis": 18446744073709551616})",
                             R"({"thermalLimit": -1e300})",
                             R"({"calibrate": true, "calSoakMinutes": 9223372036854775807})"};
  context.timeline.note(at, actionOf("settings-file", context.rng.oneOf(texts)));
  context.timeline.note(at + shortWhile(context.rng), actionOf("settings-file", context.settings));
}

// Puts a folder where a file belongs, or a file where a folder belongs.
void blockFile(std::int64_t at, const Context& context) {
  constexpr std::array files{"config.json", "status.json", "stats.json", "calibration.json"};
  const std::string file = context.rng.oneIn(5) ? std::string("history") : context.rng.oneOf(files);
  const std::string path = dataFolder + file;
  const std::string written = file == "history" ? path : path + "/inside";
  context.timeline.note(at, actionOf("remove", path));
  context.timeline.note(at, actionOf("write", {{"path", written}, {"text", "in the way"}}));
  const std::int64_t later = at + randomWhile(context.rng);
  context.timeline.note(later, actionOf("remove", path));
  if (file == "config.json") context.timeline.note(later, actionOf("settings-file", context.settings));
}

void spoilRecord(std::int64_t at, const Context& context) {
  constexpr std::array files{"status.json", "stats.json", "calibration.json"};
  constexpr std::array texts{"",
                             "{",
                             "[]",
                             "\x01\x02",
                             R"({"protectedSeconds": -5})",
                             R"({"protectedSeconds": "many", "since": []})",
                             R"({"protectedSeconds": 1e12, "phase": "dance", "soakBanked": -1})",
                             R"({"phase": 3, "runs": {}, "startedAt": null})"};
  const std::string path = dataFolder + std::string(context.rng.oneOf(files));
  context.timeline.note(at, actionOf("write", {{"path", path}, {"text", context.rng.oneOf(texts)}}));
  if (context.rng.oneIn(2)) context.timeline.note(at, "kill");
}

void removeFolders(std::int64_t at, const Context& context) {
  constexpr std::array folders{"/Library/Logs/Brisko", "/Library/Application Support/Brisko",
                               "/Library/Application Support/Brisko/history",
                               "/Library/Logs/Brisko/daemon.log"};
  context.timeline.note(at, actionOf("remove", context.rng.oneOf(folders)));
}

void letStrangersAsk(std::int64_t at, const Context& context) {
  constexpr std::array strangers{"wrong-team", "wrong-app", "unsigned"};
  constexpr std::array requests{"purge", "release", "restart"};
  const std::string stranger = context.rng.oneOf(strangers);
  if (context.rng.oneIn(2)) {
    context.timeline.note(
        at, actionOf("ask", {{"request", "apply"}, {"settings", {{"limit", 100}}}, {"as", stranger}}));
  } else {
    context.timeline.note(at, actionOf("ask", {{"request", context.rng.oneOf(requests)}, {"as", stranger}}));
  }
}

void sendNonsense(std::int64_t at, const Context& context) {
  ScenarioJson settings = oddSettings(context.rng);
  if (settings == "") settings = " ";  // an empty request would not be a request
  context.timeline.note(at, actionOf("ask", {{"request", "apply"}, {"settings", settings}}));
}

void killBetweenWrites(std::int64_t at, const Context& context) {
  context.timeline.note(at, context.rng.oneIn(2) ? "kill-at-exchange" : "terminate-at-exchange");
  context.timeline.note(at, context.rng.oneIn(2) ? "plug" : "unplug");
}

// Kills the daemon several times at once, at a bad moment.
void killOverAndOver(std::int64_t at, const Context& context) {
  for (std::int64_t count = context.rng.between(1, 4); count > 0; --count) {
    context.timeline.note(at, "kill");
    at += context.rng.between(1, 30);
  }
}

// --- Common faults

void addCommonFault(std::int64_t at, const Context& context) {
  constexpr std::array<std::string_view, 21> names{
      "late-power-source", "weak-adapter",     "light-taken",
      "sleep-refused",     "sleep-cancelled",  "idle-sleep-vetoed",
      "schedule-refused",  "ups-first",        "no-power-snapshot",
      "property-missing",  "limit-put-back",   "kill",
      "interrupt",         "terminate",        "trickle",
      "slow-current",      "no-power-clients", "limit-state-unreadable",
      "limit-delay",       "kill-at-exchange", "charge"};
  RandomFault randomFault =
      addFaultAt(*virtual_mac::findFault(context.rng.oneOf(names)), context.mac, context.rng);
  if (randomFault.action.is_object() && randomFault.action.contains("charge")) {
    // A gauge that recalibrates itself jumps, but never far.
    randomFault.action = actionOf("charge", context.rng.between(30, 95));
  }
  note(at, randomFault, true, context);
}

void addAnyFault(std::int64_t at, const Context& context) {
  const Fault& fault = context.rng.oneOf(virtual_mac::faults());
  const RandomFault randomFault = addFaultAt(fault, context.mac, context.rng);
  note(at, randomFault, context.rng.percent(85), context);
}

void takeBackCut(std::int64_t at, const Context& context) {
  const std::vector<Key> keys = keysOf(context.mac);
  context.timeline.note(at, actionOf("key-taken-back", keys.back().name));
}

void adjustClock(std::int64_t at, const Context& context) {
  context.timeline.note(at, actionOf("clock-step", context.rng.between(-120, 120)));
}

void setClock(std::int64_t at, const Context& context) {
  constexpr std::array steps{-3600, 3600, -86400, 86400};
  context.timeline.note(at, actionOf("clock-step", context.rng.oneOf(steps)));
}

// --- How often which incident

struct Incident {
  unsigned weight;
  void (*add)(std::int64_t at, const Context& context);
};

constexpr std::array damages{
    Incident{6, fillDisk},          Incident{8, spoilSettings},   Incident{5, removeSettings},
    Incident{1, writeFatalNumber},  Incident{4, blockFile},       Incident{5, spoilRecord},
    Incident{4, removeFolders},     Incident{3, letStrangersAsk}, Incident{3, sendNonsense},
    Incident{5, killBetweenWrites}, Incident{4, killOverAndOver}};

void damageFiles(std::int64_t at, const Context& context) { context.rng.weighted(damages).add(at, context); }

constexpr std::array commonIncidents{
    Incident{50, addCommonFault}, Incident{8, losePower},   Incident{5, fillDisk},
    Incident{5, spoilSettings},   Incident{6, upgrade},     Incident{4, letStrangersAsk},
    Incident{5, adjustClock},     Incident{8, takeBackCut}, Incident{2, setClock}};

constexpr std::array allIncidents{Incident{70, addAnyFault}, Incident{20, damageFiles},
                                  Incident{4, losePower}, Incident{3, upgrade}};

// Adds one incident after another, `meanPause` seconds apart on average.
void addIncidents(std::span<const Incident> incidents, std::int64_t meanPause, const Context& context) {
  for (std::int64_t at = context.rng.between(60, 2 * meanPause); at < context.timeline.seconds();
       at += context.rng.between(60, 2 * meanPause)) {
    context.rng.weighted(incidents).add(at, context);
  }
}

}  // namespace

ScenarioJson oddSettings(Rng& rng) {
  constexpr std::array texts{"",
                             "{",
                             "{\"limit\": 70",
                             "[]",
                             "null",
                             "\"limit\"",
                             R"({"limit": "80"})",
                             R"({"limit": 79.9, "hysteresis": "wide"})",
                             R"({"limit": -5, "hysteresis": -3})",
                             R"({"limit": 1000, "hysteresis": 1000})",
                             R"({"limit": 0})",
                             R"({"limit": null, "enabled": null, "led": null})",
                             R"({"enabled": "no", "discharge": "yes", "led": 0})",
                             R"({"enabled": 0, "discharge": 1})",
                             R"({"blinkSeconds": -1, "led": true})",
                             R"({"blinkSeconds": 0, "led": true})",
                             R"({"blinkSeconds": 1e300, "led": true})",
                             R"({"thermal": true, "thermalLimit": -100})",
                             R"({"topUp": true, "topUpHours": -4})",
                             R"({"topUp": true, "topUpHours": 1000000000000})",
                             R"({"calibrate": true, "calDrain": 200, "calSoakMinutes": -1})",
                             R"({"historyDays": -1})",
                             R"({"historyDays": 9000000000000000000})",
                             R"({"limit": [80], "settings": {"limit": {"limit": 80}}})",
                             R"({"LIMIT": 60, "limit ": 50})",
                             R"({"limit": 80, "limit": 60})"};
  return rng.oneOf(texts);
}

std::vector<ScenarioJson> randomQuirks(Rng& rng) {
  std::vector<ScenarioJson> quirks;
  const auto choose = [&](std::initializer_list<const char*> names) {
    if (rng.oneIn(2)) return;
    quirks.emplace_back(std::data(names)[rng.below(names.size())]);
  };
  choose({"limit-below-80-ignored", "limit-below-80-lifted", "limit-below-80-taken"});
  choose({"limit-off-step-ignored", "limit-off-step-rounded", "limit-off-step-taken"});
  choose({"limit-drains", "limit-waits"});
  choose({"no-limit-shown-as-100", "no-limit-shown-as-0"});
  choose({"light-taken", "light-left"});
  if (rng.oneIn(4)) quirks.push_back(actionOf("limit", 5 * rng.between(16, 20)));
  return quirks;
}

void addCommonFaults(const MacTraits& mac, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  const std::int64_t meanPause = rng.oneOf(std::array{1, 3, 6}) * secondsOfDay;
  addIncidents(commonIncidents, meanPause, {mac, settings, rng, timeline});
}

void addAllFaults(const MacTraits& mac, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  // Some scenarios have a fault now and then, and some have several every day.
  const std::int64_t meanPause = rng.oneOf(std::array{2 * 86400, 86400, 43200, 14400});
  addIncidents(allIncidents, meanPause, {mac, settings, rng, timeline});
}

}  // namespace brisko::lab
