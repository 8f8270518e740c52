#include "sim/scenario/checks.h"

#include <array>
#include <limits>
#include <optional>
#include <utility>

#include "base/options.h"
#include "base/paths.h"
#include "sim/machine/charge_limit.h"
#include "sim/process/log_lines.h"

namespace brisko::lab {
namespace {

using RunCheck = std::function<std::vector<Difference>(const CheckedSimulation&)>;
using virtual_mac::Machine;

constexpr double beyondAll = std::numeric_limits<double>::max();

// --- Numbers

struct Span {
  double least, most;
};

// [least, most], or one number, which is compared with the value rounded to a whole number.
std::optional<Span> readSpan(const JsonCursor& place) {
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

std::optional<RunCheck> checkNumber(const JsonCursor& place, double (*read)(const CheckedSimulation&)) {
  const auto span = readSpan(place);
  if (!span) return std::nullopt;
  return [span = *span, read](const CheckedSimulation& simulation) -> std::vector<Difference> {
    const double seen = read(simulation);
    if (lies(seen, span)) return {};
    return {{spanWords(span), plainNumber(seen)}};
  };
}

double percentNow(const CheckedSimulation& simulation) { return virtual_mac::level(simulation.machine()); }
double temperatureNow(const CheckedSimulation& simulation) {
  return simulation.machine().battery.temperatureC;
}
double currentNow(const CheckedSimulation& simulation) { return simulation.machine().battery.currentMA; }

std::optional<RunCheck> readPercent(const JsonCursor& place) { return checkNumber(place, percentNow); }
std::optional<RunCheck> readTemperature(const JsonCursor& place) {
  return checkNumber(place, temperatureNow);
}
std::optional<RunCheck> readCurrent(const JsonCursor& place) { return checkNumber(place, currentNow); }

std::optional<RunCheck> readThroughout(const JsonCursor& place) {
  const auto span = readSpan(place);
  if (!span) return std::nullopt;
  return [span = *span](const CheckedSimulation& simulation) -> std::vector<Difference> {
    if (lies(simulation.lowest(), span) && lies(simulation.highest(), span)) return {};
    return {{"always " + spanWords(span),
             "from " + plainNumber(simulation.lowest()) + " to " + plainNumber(simulation.highest())}};
  };
}

std::optional<RunCheck> checkInteger(const JsonCursor& place, std::int64_t least, std::int64_t most,
                                     std::int64_t (*read)(const CheckedSimulation&)) {
  const auto wanted = place.integer(least, most);
  if (!wanted) return std::nullopt;
  return [wanted = *wanted, read](const CheckedSimulation& simulation) -> std::vector<Difference> {
    const std::int64_t seen = read(simulation);
    if (seen == wanted) return {};
    return {{std::to_string(wanted), std::to_string(seen)}};
  };
}

std::int64_t wakesNow(const CheckedSimulation& simulation) {
  return static_cast<std::int64_t>(simulation.pendingWakes().size());
}
std::int64_t limitNow(const CheckedSimulation& simulation) {
  const std::int64_t limit = virtual_mac::orderOnDisk(simulation.machine()).percent;
  return limit == 0 ? 100 : limit;
}

std::optional<RunCheck> readWakes(const JsonCursor& place) {
  return checkInteger(place, 0, virtual_mac::scheduledPlaces, wakesNow);
}
std::optional<RunCheck> readLimit(const JsonCursor& place) { return checkInteger(place, 1, 100, limitNow); }

// --- Yes or no

std::optional<RunCheck> checkFlag(const JsonCursor& place, bool (*read)(const CheckedSimulation&)) {
  const auto wanted = place.boolean();
  if (!wanted) return std::nullopt;
  return [wanted = *wanted, read](const CheckedSimulation& simulation) -> std::vector<Difference> {
    if (read(simulation) == wanted) return {};
    return {{wanted ? "true" : "false", wanted ? "false" : "true"}};
  };
}

bool runs(const CheckedSimulation& simulation) { return simulation.daemonRuns(); }
bool isOpen(const CheckedSimulation& simulation) { return virtual_mac::chargingIsOpen(simulation.machine()); }
bool isCut(const CheckedSimulation& simulation) {
  return simulation.machine().adapter.present && !virtual_mac::adapterReachesBattery(simulation.machine());
}
bool sleeps(const CheckedSimulation& simulation) { return simulation.machine().system.asleep; }

std::optional<RunCheck> readRunning(const JsonCursor& place) { return checkFlag(place, runs); }
std::optional<RunCheck> readChargingOpen(const JsonCursor& place) { return checkFlag(place, isOpen); }
std::optional<RunCheck> readAdapterCut(const JsonCursor& place) { return checkFlag(place, isCut); }
std::optional<RunCheck> readAsleep(const JsonCursor& place) { return checkFlag(place, sleeps); }

// --- How a process ended

std::string numberOrNone(const std::optional<int>& number) {
  return number ? std::to_string(*number) : "none";
}

std::optional<RunCheck> checkAtEnd(const JsonCursor& place,
                                   std::optional<int> (CheckedSimulation::*read)() const) {
  const auto wanted = place.integer(0, 255);
  if (!wanted) return std::nullopt;
  return [wanted = static_cast<int>(*wanted),
          read](const CheckedSimulation& simulation) -> std::vector<Difference> {
    const std::optional<int> seen = (simulation.*read)();
    if (seen == wanted) return {};
    return {{std::to_string(wanted), numberOrNone(seen)}};
  };
}

std::optional<RunCheck> readExit(const JsonCursor& place) {
  return checkAtEnd(place, &CheckedSimulation::exitStatus);
}
std::optional<RunCheck> readKilledBy(const JsonCursor& place) {
  return checkAtEnd(place, &CheckedSimulation::endSignal);
}

// --- Texts

std::optional<RunCheck> readReply(const JsonCursor& place) {
  const auto wanted = place.text();
  if (!wanted) return std::nullopt;
  return [wanted = *wanted](const CheckedSimulation& simulation) -> std::vector<Difference> {
    const std::string seen = simulation.reply();
    if (matches(seen, wanted)) return {};
    return {{"\"" + wanted + "\"", seen.empty() ? "no reply" : "\"" + seen + "\""}};
  };
}

std::optional<RunCheck> readErrors(const JsonCursor& place) {
  const LineExpectations expectations = readLineExpectations(place);
  return [expectations](const CheckedSimulation& simulation) {
    return differencesOf(sim::linesOf(simulation.errors()), expectations);
  };
}

std::optional<RunCheck> readJournal(const JsonCursor& place) {
  return [expectations = readLineExpectations(place)](const CheckedSimulation& simulation) {
    return differencesOf(simulation.journalSinceCheckpoint(), expectations);
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

std::vector<Difference> differencesOfKeys(const CheckedSimulation& simulation,
                                          const std::vector<std::pair<std::string, std::string>>& wanted) {
  std::vector<Difference> found;
  for (const auto& [key, bytes] : wanted) {
    const std::string seen = hexOf(simulation.key(key));
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

std::optional<RunCheck> readKeys(const JsonCursor& place) {
  std::vector<std::pair<std::string, std::string>> wanted;
  for (const JsonCursor& member : place.members()) {
    const auto bytes = member.text();
    if (member.name().size() != 4) member.complain("the name of a key has four characters");
    if (bytes && !isHex(*bytes)) member.expected("bytes in lower-case hexadecimal, e.g. \"01000000\"");
    if (bytes) wanted.emplace_back(member.name(), *bytes);
  }
  return [wanted](const CheckedSimulation& simulation) { return differencesOfKeys(simulation, wanted); };
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

// Null: nothing may be at this pointer; [least, most]: a number in that range; else exactly this value.
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

struct FileExpectation {
  std::string path;
  bool present = true;
  std::vector<std::pair<std::string, Json>> values = {};  // by JSON pointer
};

std::vector<Difference> differencesOfFile(const CheckedSimulation& simulation,
                                          const FileExpectation& expectation) {
  const auto text = simulation.read(expectation.path);
  if (text.has_value() != expectation.present) {
    return {{expectation.present ? "the file is there" : "no such file",
             expectation.present ? "it is missing" : "it is there"}};
  }
  if (expectation.values.empty()) return {};
  const Json document = Json::parse(*text, nullptr, false);
  if (document.is_discarded()) return {{"JSON", "\"" + text->substr(0, 80) + "\""}};
  std::vector<Difference> found;
  for (const auto& [pointer, wanted] : expectation.values) {
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

std::optional<RunCheck> readFile(const JsonCursor& place) {
  const auto path = pathOf(place.name());
  if (!path) {
    place.complain("expected status, stats, calibration, config or an absolute path");
    return std::nullopt;
  }
  FileExpectation expectation{.path = *path};
  if (!place.value().is_object()) {
    const auto word = place.oneOf({"present", "missing"});
    expectation.present = word != "missing";
    return [expectation](const CheckedSimulation& simulation) {
      return differencesOfFile(simulation, expectation);
    };
  }
  for (const JsonCursor& member : place.members()) {
    if (isPointer(member.name())) {
      expectation.values.emplace_back(member.name(), member.value());
    } else {
      member.complain("expected a JSON pointer like \"/pct\"");
    }
  }
  return [expectation](const CheckedSimulation& simulation) {
    return differencesOfFile(simulation, expectation);
  };
}

// The state that the daemon last published.
std::optional<RunCheck> readState(const JsonCursor& place) {
  const auto wanted = place.oneOf({"allow", "hold", "discharge"});
  if (!wanted) return std::nullopt;
  const FileExpectation expectation{.path = statusPath, .values = {{"/state", *wanted}}};
  return [expectation](const CheckedSimulation& simulation) {
    return differencesOfFile(simulation, expectation);
  };
}

// ---------------------------------------------------------------------------------------------------------

using Read = std::optional<RunCheck> (*)(const JsonCursor&);
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

void add(Checks& checks, const JsonCursor& place, std::optional<RunCheck> look) {
  if (look) checks.all.push_back({place.pointer(), std::move(*look)});
}

void readLog(const JsonCursor& place, Checks& checks) {
  const LineExpectations expectations = readLineExpectations(place);
  std::vector<std::string>& expected = checks.expectedLines;
  expected.insert(expected.end(), expectations.has.begin(), expectations.has.end());
  expected.insert(expected.end(), expectations.inOrder.begin(), expectations.inOrder.end());
  for (const auto& [pattern, count] : expectations.counts) {
    if (count > 0) expected.push_back(pattern);
  }
  add(checks, place, [expectations](const CheckedSimulation& simulation) {
    return differencesOf(simulation.logSinceCheckpoint(), expectations);
  });
}

}  // namespace

void readChecks(const JsonCursor& place, Checks& checks) {
  for (const JsonCursor& member : place.members(checkNames())) {
    if (member.name() == "log") readLog(member, checks);
    if (member.name() == "files") {
      for (const JsonCursor& file : member.members()) add(checks, file, readFile(file));
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
