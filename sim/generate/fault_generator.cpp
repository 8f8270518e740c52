#include "sim/generate/fault_generator.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "sim/machine/faults.h"

// No two random numbers may be drawn in the arguments of one call: compilers differ in the order in which
// they evaluate them.

namespace brisko::lab {
namespace {

using virtual_mac::Fault;

constexpr const char* dataFolder = "/Library/Application Support/Brisko/";

// --- Durations

// Some minutes, some hours, or days.
std::int64_t randomWhile(Rng& rng) {
  switch (rng.between(0, 3)) {
    case 0:
      return rng.between(15, 900);
    case 1:
      return rng.between(900, 10800);
    case 2:
      return rng.between(10800, 43200);
    default:
      return rng.between(43200, 200000);
  }
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
  switch (rng.between(0, 9)) {
    case 0:
    case 1:
      return rng.oneOf(readings);
    case 2:
      return rng.oneOf(everyKey);
    default:
      return rng.oneOf(keysOf(mac));
  }
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

// The usual range of each measured value; the list of faults has the possible range.
struct Usual {
  std::string_view name;
  std::int64_t least, most;
};
constexpr std::array usual{
    Usual{"plug", 20, 140},
    Usual{"charge", 5, 100},
    Usual{"load", 3, 60},
    Usual{"ambient", 5, 40},
    Usual{"temperature", 10, 50},
    Usual{"health", 2500, 9000},
    Usual{"cycles", 0, 1200},
    Usual{"slow-current", 0, 120},
    Usual{"trickle", 0, 300},
    Usual{"key-size", 0, 4},
    Usual{"key-taken-back-after", 1, 900},
    Usual{"late-power-source", 1, 60},
    Usual{"macos", 14, 27},
    Usual{"capabilities", 0, 15},
    Usual{"dark-wake", 10, 300},
    Usual{"scheduled-wakes", 0, 120},
    Usual{"limit", 80, 100},
    Usual{"charge-to-full", 0, 43200},
    Usual{"limit-put-back", 5, 3600},
    Usual{"limit-delay", 0, 120},
    Usual{"limit-supported-after", 0, 300},
    Usual{"limit-readable-after", 0, 300},
    Usual{"clock-step", -7200, 7200},
    Usual{"user", 501, 502},
};

std::int64_t randomNumber(const Fault& fault, Rng& rng) {
  const auto* known =
      std::find_if(usual.begin(), usual.end(), [&](const Usual& entry) { return entry.name == fault.name; });
  if (known != usual.end() && !rng.oneIn(6)) return rng.between(known->least, known->most);
  return rng.between(static_cast<std::int64_t>(fault.range().least),
                     static_cast<std::int64_t>(fault.range().most));
}

// --- Repairs

struct RandomFault {
  ScenarioJson action;
  std::optional<ScenarioJson> repair;
  bool keepsFromStarting = false;
};

struct Repair {
  std::string_view fault;
  std::string_view name;
};
// Faults that are repaired by another fault with the same arguments.
constexpr std::array repairs{
    Repair{"key-missing", "key-appears"},
    Repair{"key-ignores-write", "key-obeys"},
    Repair{"key-without-effect", "key-obeys"},
    Repair{"key-refuses-write", "key-obeys"},
    Repair{"key-write-fails", "key-obeys"},
    Repair{"key-refused", "key-granted"},
    Repair{"key-taken-back-after", "key-stays"},
    Repair{"light-taken", "light-left"},
    Repair{"no-controller", "controller-present"},
    Repair{"controller-refuses", "controller-present"},
    Repair{"property-missing", "property-healed"},
    Repair{"property-text", "property-healed"},
    Repair{"property-real", "property-healed"},
    Repair{"property-unsigned", "property-healed"},
    Repair{"no-power-snapshot", "power-sources-healed"},
    Repair{"no-power-sources", "power-sources-healed"},
    Repair{"no-internal-battery", "power-sources-healed"},
    Repair{"ups-first", "power-sources-healed"},
    Repair{"battery-out", "battery-in"},
    Repair{"weak-adapter", "plug"},
    Repair{"sleep-refused", "sleep-granted"},
    Repair{"schedule-refused", "schedule-granted"},
    Repair{"no-power-clients", "power-clients"},
    Repair{"no-limit-framework", "limit-client"},
    Repair{"no-limit-class", "limit-client"},
    Repair{"no-limit-selector", "limit-client"},
    Repair{"limit-state-unreadable", "limit-state-readable"},
    Repair{"limit-value-unreadable", "limit-value-readable"},
    Repair{"limit-refused", "limit-granted"},
    Repair{"limit-set-fails", "limit-granted"},
    Repair{"preferences-fail", "preferences-written"},
    Repair{"daemon-signature-unreadable", "daemon-signature-readable"},
};
struct Normal {
  std::string_view fault;
  std::int64_t number;
};
// Faults that are repaired by restoring a healthy Mac's number.
constexpr std::array normal{
    Normal{"slow-current", 0},
    Normal{"trickle", 0},
    Normal{"late-power-source", 0},
    Normal{"load", 8},
    Normal{"ambient", 23},
    Normal{"temperature", 28},
    Normal{"limit-put-back", -1},
    Normal{"limit-delay", 5},
    Normal{"limit-supported-after", 0},
    Normal{"limit-readable-after", 0},
    Normal{"capabilities", 15},
    Normal{"user", 0},
};

std::optional<ScenarioJson> repairOf(const Fault& fault, const MacTraits& mac, const Key& key,
                                     const ScenarioJson& value) {
  for (const Repair& repair : repairs) {
    if (repair.fault != fault.name) continue;
    if (fault.asks.key) return actionOf(std::string(repair.name), key.name);
    if (fault.asks.text) return actionOf(std::string(repair.name), value);
    return ScenarioJson(std::string(repair.name));
  }
  for (const Normal& entry : normal) {
    if (entry.fault == fault.name) return actionOf(std::string(fault.name), entry.number);
  }
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

void note(std::int64_t at, const RandomFault& randomFault, bool repaired, Rng& rng, Timeline& timeline) {
  timeline.note(at, randomFault.action);
  if (!randomFault.repair || (!repaired && !randomFault.keepsFromStarting)) return;
  timeline.note(at + (randomFault.keepsFromStarting ? shortWhile(rng) : randomWhile(rng)),
                *randomFault.repair);
}

// --- More than a single fault

void upgrade(std::int64_t at, Rng& rng, Timeline& timeline) {
  const std::int64_t version = rng.between(15, 27);
  timeline.note(at, "shutdown");
  timeline.note(at + 60, actionOf("macos", version));
  timeline.note(at + rng.between(300, 2400), "boot");
}

void losePower(std::int64_t at, Rng& rng, Timeline& timeline) {
  timeline.note(at, "power-loss");
  timeline.note(at + rng.oneOf(std::array{20, 300, 7200}), "boot");
}

void fillDisk(std::int64_t at, Rng& rng, Timeline& timeline) {
  timeline.note(at, "disk-full");
  timeline.note(at + randomWhile(rng), "disk-freed");
}

void spoilSettings(std::int64_t at, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  const ScenarioJson odd = oddSettings(rng);
  timeline.note(at, rng.oneIn(2) ? actionOf("settings-file", odd) : actionOf("settings-replaced", odd));
  timeline.note(at + randomWhile(rng), actionOf("settings-file", settings));
}

void removeSettings(std::int64_t at, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  timeline.note(at, "settings-removed");
  timeline.note(at + randomWhile(rng), actionOf("settings-replaced", settings));
}

// Writes a number that the daemon refuses to guess about. It ends the process again and again.
void writeFatalNumber(std::int64_t at, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  constexpr std::array texts{R"({"limit": 1e30})", R"({"hysteresis": 18446744073709551616})",
                             R"({"thermalLimit": -1e300})",
                             R"({"calibrate": true, "calSoakMinutes": 9223372036854775807})"};
  timeline.note(at, actionOf("settings-file", rng.oneOf(texts)));
  timeline.note(at + shortWhile(rng), actionOf("settings-file", settings));
}

// Puts a folder where a file belongs, or a file where a folder belongs.
void blockFile(std::int64_t at, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  constexpr std::array files{"config.json", "status.json", "stats.json", "calibration.json"};
  const std::string file = rng.oneIn(5) ? std::string("history") : rng.oneOf(files);
  const std::string path = dataFolder + file;
  const std::string written = file == "history" ? path : path + "/inside";
  timeline.note(at, actionOf("remove", path));
  timeline.note(at, actionOf("write", {{"path", written}, {"text", "in the way"}}));
  const std::int64_t later = at + randomWhile(rng);
  timeline.note(later, actionOf("remove", path));
  if (file == "config.json") timeline.note(later, actionOf("settings-file", settings));
}

void spoilRecord(std::int64_t at, Rng& rng, Timeline& timeline) {
  constexpr std::array files{"status.json", "stats.json", "calibration.json"};
  constexpr std::array texts{"",
                             "{",
                             "[]",
                             "\x01\x02",
                             R"({"protectedSeconds": -5})",
                             R"({"protectedSeconds": "many", "since": []})",
                             R"({"protectedSeconds": 1e12, "phase": "dance", "soakBanked": -1})",
                             R"({"phase": 3, "runs": {}, "startedAt": null})"};
  const std::string path = dataFolder + std::string(rng.oneOf(files));
  timeline.note(at, actionOf("write", {{"path", path}, {"text", rng.oneOf(texts)}}));
  if (rng.oneIn(2)) timeline.note(at, "kill");
}

void removeFolders(std::int64_t at, Rng& rng, Timeline& timeline) {
  constexpr std::array folders{"/Library/Logs/Brisko", "/Library/Application Support/Brisko",
                               "/Library/Application Support/Brisko/history",
                               "/Library/Logs/Brisko/daemon.log"};
  timeline.note(at, actionOf("remove", rng.oneOf(folders)));
}

void letStrangersAsk(std::int64_t at, Rng& rng, Timeline& timeline) {
  constexpr std::array strangers{"wrong-team", "wrong-app", "unsigned"};
  constexpr std::array requests{"purge", "release", "restart"};
  const std::string stranger = rng.oneOf(strangers);
  if (rng.oneIn(2)) {
    timeline.note(at,
                  actionOf("ask", {{"request", "apply"}, {"settings", {{"limit", 100}}}, {"as", stranger}}));
  } else {
    timeline.note(at, actionOf("ask", {{"request", rng.oneOf(requests)}, {"as", stranger}}));
  }
}

void sendNonsense(std::int64_t at, Rng& rng, Timeline& timeline) {
  ScenarioJson settings = oddSettings(rng);
  if (settings == "") settings = " ";  // an empty request would not be a request
  timeline.note(at, actionOf("ask", {{"request", "apply"}, {"settings", settings}}));
}

void killBetweenWrites(std::int64_t at, Rng& rng, Timeline& timeline) {
  timeline.note(at, rng.oneIn(2) ? "kill-at-exchange" : "terminate-at-exchange");
  timeline.note(at, rng.oneIn(2) ? "plug" : "unplug");
}

// Kills the daemon several times at once, at a bad moment.
void killOverAndOver(std::int64_t at, Rng& rng, Timeline& timeline) {
  for (std::int64_t count = rng.between(1, 4); count > 0; --count) {
    timeline.note(at, "kill");
    at += rng.between(1, 30);
  }
}

void damageFiles(std::int64_t at, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  constexpr std::array<unsigned, 11> weights{6, 8, 5, 1, 4, 5, 4, 3, 3, 5, 4};
  switch (rng.weighted(weights)) {
    case 0:
      return fillDisk(at, rng, timeline);
    case 1:
      return spoilSettings(at, settings, rng, timeline);
    case 2:
      return removeSettings(at, settings, rng, timeline);
    case 3:
      return writeFatalNumber(at, settings, rng, timeline);
    case 4:
      return blockFile(at, settings, rng, timeline);
    case 5:
      return spoilRecord(at, rng, timeline);
    case 6:
      return removeFolders(at, rng, timeline);
    case 7:
      return letStrangersAsk(at, rng, timeline);
    case 8:
      return sendNonsense(at, rng, timeline);
    case 9:
      return killBetweenWrites(at, rng, timeline);
    default:
      return killOverAndOver(at, rng, timeline);
  }
}

// --- Common faults

RandomFault commonFault(const MacTraits& mac, Rng& rng) {
  constexpr std::array<std::string_view, 19> names{"late-power-source",
                                                   "weak-adapter",
                                                   "light-taken",
                                                   "sleep-refused",
                                                   "schedule-refused",
                                                   "ups-first",
                                                   "no-power-snapshot",
                                                   "property-missing",
                                                   "limit-put-back",
                                                   "kill",
                                                   "interrupt",
                                                   "terminate",
                                                   "trickle",
                                                   "slow-current",
                                                   "no-power-clients",
                                                   "limit-state-unreadable",
                                                   "limit-delay",
                                                   "kill-at-exchange",
                                                   "charge"};
  RandomFault randomFault = addFaultAt(*virtual_mac::findFault(rng.oneOf(names)), mac, rng);
  if (randomFault.action.is_object() && randomFault.action.contains("charge")) {
    // A gauge that recalibrates itself jumps, but never far.
    randomFault.action = actionOf("charge", rng.between(30, 95));
  }
  return randomFault;
}

void takeBackCut(std::int64_t at, const MacTraits& mac, Timeline& timeline) {
  const std::vector<Key> keys = keysOf(mac);
  timeline.note(at, actionOf("key-taken-back", keys.back().name));
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
  if (rng.oneIn(3)) quirks.push_back(actionOf("scheduled-wakes", rng.between(0, 120)));
  if (rng.oneIn(4)) quirks.push_back(actionOf("limit", 5 * rng.between(16, 20)));
  return quirks;
}

void addCommonFaults(const MacTraits& mac, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  const std::int64_t meanPause = rng.oneOf(std::array{1, 3, 6}) * secondsOfDay;
  for (std::int64_t at = rng.between(60, 2 * meanPause); at < timeline.seconds();
       at += rng.between(60, 2 * meanPause)) {
    constexpr std::array<unsigned, 9> weights{50, 8, 5, 5, 6, 4, 5, 8, 2};
    switch (rng.weighted(weights)) {
      case 1:
        losePower(at, rng, timeline);
        break;
      case 2:
        fillDisk(at, rng, timeline);
        break;
      case 3:
        spoilSettings(at, settings, rng, timeline);
        break;
      case 4:
        upgrade(at, rng, timeline);
        break;
      case 5:
        letStrangersAsk(at, rng, timeline);
        break;
      case 6:
        timeline.note(at, actionOf("clock-step", rng.between(-120, 120)));
        break;
      case 7:
        takeBackCut(at, mac, timeline);
        break;
      case 8:
        timeline.note(at, actionOf("clock-step", rng.oneOf(std::array{-3600, 3600, -86400, 86400})));
        break;
      default:
        note(at, commonFault(mac, rng), true, rng, timeline);
    }
  }
}

void addAllFaults(const MacTraits& mac, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  // Some scenarios have a fault now and then, and some have several every day.
  const std::int64_t meanPause = rng.oneOf(std::array{2 * 86400, 86400, 43200, 14400});
  for (std::int64_t at = rng.between(60, 2 * meanPause); at < timeline.seconds();
       at += rng.between(60, 2 * meanPause)) {
    constexpr std::array<unsigned, 4> weights{70, 20, 4, 3};
    switch (rng.weighted(weights)) {
      case 1:
        damageFiles(at, settings, rng, timeline);
        break;
      case 2:
        losePower(at, rng, timeline);
        break;
      case 3:
        upgrade(at, rng, timeline);
        break;
      default: {
        const RandomFault randomFault =
            addFaultAt(virtual_mac::faults()[rng.below(virtual_mac::faults().size())], mac, rng);
        const bool repaired = rng.percent(85);
        note(at, randomFault, repaired, rng, timeline);
      }
    }
  }
}

}  // namespace brisko::lab
