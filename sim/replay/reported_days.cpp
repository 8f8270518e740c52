#include "sim/replay/reported_days.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <map>
#include <utility>

#include "report/local_days.h"
#include "report/ustar.h"
#include "sim/dump_import/dump_import.h"
#include "sim/dump_import/read_dump.h"
#include "sim/scenario/timing.h"

namespace brisko::lab {
namespace {

using Json = nlohmann::json;
using Members = std::map<std::string, std::string_view, std::less<>>;

constexpr std::string_view folder = "brisko-report/";
constexpr double secondsPerDay = 86400;
constexpr double clockCorrection = 3600;  // by which a line of the history may be earlier than the one before
constexpr double brokenShare = 0.02;      // of its lines, of a history that can be used
constexpr std::size_t deepestJson = 64;

struct Refusal {
  std::string reason;
};

// --- The archive

Members membersOf(const ArchiveReading& archive) {
  Members members;
  for (const ArchiveMember& member : archive.members) {
    std::string_view name = member.name;
    if (name.starts_with(folder)) name.remove_prefix(folder.size());
    members.emplace(name, member.contents);
  }
  return members;
}

std::string_view textOf(const Members& members, std::string_view name) {
  const auto found = members.find(name);
  return found == members.end() ? std::string_view() : found->second;
}

// None also when the text is no JSON object, or is nested deeper than any file of ours.
std::optional<Json> objectIn(std::string_view text) {
  bool tooDeep = false;
  Json object = Json::parse(
      text,
      [&tooDeep](int depth, Json::parse_event_t, Json&) {
        tooDeep = tooDeep || depth > static_cast<int>(deepestJson);
        return !tooDeep;
      },
      false);
  if (tooDeep || !object.is_object()) return std::nullopt;
  return object;
}

std::optional<Json> objectOf(const Members& members, std::string_view name) {
  return objectIn(textOf(members, name));
}

// --- The history and the log

// In UTC; none when the member is no day of the history.
std::optional<double> midnightOf(std::string_view name) {
  constexpr std::string_view before = "history/";
  constexpr std::string_view after = ".jsonl";
  if (!name.starts_with(before) || !name.ends_with(after)) return std::nullopt;
  name.remove_prefix(before.size());
  name.remove_suffix(after.size());
  const auto day = dateIn(name);
  if (!day) return std::nullopt;
  const int year = static_cast<int>(day->year());
  if (year < 2000 || year >= 2100) throw Refusal{"its history is of the year " + std::to_string(year)};
  return utcMidnightOf(*day);
}

struct HistoryCount {
  std::size_t lines = 0, broken = 0;
  double latest = 0;
};

void readDay(std::string_view text, double midnight, HistoryCount& count, Trace& trace) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.empty()) continue;
    ++count.lines;
    auto sample = readSample(std::string(line), midnight);
    if (!sample) {
      ++count.broken;
      continue;
    }
    if (sample->time < count.latest - clockCorrection)
      throw Refusal{"its history is not in the order of time"};
    count.latest = std::max(count.latest, sample->time);
    trace.sightings.push_back(std::move(*sample));
  }
}

// The names of days are in the order of their dates.
void readHistoryOf(const Members& members, const ReportLimits& limits, ReportedDays& days) {
  HistoryCount count;
  for (const auto& [name, text] : members) {
    if (const auto midnight = midnightOf(name)) readDay(text, *midnight, count, days.trace);
  }
  if (count.lines == 0) throw Refusal{"it contains no history, so there is nothing to replay"};
  if (static_cast<double>(count.broken) > 1 + brokenShare * static_cast<double>(count.lines)) {
    throw Refusal{std::to_string(count.broken) + " of " + std::to_string(count.lines) +
                  " lines of its history are broken"};
  }
  if (days.trace.sightings.empty()) throw Refusal{"its history has no line that can be read"};
  if (days.end() - days.begin() > limits.longestDays * secondsPerDay)
    throw Refusal{"its history covers more than " + std::to_string(std::llround(limits.longestDays)) +
                  " days"};
  days.brokenLines += count.broken;
}

// Of the log counts what lies between the beginning of the history and its end. What came before shows what
// the daemon had already found out.
void readLogsOf(const Members& members, ReportedDays& days) {
  const double from = days.begin() - longestStartUp;
  const double until = days.end() + secondsPerDay;
  Trace log;
  for (const char* name : {"daemon.log.1", "daemon.log"})
    days.brokenLines += readLog(textOf(members, name), log);
  arrange(log);
  if (log.lines.empty() && log.sightings.empty())
    days.assumptions.emplace_back("There is no log: the settings are those of the end all the time.");
  const auto isOutside = [&](const auto& item) { return item.time < from || item.time > until; };
  for (const LoggedLine& line : log.lines) {
    if (line.time < from) days.trace.earlier.push_back(line);
  }
  std::erase_if(log.lines, isOutside);
  std::erase_if(log.sightings, isOutside);
  auto& sightings = days.trace.sightings;
  sightings.insert(sightings.end(), log.sightings.begin(), log.sightings.end());
  days.trace.lines = std::move(log.lines);
  arrange(days.trace);
}

