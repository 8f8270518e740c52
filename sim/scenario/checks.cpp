#include "sim/scenario/checks.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <sstream>
#include <utility>

#include "base/options.h"
#include "base/paths.h"
#include "sim/machine/charge_limit.h"
#include "sim/machine/journal_words.h"

namespace brisko::lab {
namespace {

using Look = std::function<std::vector<Difference>(const Stage&)>;
using virtual_mac::Machine;

constexpr double beyondAll = std::numeric_limits<double>::max();

// --- Numbers

struct Span {
  double least, most;
};

// [least, most], or a number as it is shown, rounded to a whole one.
std::optional<Span> readSpan(const Place& place) {
  if (place.value().is_number()) {
    const auto number = place.value().get<double>();
    return Span{number - 0.5, number + 0.5};
  }
  if (!place.value().is_array() || place.value().size() != 2) {
    place.expected("a number, or a list of the least and the most");
    return std::nullopt;
  }
  const auto least = place.at(std::size_t{0}).number(-beyondAll, beyondAll);
  const auto most = place.at(std::size_t{1}).number(-beyondAll, beyondAll);
  if (!least || !most) return std::nullopt;
  if (*least <= *most) return Span{*least, *most};
  place.expected("the least first, and then the most");
  return std::nullopt;
}

bool lies(double number, const Span& span) { return number >= span.least && number <= span.most; }

std::string spanWords(const Span& span) {
  return "between " + plainNumber(span.least) + " and " + plainNumber(span.most);
}

std::optional<Look> lookAtNumber(const Place& place, double (*read)(const Stage&)) {
  const auto span = readSpan(place);
  if (!span) return std::nullopt;
  return [span = *span, read](const Stage& stage) -> std::vector<Difference> {
    const double seen = read(stage);
    if (lies(seen, span)) return {};
    return {{spanWords(span), plainNumber(seen)}};
  };
}

double percentNow(const Stage& stage) { return virtual_mac::level(stage.machine()); }
double temperatureNow(const Stage& stage) { return stage.machine().battery.temperatureC; }
double currentNow(const Stage& stage) { return stage.machine().battery.currentMA; }

std::optional<Look> readPercent(const Place& place) { return lookAtNumber(place, percentNow); }
std::optional<Look> readTemperature(const Place& place) { return lookAtNumber(place, temperatureNow); }
std::optional<Look> readCurrent(const Place& place) { return lookAtNumber(place, currentNow); }

std::optional<Look> readThroughout(const Place& place) {
  const auto span = readSpan(place);
  if (!span) return std::nullopt;
  return [span = *span](const Stage& stage) -> std::vector<Difference> {
    if (lies(stage.lowest(), span) && lies(stage.highest(), span)) return {};
    return {{"always " + spanWords(span),
             "from " + plainNumber(stage.lowest()) + " to " + plainNumber(stage.highest())}};
  };
}

std::optional<Look> lookAtInteger(const Place& place, std::int64_t least, std::int64_t most,
                                  std::int64_t (*read)(const Stage&)) {
  const auto wanted = place.integer(least, most);
  if (!wanted) return std::nullopt;
  return [wanted = *wanted, read](const Stage& stage) -> std::vector<Difference> {
    const std::int64_t seen = read(stage);
    if (seen == wanted) return {};
    return {{std::to_string(wanted), std::to_string(seen)}};
  };
}

std::int64_t wakesNow(const Stage& stage) {
  const auto& events = stage.machine().sleep.events;
  return std::count_if(events.begin(), events.end(), [](const auto& event) { return event.pending; });
}
std::int64_t limitNow(const Stage& stage) {
  const std::int64_t limit = virtual_mac::orderOnDisk(stage.machine()).percent;
  return limit == 0 ? 100 : limit;
}

std::optional<Look> readWakes(const Place& place) {
  return lookAtInteger(place, 0, virtual_mac::scheduledPlaces, wakesNow);
}
std::optional<Look> readLimit(const Place& place) { return lookAtInteger(place, 1, 100, limitNow); }

// --- Yes or no

std::optional<Look> lookAtFlag(const Place& place, bool (*read)(const Stage&)) {
  const auto wanted = place.boolean();
  if (!wanted) return std::nullopt;
  return [wanted = *wanted, read](const Stage& stage) -> std::vector<Difference> {
    if (read(stage) == wanted) return {};
    return {{wanted ? "true" : "false", wanted ? "false" : "true"}};
  };
}

bool runs(const Stage& stage) { return stage.daemonRuns(); }
bool isOpen(const Stage& stage) { return virtual_mac::chargingIsOpen(stage.machine()); }
bool isCut(const Stage& stage) {
  return stage.machine().adapter.present && !virtual_mac::adapterReachesBattery(stage.machine());
}
bool sleeps(const Stage& stage) { return stage.machine().system.asleep; }

std::optional<Look> readRunning(const Place& place) { return lookAtFlag(place, runs); }
std::optional<Look> readChargingOpen(const Place& place) { return lookAtFlag(place, isOpen); }
std::optional<Look> readAdapterCut(const Place& place) { return lookAtFlag(place, isCut); }
std::optional<Look> readAsleep(const Place& place) { return lookAtFlag(place, sleeps); }

// --- How a life ended

std::string numberOrNone(const std::optional<int>& number) {
  return number ? std::to_string(*number) : "none";
}

std::optional<Look> lookAtEnd(const Place& place, std::optional<int> (Stage::*read)() const) {
  const auto wanted = place.integer(0, 255);
  if (!wanted) return std::nullopt;
  return [wanted = static_cast<int>(*wanted), read](const Stage& stage) -> std::vector<Difference> {
    const std::optional<int> seen = (stage.*read)();
    if (seen == wanted) return {};
    return {{std::to_string(wanted), numberOrNone(seen)}};
  };
}

std::optional<Look> readExit(const Place& place) { return lookAtEnd(place, &Stage::exitStatus); }
std::optional<Look> readKilledBy(const Place& place) { return lookAtEnd(place, &Stage::endSignal); }

// --- Texts

std::optional<Look> readReply(const Place& place) {
  const auto wanted = place.text();
  if (!wanted) return std::nullopt;
  return [wanted = *wanted](const Stage& stage) -> std::vector<Difference> {
    const std::string seen = stage.reply();
    if (matches(seen, wanted)) return {};
    return {{"\"" + wanted + "\"", seen.empty() ? "no reply" : "\"" + seen + "\""}};
  };
}

std::optional<Look> readErrors(const Place& place) {
  const LineWishes wishes = readLineWishes(place);
  return [wishes](const Stage& stage) {
    std::istringstream text(stage.errors());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return differencesOf(lines, wishes);
  };
}

std::optional<Look> readJournal(const Place& place) {
  return [wishes = readLineWishes(place)](const Stage& stage) {
    return differencesOf(stage.journalOfStretch(), wishes);
  };
}

// --- The controller's keys

std::string hexOf(const std::vector<std::uint8_t>& bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  for (const std::uint8_t byte : bytes) {
    hex += digits[byte >> 4U];
    hex += digits[byte & 0xFU];
  }
  return hex;
}

std::vector<Difference> differencesOfKeys(const Stage& stage,
                                          const std::vector<std::pair<std::string, std::string>>& wanted) {
  std::vector<Difference> found;
  for (const auto& [key, bytes] : wanted) {
    const std::string seen = hexOf(lives::keyBytes(stage.machine(), key));
    if (seen == bytes) continue;
    found.push_back({bytes.empty() ? std::string(key).append(" not readable")
                                   : std::string(key).append(" ").append(bytes),
                     seen.empty() ? "not readable" : seen});
  }
  return found;
}

bool isHex(const std::string& text) {
  return text.size() % 2 == 0 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

std::optional<Look> readKeys(const Place& place) {
  std::vector<std::pair<std::string, std::string>> wanted;
  for (const Place& member : place.members()) {
    const auto bytes = member.text();
    if (member.name().size() != 4) member.complain("the name of a key has four characters");
    if (bytes && !isHex(*bytes)) member.expected("bytes in small hexadecimal, e.g. \"01000000\"");
    if (bytes) wanted.emplace_back(member.name(), *bytes);
  }
  return [wanted](const Stage& stage) { return differencesOfKeys(stage, wanted); };
}

// --- Files

const std::vector<std::pair<std::string, std::string>>& namedFiles() {
  static const auto& files = *new std::vector<std::pair<std::string, std::string>>{
      {"status", statusPath},
      {"stats", statsPath},
      {"calibration", calibrationPath},
      {"config", defaultConfigPath},
  };
  return files;
}

std::optional<std::string> pathOf(const std::string& name) {
  if (name.starts_with("/")) return name;
  for (const auto& [known, path] : namedFiles()) {
    if (known == name) return path;
  }
  return std::nullopt;
}

bool isSpan(const Json& value) {
  return value.is_array() && value.size() == 2 && value[0].is_number() && value[1].is_number();
}

// Null: nothing may stand there; [least, most]: a number between them; else exactly this.
std::optional<Difference> differenceAt(const Json& document, const std::string& pointer, const Json& wanted) {
  const Json::json_pointer at(pointer);
  const bool there = document.contains(at);
  const std::string seen = there ? shown(document.at(at)) : "nothing";
  if (wanted.is_null()) return there ? std::optional(Difference{pointer + " missing", seen}) : std::nullopt;
  if (isSpan(wanted)) {
    const Span span{wanted[0], wanted[1]};
    if (there && document.at(at).is_number() && lies(document.at(at), span)) return std::nullopt;
    return Difference{pointer + " " + spanWords(span), seen};
  }
  if (there && document.at(at) == wanted) return std::nullopt;
  return Difference{pointer + " " + shown(wanted), seen};
}

struct FileWish {
  std::string path;
  bool present = true;
  std::vector<std::pair<std::string, Json>> values = {};  // by JSON pointer
};

std::vector<Difference> differencesOfFile(const Stage& stage, const FileWish& wish) {
  const auto text = stage.read(wish.path);
  if (text.has_value() != wish.present) {
    return {{wish.present ? "the file is there" : "no such file",
             wish.present ? "it is missing" : "it is there"}};
  }
  if (wish.values.empty()) return {};
  const Json document = Json::parse(*text, nullptr, false);
  if (document.is_discarded()) return {{"JSON", "\"" + text->substr(0, 80) + "\""}};
  std::vector<Difference> found;
  for (const auto& [pointer, wanted] : wish.values) {
    if (auto difference = differenceAt(document, pointer, wanted)) found.push_back(std::move(*difference));
  }
  return found;
}

bool isPointer(const std::string& text) {
  if (!text.empty() && text.front() != '/') return false;
  for (std::size_t at = text.find('~'); at != std::string::npos; at = text.find('~', at + 1)) {
    if (at + 1 >= text.size() || (text[at + 1] != '0' && text[at + 1] != '1')) return false;
  }
  return true;
}

std::optional<Look> readFile(const Place& place) {
  const auto path = pathOf(place.name());
  if (!path) {
    place.complain("expected status, stats, calibration, config or an absolute path");
    return std::nullopt;
  }
  FileWish wish{.path = *path};
  if (!place.value().is_object()) {
    const auto word = place.oneOf({"present", "missing"});
    wish.present = word != "missing";
    return [wish](const Stage& stage) { return differencesOfFile(stage, wish); };
  }
  for (const Place& member : place.members()) {
    if (isPointer(member.name())) {
      wish.values.emplace_back(member.name(), member.value());
    } else {
      member.complain("expected a JSON pointer like \"/pct\"");
    }
  }
  return [wish](const Stage& stage) { return differencesOfFile(stage, wish); };
}

// The state that the daemon published last.
std::optional<Look> readState(const Place& place) {
  const auto wanted = place.oneOf({"allow", "hold", "discharge"});
  if (!wanted) return std::nullopt;
  const FileWish wish{.path = statusPath, .values = {{"/state", *wanted}}};
  return [wish](const Stage& stage) { return differencesOfFile(stage, wish); };
}

// ---------------------------------------------------------------------------------------------------------

using Read = std::optional<Look> (*)(const Place&);
constexpr std::array<std::pair<const char*, Read>, 17> readers{{
    {"running", readRunning},
    {"exit", readExit},
    {"killedBy", readKilledBy},
    {"state", readState},
    {"charging", readChargingOpen},
    {"adapterCut", readAdapterCut},
    {"asleep", readAsleep},
    {"percent", readPercent},
    {"throughout", readThroughout},
    {"temperature", readTemperature},
    {"current", readCurrent},
    {"keys", readKeys},
    {"wakes", readWakes},
    {"limit", readLimit},
    {"reply", readReply},
    {"journal", readJournal},
    {"errors", readErrors},
}};

void add(Checks& checks, const Place& place, std::optional<Look> look) {
  if (look) checks.all.push_back({place.pointer(), std::move(*look)});
}

void readLog(const Place& place, Checks& checks) {
  const LineWishes wishes = readLineWishes(place);
  std::vector<std::string>& expected = checks.expectedLines;
  expected.insert(expected.end(), wishes.has.begin(), wishes.has.end());
  expected.insert(expected.end(), wishes.inOrder.begin(), wishes.inOrder.end());
  for (const auto& [pattern, count] : wishes.counts) {
    if (count > 0) expected.push_back(pattern);
  }
  add(checks, place, [wishes](const Stage& stage) { return differencesOf(stage.logOfStretch(), wishes); });
}

}  // namespace

void readChecks(const Place& place, Checks& checks) {
  for (const Place& member : place.members(checkNames())) {
    if (member.name() == "log") readLog(member, checks);
    if (member.name() == "files") {
      for (const Place& file : member.members()) add(checks, file, readFile(file));
    }
    for (const auto& [name, read] : readers) {
      if (member.name() == name) add(checks, member, read(member));
    }
  }
}

std::vector<std::string> checkNames() {
  std::vector<std::string> names;
  for (const auto& [name, read] : readers) names.emplace_back(name);
  names.emplace_back("log");
  names.emplace_back("files");
  return names;
}

}  // namespace brisko::lab
