#include "sim/generate/random_fate.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "sim/machine/faults.h"

// No two throws of the dice may stand in the arguments of one call: compilers differ in which they take
// first.

namespace brisko::lab {
namespace {

using virtual_mac::Fault;

constexpr const char* dataFolder = "/Library/Application Support/Brisko/";

// --- How long it lasts

// Some minutes, some hours, or days.
std::int64_t randomWhile(Dice& dice) {
  switch (dice.between(0, 3)) {
    case 0:
      return dice.between(15, 900);
    case 1:
      return dice.between(900, 10800);
    case 2:
      return dice.between(10800, 43200);
    default:
      return dice.between(43200, 200000);
  }
}

// What keeps the daemon from starting is seen to soon: it would do nothing else but start again all the time.
std::int64_t shortWhile(Dice& dice) { return dice.between(15, 900); }

// --- What is asked for besides the name of a fault

// The keys of a Mac, and how many bytes they have.
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

Key randomKey(const MacTraits& mac, Dice& dice) {
  switch (dice.between(0, 9)) {
    case 0:
    case 1:
      return dice.oneOf(readings);
    case 2:
      return dice.oneOf(everyKey);
    default:
      return dice.oneOf(keysOf(mac));
  }
}

std::string hex(std::uint64_t byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  return {digits[(byte >> 4U) & 15U], digits[byte & 15U]};
}

// What keys really hold, or anything.
std::string randomBytes(const Key& key, Dice& dice) {
  std::string bytes;
  const bool anything = dice.oneIn(3);
  constexpr std::array<std::uint64_t, 6> known{0x00, 0x01, 0x02, 0x08, 0x50, 0xFF};
  for (std::int64_t count = 0; count < key.size; ++count) {
    const std::uint64_t byte = anything ? dice.below(256) : count == 0 ? dice.oneOf(known) : 0;
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

// What is usual of what is measured; the list of faults says what is possible.
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

std::int64_t randomNumber(const Fault& fault, Dice& dice) {
  const auto* known =
      std::find_if(usual.begin(), usual.end(), [&](const Usual& entry) { return entry.name == fault.name; });
  if (known != usual.end() && !dice.oneIn(6)) return dice.between(known->least, known->most);
  return dice.between(static_cast<std::int64_t>(fault.least), static_cast<std::int64_t>(fault.most));
}

// --- How it is mended

struct Strike {
  StoryJson action;
  std::optional<StoryJson> remedy;
  bool keepsFromStarting = false;
};

struct Remedy {
  std::string_view fault;
  std::string_view name;
};
// By another fault that takes the same.
constexpr std::array remedies{
    Remedy{"key-missing", "key-appears"},
    Remedy{"key-ignores-write", "key-obeys"},
    Remedy{"key-without-effect", "key-obeys"},
    Remedy{"key-refuses-write", "key-obeys"},
    Remedy{"key-write-fails", "key-obeys"},
    Remedy{"key-refused", "key-granted"},
    Remedy{"key-taken-back-after", "key-stays"},
    Remedy{"light-taken", "light-left"},
    Remedy{"no-controller", "controller-present"},
    Remedy{"controller-refuses", "controller-present"},
    Remedy{"property-missing", "property-healed"},
    Remedy{"property-text", "property-healed"},
    Remedy{"property-real", "property-healed"},
    Remedy{"property-unsigned", "property-healed"},
    Remedy{"no-power-snapshot", "power-sources-healed"},
    Remedy{"no-power-sources", "power-sources-healed"},
    Remedy{"no-internal-battery", "power-sources-healed"},
    Remedy{"ups-first", "power-sources-healed"},
    Remedy{"battery-out", "battery-in"},
    Remedy{"weak-adapter", "plug"},
    Remedy{"sleep-refused", "sleep-granted"},
    Remedy{"schedule-refused", "schedule-granted"},
    Remedy{"no-power-clients", "power-clients"},
    Remedy{"no-limit-framework", "limit-client"},
    Remedy{"no-limit-class", "limit-client"},
    Remedy{"no-limit-selector", "limit-client"},
    Remedy{"limit-state-unreadable", "limit-state-readable"},
    Remedy{"limit-value-unreadable", "limit-value-readable"},
    Remedy{"limit-refused", "limit-granted"},
    Remedy{"limit-set-fails", "limit-granted"},
    Remedy{"preferences-fail", "preferences-written"},
    Remedy{"daemon-signature-unreadable", "daemon-signature-readable"},
};
struct Normal {
  std::string_view fault;
  std::int64_t number;
};
// By the number that a healthy Mac has.
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

std::optional<StoryJson> remedyOf(const Fault& fault, const MacTraits& mac, const Key& key,
                                  const StoryJson& value) {
  for (const Remedy& remedy : remedies) {
    if (remedy.fault != fault.name) continue;
    if (fault.asks.key) return actionOf(std::string(remedy.name), key.name);
    if (fault.asks.text) return actionOf(std::string(remedy.name), value);
    return StoryJson(std::string(remedy.name));
  }
  for (const Normal& entry : normal) {
    if (entry.fault == fault.name) return actionOf(std::string(fault.name), entry.number);
  }
  if (fault.name == "key-size") return actionOf("key-size", {{"key", key.name}, {"number", key.size}});
  if (fault.name == "key-written" && key.name[0] != 'C') return actionOf("key-truthful", key.name);
  if (fault.name == "capabilities-unreadable") return actionOf("capabilities", 15);
  if (fault.name == "flat-layout" || fault.name == "nested-layout") {
    return StoryJson(mac.macOS >= 27 ? "nested-layout" : "flat-layout");
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

Strike strikeBy(const Fault& fault, const MacTraits& mac, Dice& dice) {
  const std::string name(fault.name);
  Key key{"", 0};
  StoryJson value;
  if (fault.asks.key) key = randomKey(mac, dice);
  if (fault.asks.key) value = key.name;
  if (fault.asks.text) value = dice.oneOf(properties);
  if (fault.asks.number) {
    const std::int64_t number = randomNumber(fault, dice);
    value = fault.asks.key ? StoryJson{{"key", key.name}, {"number", number}} : StoryJson(number);
  }
  if (fault.asks.bytes) value = {{"key", key.name}, {"bytes", randomBytes(key, dice)}};
  return {.action = value.is_null() ? StoryJson(name) : actionOf(name, value),
          .remedy = remedyOf(fault, mac, key, value),
          .keepsFromStarting = keepsFromStarting(fault, key, mac)};
}

void note(std::int64_t at, const Strike& strike, bool mended, Dice& dice, Diary& diary) {
  diary.note(at, strike.action);
  if (!strike.remedy || (!mended && !strike.keepsFromStarting)) return;
  diary.note(at + (strike.keepsFromStarting ? shortWhile(dice) : randomWhile(dice)), *strike.remedy);
}

// --- What is no single fault

void upgrade(std::int64_t at, Dice& dice, Diary& diary) {
  const std::int64_t version = dice.between(15, 27);
  diary.note(at, "shutdown");
  diary.note(at + 60, actionOf("macos", version));
  diary.note(at + dice.between(300, 2400), "boot");
}

void losePower(std::int64_t at, Dice& dice, Diary& diary) {
  diary.note(at, "power-loss");
  diary.note(at + dice.oneOf(std::array{20, 300, 7200}), "boot");
}

void fillDisk(std::int64_t at, Dice& dice, Diary& diary) {
  diary.note(at, "disk-full");
  diary.note(at + randomWhile(dice), "disk-freed");
}

void spoilSettings(std::int64_t at, const StoryJson& settings, Dice& dice, Diary& diary) {
  const StoryJson odd = oddSettings(dice);
  diary.note(at, dice.oneIn(2) ? actionOf("settings-file", odd) : actionOf("settings-replaced", odd));
  diary.note(at + randomWhile(dice), actionOf("settings-file", settings));
}

void removeSettings(std::int64_t at, const StoryJson& settings, Dice& dice, Diary& diary) {
  diary.note(at, "settings-removed");
  diary.note(at + randomWhile(dice), actionOf("settings-replaced", settings));
}

// Numbers that the daemon refuses to guess about end it, over and over again.
void writeFatalNumber(std::int64_t at, const StoryJson& settings, Dice& dice, Diary& diary) {
  constexpr std::array texts{R"({"limit": 1e30})", R"({"hysteresis": 18446744073709551616})",
                             R"({"thermalLimit": -1e300})",
                             R"({"calibrate": true, "calSoakMinutes": 9223372036854775807})"};
  diary.note(at, actionOf("settings-file", dice.oneOf(texts)));
  diary.note(at + shortWhile(dice), actionOf("settings-file", settings));
}

// A folder stands where a file belongs, or the other way round.
void blockFile(std::int64_t at, const StoryJson& settings, Dice& dice, Diary& diary) {
  constexpr std::array files{"config.json", "status.json", "stats.json", "calibration.json"};
  const std::string file = dice.oneIn(5) ? std::string("history") : dice.oneOf(files);
  const std::string path = dataFolder + file;
  const std::string written = file == "history" ? path : path + "/inside";
  diary.note(at, actionOf("remove", path));
  diary.note(at, actionOf("write", {{"path", written}, {"text", "in the way"}}));
  const std::int64_t later = at + randomWhile(dice);
  diary.note(later, actionOf("remove", path));
  if (file == "config.json") diary.note(later, actionOf("settings-file", settings));
}

void spoilRecord(std::int64_t at, Dice& dice, Diary& diary) {
  constexpr std::array files{"status.json", "stats.json", "calibration.json"};
  constexpr std::array texts{"",
                             "{",
                             "[]",
                             "\x01\x02",
                             R"({"protectedSeconds": -5})",
                             R"({"protectedSeconds": "many", "since": []})",
                             R"({"protectedSeconds": 1e12, "phase": "dance", "soakBanked": -1})",
                             R"({"phase": 3, "runs": {}, "startedAt": null})"};
  const std::string path = dataFolder + std::string(dice.oneOf(files));
  diary.note(at, actionOf("write", {{"path", path}, {"text", dice.oneOf(texts)}}));
  if (dice.oneIn(2)) diary.note(at, "kill");
}

void removeFolders(std::int64_t at, Dice& dice, Diary& diary) {
  constexpr std::array folders{"/Library/Logs/Brisko", "/Library/Application Support/Brisko",
                               "/Library/Application Support/Brisko/history",
                               "/Library/Logs/Brisko/daemon.log"};
  diary.note(at, actionOf("remove", dice.oneOf(folders)));
}

void letStrangersAsk(std::int64_t at, Dice& dice, Diary& diary) {
  constexpr std::array strangers{"wrong-team", "wrong-app", "unsigned"};
  constexpr std::array requests{"purge", "release", "restart"};
  const std::string stranger = dice.oneOf(strangers);
  if (dice.oneIn(2)) {
    diary.note(at, actionOf("ask", {{"request", "apply"}, {"settings", {{"limit", 100}}}, {"as", stranger}}));
  } else {
    diary.note(at, actionOf("ask", {{"request", dice.oneOf(requests)}, {"as", stranger}}));
  }
}

void sendNonsense(std::int64_t at, Dice& dice, Diary& diary) {
  StoryJson settings = oddSettings(dice);
  if (settings == "") settings = " ";  // nothing at all is no request
  diary.note(at, actionOf("ask", {{"request", "apply"}, {"settings", settings}}));
}

void killBetweenWrites(std::int64_t at, Dice& dice, Diary& diary) {
  diary.note(at, dice.oneIn(2) ? "kill-at-exchange" : "terminate-at-exchange");
  diary.note(at, dice.oneIn(2) ? "plug" : "unplug");
}

// A crash of the daemon in a bad moment: several at once.
void killOverAndOver(std::int64_t at, Dice& dice, Diary& diary) {
  for (std::int64_t count = dice.between(1, 4); count > 0; --count) {
    diary.note(at, "kill");
    at += dice.between(1, 30);
  }
}

void happenToFiles(std::int64_t at, const StoryJson& settings, Dice& dice, Diary& diary) {
  constexpr std::array<unsigned, 11> weights{6, 8, 5, 1, 4, 5, 4, 3, 3, 5, 4};
  switch (dice.weighted(weights)) {
    case 0:
      return fillDisk(at, dice, diary);
    case 1:
      return spoilSettings(at, settings, dice, diary);
    case 2:
      return removeSettings(at, settings, dice, diary);
    case 3:
      return writeFatalNumber(at, settings, dice, diary);
    case 4:
      return blockFile(at, settings, dice, diary);
    case 5:
      return spoilRecord(at, dice, diary);
    case 6:
      return removeFolders(at, dice, diary);
    case 7:
      return letStrangersAsk(at, dice, diary);
    case 8:
      return sendNonsense(at, dice, diary);
    case 9:
      return killBetweenWrites(at, dice, diary);
    default:
      return killOverAndOver(at, dice, diary);
  }
}

// --- What is common

Strike commonStrike(const MacTraits& mac, Dice& dice) {
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
  Strike strike = strikeBy(*virtual_mac::findFault(dice.oneOf(names)), mac, dice);
  if (strike.action.is_object() && strike.action.contains("charge")) {
    // A gauge that learns anew jumps, but never far.
    strike.action = actionOf("charge", dice.between(30, 95));
  }
  return strike;
}

void takeBackCut(std::int64_t at, const MacTraits& mac, Diary& diary) {
  const std::vector<Key> keys = keysOf(mac);
  diary.note(at, actionOf("key-taken-back", keys.back().name));
}

}  // namespace

StoryJson oddSettings(Dice& dice) {
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
  return dice.oneOf(texts);
}

std::vector<StoryJson> randomWays(Dice& dice) {
  std::vector<StoryJson> ways;
  const auto choose = [&](std::initializer_list<const char*> names) {
    if (dice.oneIn(2)) return;
    ways.emplace_back(std::data(names)[dice.below(names.size())]);
  };
  choose({"limit-below-80-ignored", "limit-below-80-lifted", "limit-below-80-taken"});
  choose({"limit-off-step-ignored", "limit-off-step-rounded", "limit-off-step-taken"});
  choose({"limit-drains", "limit-waits"});
  choose({"no-limit-shown-as-100", "no-limit-shown-as-0"});
  choose({"light-taken", "light-left"});
  if (dice.oneIn(3)) ways.push_back(actionOf("scheduled-wakes", dice.between(0, 120)));
  if (dice.oneIn(4)) ways.push_back(actionOf("limit", 5 * dice.between(16, 20)));
  return ways;
}

void strikeSometimes(const MacTraits& mac, const StoryJson& settings, Dice& dice, Diary& diary) {
  const std::int64_t meanPause = dice.oneOf(std::array{1, 3, 6}) * secondsOfDay;
  for (std::int64_t at = dice.between(60, 2 * meanPause); at < diary.seconds();
       at += dice.between(60, 2 * meanPause)) {
    constexpr std::array<unsigned, 9> weights{50, 8, 5, 5, 6, 4, 5, 8, 2};
    switch (dice.weighted(weights)) {
      case 1:
        losePower(at, dice, diary);
        break;
      case 2:
        fillDisk(at, dice, diary);
        break;
      case 3:
        spoilSettings(at, settings, dice, diary);
        break;
      case 4:
        upgrade(at, dice, diary);
        break;
      case 5:
        letStrangersAsk(at, dice, diary);
        break;
      case 6:
        diary.note(at, actionOf("clock-step", dice.between(-120, 120)));
        break;
      case 7:
        takeBackCut(at, mac, diary);
        break;
      case 8:
        diary.note(at, actionOf("clock-step", dice.oneOf(std::array{-3600, 3600, -86400, 86400})));
        break;
      default:
        note(at, commonStrike(mac, dice), true, dice, diary);
    }
  }
}

void strikeOften(const MacTraits& mac, const StoryJson& settings, Dice& dice, Diary& diary) {
  // Some stories are unlucky now and then, and some have no good day.
  const std::int64_t meanPause = dice.oneOf(std::array{2 * 86400, 86400, 43200, 14400});
  for (std::int64_t at = dice.between(60, 2 * meanPause); at < diary.seconds();
       at += dice.between(60, 2 * meanPause)) {
    constexpr std::array<unsigned, 4> weights{70, 20, 4, 3};
    switch (dice.weighted(weights)) {
      case 1:
        happenToFiles(at, settings, dice, diary);
        break;
      case 2:
        losePower(at, dice, diary);
        break;
      case 3:
        upgrade(at, dice, diary);
        break;
      default: {
        const Strike strike =
            strikeBy(virtual_mac::faults()[dice.below(virtual_mac::faults().size())], mac, dice);
        const bool mended = dice.percent(85);
        note(at, strike, mended, dice, diary);
      }
    }
  }
}

}  // namespace brisko::lab