// --- The Mac and its daemon

// 26 of 26, "26" or "26.1".
std::optional<std::int64_t> majorVersion(const Json& value) {
  std::optional<std::int64_t> major;
  if (value.is_number_integer()) major = value.get<std::int64_t>();
  if (value.is_string()) major = std::strtoll(value.get<std::string>().c_str(), nullptr, 10);
  return major && *major >= 11 && *major <= 99 ? major : std::nullopt;
}

void readSystem(const Members& members, ReportedDays& days) {
  const auto manifest = objectOf(members, "manifest.json");
  const Json system = manifest ? manifest->value("system", Json::object()) : Json::object();
  const auto macOS = system.is_object() ? majorVersion(system.value("macOS", Json())) : std::nullopt;
  if (macOS) {
    days.options.macOS = *macOS;
  } else {
    days.assumptions.push_back("The version of macOS is not known: " + std::to_string(days.options.macOS) +
                               " is assumed.");
  }
}

// The text after `before`, up to a comma.
std::string_view partOf(std::string_view line, std::string_view before) {
  const std::size_t begin = line.find(before);
  if (begin == line.npos) return {};
  const std::string_view part = line.substr(begin + before.size());
  return part.substr(0, std::min(part.find(','), part.size()));
}

// "brisko-daemon started … charging via CHTE, discharge CHIE, LED OK, …". The observing daemon's part for
// charging contains a comma.
void readKeys(std::string_view line, virtual_mac::MachineOptions& options) {
  using virtual_mac::CutKind;
  using virtual_mac::GateKind;
  constexpr std::array<std::pair<std::string_view, GateKind>, 4> gates{
      {{"CHTE", GateKind::chte},
       {"CH0B+CH0C", GateKind::ch0b0c},
       {"bfD0/bfE0/bfF0", GateKind::firmwareBand},
       {"macOS", GateKind::none}}};
  constexpr std::array<std::pair<std::string_view, CutKind>, 4> cuts{
      {{"CHIE", CutKind::chie}, {"CH0I", CutKind::ch0i}, {"CH0J", CutKind::ch0j}, {"off", CutKind::none}}};
  const std::string_view charging = partOf(line, "charging via ");
  const bool isNative = charging == "macOS";
  const bool observes = charging.starts_with("nothing");
  if (observes) options.chargeLimit = false;
  if (isNative || observes) options.macOS = std::max<std::int64_t>(options.macOS, isNative ? 26 : 27);
  if (!isNative || options.macOS < 27) {
    if (const auto gate = virtual_mac::kindNamed(gates, charging)) options.gate = *gate;
    if (const auto cut = virtual_mac::kindNamed(cuts, partOf(line, ", discharge "))) {
      if (!isNative && !observes) options.cut = *cut;
    }
  }
  const std::string_view light = partOf(line, ", LED ");
  if (light == "OK" || light == "off") options.magSafeLight = light == "OK";
}

// The start of the daemon that ran at the beginning; or else the first one.
const LoggedLine* startLineOf(const Trace& trace, double begin) {
  const LoggedLine* found = nullptr;
  for (const auto* lines : {&trace.earlier, &trace.lines}) {
    for (const LoggedLine& line : *lines) {
      if (isStart(line.text) && (found == nullptr || line.time <= begin + longestStartUp)) found = &line;
    }
  }
  return found;
}

// What status.json has of it at the end: "chargeMode" and "smcKeys". False when it has neither.
bool readStatusKeys(const Members& members, virtual_mac::MachineOptions& options) {
  const auto status = objectOf(members, "status.json");
  if (!status) return false;
  const auto mode = status->find("chargeMode");
  const auto keys = status->find("smcKeys");
  if (mode == status->end() || !mode->is_string() || keys == status->end() || !keys->is_array()) return false;
  const auto has = [&](const char* key) { return std::find(keys->begin(), keys->end(), key) != keys->end(); };
  const char* cut = has("CHIE") ? "CHIE" : has("CH0I") ? "CH0I" : has("CH0J") ? "CH0J" : "off";
  readKeys("charging via " + mode->get<std::string>() + ", discharge " + cut + ", LED " +
               (has("ACLC") ? "OK" : "off"),
           options);
  return true;
}

void readKeysOfMac(const Members& members, ReportedDays& days) {
  if (const LoggedLine* start = startLineOf(days.trace, days.begin()))
    return readKeys(start->text, days.options);
  if (readStatusKeys(members, days.options)) return;
  days.assumptions.emplace_back(
      "No start of the daemon is in the log: the Mac has the keys of the model with the nearest capacity.");
}

