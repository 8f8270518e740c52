#include "sim/scenario/checks.h"

#include <array>
#include <optional>
#include <utility>

#include "base/options.h"
#include "base/paths.h"
#include "sim/machine/charge_limit.h"
#include "sim/process/log_lines.h"

namespace brisko::lab {
namespace {

using RunCheck = std::function<std::vector<Difference>(const CheckedSimulation&)>;

// --- Numbers

struct Span {
  double least, most;
};

bool isSpan(const Json& value) {
  return value.is_array() && value.size() == 2 && value[0].is_number() && value[1].is_number();
}

// [least, most], or one number, which is compared with the value rounded to a whole number.
Span spanOf(const Json& value) {
  if (isSpan(value)) return {value[0], value[1]};
  const auto number = value.get<double>();
  return {number - 0.5, number + 0.5};
}

Span readSpan(const JsonCursor& place) {
  const Span span = spanOf(place.value());
  if (span.least > span.most) {
    place.addError("expected the least first, and then the most, not " + shown(place.value()));
  }
  return span;
}

bool lies(double number, const Span& span) { return number >= span.least && number <= span.most; }

std::string spanWords(const Span& span) {
  return "between " + plainNumber(span.least) + " and " + plainNumber(span.most);
}

template <double (*read)(const CheckedSimulation&)>
RunCheck readNumber(const JsonCursor& place) {
  return [span = readSpan(place)](const CheckedSimulation& simulation) -> std::vector<Difference> {
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

RunCheck readThroughout(const JsonCursor& place) {
  return [span = readSpan(place)](const CheckedSimulation& simulation) -> std::vector<Difference> {
    if (lies(simulation.lowest(), span) && lies(simulation.highest(), span)) return {};
    return {{"always " + spanWords(span),
             "from " + plainNumber(simulation.lowest()) + " to " + plainNumber(simulation.highest())}};
  };
}

template <std::int64_t (*read)(const CheckedSimulation&)>
RunCheck readInteger(const JsonCursor& place) {
  const auto wanted = place.value().get<std::int64_t>();
  return [wanted](const CheckedSimulation& simulation) -> std::vector<Difference> {
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

// --- Yes or no

template <bool (*read)(const CheckedSimulation&)>
RunCheck readFlag(const JsonCursor& place) {
  const bool wanted = place.value();
  return [wanted](const CheckedSimulation& simulation) -> std::vector<Difference> {
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

// --- How a process ended

template <std::optional<int> (sim::Simulation::*read)() const>
RunCheck readEnd(const JsonCursor& place) {
  const int wanted = place.value();
  return [wanted](const CheckedSimulation& simulation) -> std::vector<Difference> {
    const std::optional<int> seen = (simulation.*read)();
    if (seen == wanted) return {};
    return {{std::to_string(wanted), seen ? std::to_string(*seen) : "none"}};
  };
}

// --- Texts

RunCheck readReply(const JsonCursor& place) {
  const std::string wanted = place.value();
  return [wanted](const CheckedSimulation& simulation) -> std::vector<Difference> {
    const std::string seen = simulation.reply();
    if (matches(seen, wanted)) return {};
    return {{"\"" + wanted + "\"", seen.empty() ? "no reply" : "\"" + seen + "\""}};
  };
}

std::vector<std::string> errorLines(const CheckedSimulation& simulation) {
  return sim::linesOf(simulation.errors());
}
std::vector<std::string> journalLines(const CheckedSimulation& simulation) {
  return simulation.journalSinceCheckpoint();
}
std::vector<std::string> logLines(const CheckedSimulation& simulation) {
  return simulation.logSinceCheckpoint();
}

template <std::vector<std::string> (*read)(const CheckedSimulation&)>
RunCheck readLines(const JsonCursor& place) {
  return [expectations = readLineExpectations(place.value())](const CheckedSimulation& simulation) {
    return differencesOf(read(simulation), expectations);
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

RunCheck readKeys(const JsonCursor& place) {
  std::vector<std::pair<std::string, std::string>> wanted;
  for (const JsonCursor& member : place.members()) {
    if (member.name().size() != 4) member.addError("the name of a key has four characters");
    wanted.emplace_back(member.name(), member.value());
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

// Null: nothing may be at this pointer; [least, most]: a number in that range; else exactly this value.
std::optional<Difference> differenceAt(const Json& document, const std::string& pointer, const Json& wanted) {
  const Json::json_pointer at(pointer);
  const bool there = document.contains(at);
  const std::string seen = there ? shown(document.at(at)) : "nothing";
  if (wanted.is_null()) return there ? std::optional(Difference{pointer + " missing", seen}) : std::nullopt;
  if (isSpan(wanted)) {
    const Span span = spanOf(wanted);
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

RunCheck readFile(const JsonCursor& place) {
  const auto path = pathOf(place.name());
  if (!path) place.addError("expected status, stats, calibration, config or an absolute path");
  FileExpectation expectation{.path = path.value_or("")};
  if (place.value().is_object()) {
    for (const JsonCursor& member : place.members()) {
      if (!isPointer(member.name())) member.addError("expected a JSON pointer like \"/pct\"");
      expectation.values.emplace_back(member.name(), member.value());
    }
  } else {
    expectation.present = place.value() == "present";
  }
  return [expectation](const CheckedSimulation& simulation) {
    return differencesOfFile(simulation, expectation);
  };
}

// The state that the daemon last published.
RunCheck readState(const JsonCursor& place) {
  const FileExpectation expectation{.path = statusPath, .values = {{"/state", place.value()}}};
  return [expectation](const CheckedSimulation& simulation) {
    return differencesOfFile(simulation, expectation);
  };
}

using Read = RunCheck (*)(const JsonCursor&);
constexpr std::array<std::pair<const char*, Read>, 18> readers{{
    {"running", readFlag<runs>},
    {"exit", readEnd<&sim::Simulation::exitStatus>},
    {"killedBy", readEnd<&sim::Simulation::endSignal>},
    {"state", readState},
    {"charging", readFlag<isOpen>},
    {"adapterCut", readFlag<isCut>},
    {"asleep", readFlag<sleeps>},
    {"percent", readNumber<percentNow>},
    {"throughout", readThroughout},
    {"temperature", readNumber<temperatureNow>},
    {"current", readNumber<currentNow>},
    {"keys", readKeys},
    {"wakes", readInteger<wakesNow>},
    {"limit", readInteger<limitNow>},
    {"reply", readReply},
    {"journal", readLines<journalLines>},
    {"errors", readLines<errorLines>},
    {"log", readLines<logLines>},
}};

void noteExpectedLines(const Json& log, std::vector<std::string>& expected) {
  const LineExpectations expectations = readLineExpectations(log);
  expected.insert(expected.end(), expectations.has.begin(), expectations.has.end());
  expected.insert(expected.end(), expectations.inOrder.begin(), expectations.inOrder.end());
  for (const auto& [pattern, count] : expectations.counts) {
    if (count > 0) expected.push_back(pattern);
  }
}

}  // namespace

void readChecks(const JsonCursor& place, Checks& checks) {
  for (const JsonCursor& member : place.members()) {
    if (member.name() == "log") noteExpectedLines(member.value(), checks.expectedLines);
    if (member.name() == "files") {
      for (const JsonCursor& file : member.members()) checks.all.push_back({file.pointer(), readFile(file)});
    }
    for (const auto& [name, read] : readers) {
      if (member.name() == name) checks.all.push_back({member.pointer(), read(member)});
    }
  }
}

std::vector<std::string> checkNames() {
  std::vector<std::string> names;
  for (const auto& [name, read] : readers) names.emplace_back(name);
  names.emplace_back("files");
  return names;
}

}  // namespace brisko::lab