// Options of the daemon that matter for the charge, each with its value. The app is where a virtual Mac has
// it.
void addOption(const std::string& name, const std::string& value, std::vector<std::string>& arguments) {
  constexpr std::array known{"--app", "--guard", "--limit", "--lower"};
  if (std::find(known.begin(), known.end(), name) == known.end()) return;
  arguments.push_back(name);
  arguments.push_back(name == "--app" ? "/Applications/Brisko.app" : value);
}

void readJob(const Members& members, ReportedDays& days) {
  const auto job = objectOf(members, "job.json");
  const auto found = job ? job->find("ProgramArguments") : Json::const_iterator();
  if (!job || found == job->end() || !found->is_array()) {
    days.assumptions.emplace_back("The options of the daemon are not known: it has none.");
    return;
  }
  for (std::size_t index = 0; index + 1 < found->size(); ++index) {
    const Json& name = found->at(index);
    const Json& value = found->at(index + 1);
    if (name.is_string() && value.is_string()) addOption(name, value, days.arguments);
  }
}

// The machine itself is made when the days are reconstructed; here it is only tried.
void readBattery(const Members& members, const ReportLimits& limits, ReportedDays& days) {
  days.registry = textOf(members, "battery.json");
  if (days.registry.empty() && !limits.needsBattery) {
    days.assumptions.push_back("The battery is not known: that of a " + std::string(assumedModel().title) +
                               " is assumed.");
    return;
  }
  std::string reason = "the report does not contain it";
  const auto dump = days.registry.empty() ? std::nullopt : readDump(days.registry, reason);
  if (!dump || !machineFromDump(*dump, nullptr, days.options, reason))
    throw Refusal{"the battery's registry entry: " + reason};
}

ReportedDays readDays(std::string_view bytes, const ReportLimits& limits) {
  const ArchiveReading archive = readUstar(bytes);
  if (!archive.error.empty()) throw Refusal{archive.error};
  const Members members = membersOf(archive);
  ReportedDays days;
  readHistoryOf(members, limits, days);
  readLogsOf(members, days);
  readSystem(members, days);
  readKeysOfMac(members, days);
  readBattery(members, limits, days);
  readJob(members, days);
  days.config = objectOf(members, "config.json");
  days.stats = objectOf(members, "stats.json");
  days.powerEvents = readPowerLog(textOf(members, "power-log.txt"));
  return days;
}

// --- The log of macOS

// "+0100" as seconds.
std::optional<double> zoneOffset(std::string_view text) {
  if (text.size() != 5 || (text[0] != '+' && text[0] != '-')) return std::nullopt;
  double digits[4] = {};
  for (std::size_t index = 0; index < 4; ++index) {
    const char digit = text[index + 1];
    if (digit < '0' || digit > '9') return std::nullopt;
    digits[index] = digit - '0';
  }
  const double seconds = (digits[0] * 10 + digits[1]) * 3600 + (digits[2] * 10 + digits[3]) * 60;
  return text[0] == '-' ? -seconds : seconds;
}

std::optional<PowerEvent> readPowerLine(std::string_view line) {
  constexpr std::size_t dateSize = 19;
  constexpr std::size_t zoneBegin = dateSize + 1;
  constexpr std::size_t wordBegin = zoneBegin + 6;
  constexpr std::array<std::pair<std::string_view, PowerEventKind>, 3> words{
      {{"Sleep", PowerEventKind::sleep},
       {"DarkWake", PowerEventKind::darkWake},
       {"Wake", PowerEventKind::wake}}};
  if (line.size() <= wordBegin || line[wordBegin - 1] != ' ') return std::nullopt;
  const auto date = parseDate(line.substr(0, dateSize));
  const auto offset = zoneOffset(line.substr(zoneBegin, 5));
  if (!date || !offset) return std::nullopt;
  const std::string_view rest = line.substr(wordBegin);
  const std::string_view word = rest.substr(0, std::min(rest.find_first_of(" \t"), rest.size()));
  for (const auto& [known, kind] : words) {
    if (word == known) return PowerEvent{*date - *offset, kind};
  }
  return std::nullopt;
}

}  // namespace

std::vector<PowerEvent> readPowerLog(std::string_view text) {
  std::vector<PowerEvent> events;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (const auto event = readPowerLine(line)) events.push_back(*event);
  }
  std::stable_sort(events.begin(), events.end(),
                   [](const PowerEvent& one, const PowerEvent& other) { return one.time < other.time; });
  return events;
}

const virtual_mac::Model& assumedModel() { return virtual_mac::models().front(); }

ReportReading readReport(std::string_view archive, const ReportLimits& limits) {
  try {
    return {.days = readDays(archive, limits)};
  } catch (const Refusal& refusal) {
    return {.error = refusal.reason};
  }
}

}  // namespace brisko::lab
