#include "sim/scenario/actions.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "base/options.h"
#include "sim/machine/app_bundle.h"
#include "sim/machine/change_arguments.h"
#include "sim/machine/client_requirement.h"
#include "sim/machine/faults.h"

namespace brisko::lab {
namespace {

using sim::Simulation;
using virtual_mac::Change;
using virtual_mac::ChangeKind;
using virtual_mac::RequestKind;
using Act = std::function<bool(Simulation&, std::string&)>;

// --- Actions without a value

Act always(void (Simulation::*happen)()) {
  return [happen](Simulation& simulation, std::string&) {
    (simulation.*happen)();
    return true;
  };
}

Act ofTheApp(bool (*happen)(const std::string&, std::string&)) {
  return [happen](Simulation& simulation, std::string& reason) { return happen(simulation.root(), reason); };
}

bool mustBeOn(const Simulation& simulation, bool on, std::string& reason) {
  if (simulation.machine().system.poweredOn == on) return true;
  reason = on ? "the Mac is off" : "the Mac is on already";
  return false;
}

Act onlyWhile(bool on, void (Simulation::*happen)()) {
  return [on, happen](Simulation& simulation, std::string& reason) {
    if (!mustBeOn(simulation, on, reason)) return false;
    (simulation.*happen)();
    return true;
  };
}

bool plugTheSameAdapter(Simulation& simulation, std::string&) {
  simulation.change({.kind = ChangeKind::plug, .number = simulation.machine().adapter.watts});
  return true;
}

bool removeSettings(Simulation& simulation, std::string&) {
  simulation.remove(defaultConfigPath);
  return true;
}

const std::vector<std::pair<std::string, Act>>& simpleActions() {
  static const auto& actions = *new std::vector<std::pair<std::string, Act>>{
      {"start", onlyWhile(true, &Simulation::startDaemon)},
      {"unload", always(&Simulation::unloadService)},
      {"load", onlyWhile(true, &Simulation::loadService)},
      {"shutdown", always(&Simulation::shutDown)},
      {"power-loss", always(&Simulation::losePower)},
      {"boot", onlyWhile(false, &Simulation::boot)},
      {"disk-full", [](Simulation& simulation, std::string&) { return simulation.setDiskFull(true), true; }},
      {"disk-freed",
       [](Simulation& simulation, std::string&) { return simulation.setDiskFull(false), true; }},
      {"app-deleted", ofTheApp(vmac::deleteApp)},
      {"app-moved", ofTheApp(vmac::moveApp)},
      {"app-restored", ofTheApp(vmac::restoreApp)},
      {"settings-removed", removeSettings},
      {"plug", plugTheSameAdapter},
  };
  return actions;
}

// --- Actions with a value

std::optional<std::string> textOrJson(const JsonCursor& place) {
  if (place.value().is_string()) return place.value().get<std::string>();
  return place.value().dump();
}

// The app changes some settings and leaves the others as they are.
std::optional<Act> readEdit(const JsonCursor& place) {
  if (!place.value().is_object()) {
    place.expected("an object with the settings that change");
    return std::nullopt;
  }
  return [edit = place.value()](Simulation& simulation, std::string&) {
    Json all = Json::parse(simulation.read(defaultConfigPath).value_or("{}"), nullptr, false);
    if (!all.is_object()) all = Json::object();
    all.update(edit);
    simulation.write(defaultConfigPath, all.dump());
    return true;
  };
}

std::optional<Act> readSettingsFile(const JsonCursor& place) {
  return [text = textOrJson(place).value_or("")](Simulation& simulation, std::string&) {
    simulation.write(defaultConfigPath, text);
    return true;
  };
}

std::optional<Act> readReplacement(const JsonCursor& place) {
  return [text = textOrJson(place).value_or("")](Simulation& simulation, std::string&) {
    simulation.replace(defaultConfigPath, text);
    return true;
  };
}

std::optional<std::string> readPath(const JsonCursor& place) {
  std::optional<std::string> path = place.text();
  if (!path || path->starts_with("/")) return path;
  place.expected("an absolute path on the Mac");
  return std::nullopt;
}

std::optional<Act> readWrite(const JsonCursor& place) {
  std::optional<std::string> path;
  std::optional<std::string> text;
  for (const JsonCursor& member : place.members({"path", "text", "json"})) {
    if (member.name() == "path") path = readPath(member);
    if (member.name() == "text") text = member.text();
    if (member.name() == "json") text = member.value().dump();
  }
  if (!path || !text) {
    place.complain("needs \"path\", and \"text\" or \"json\"");
    return std::nullopt;
  }
  return [path = *path, text = *text](Simulation& simulation, std::string&) {
    simulation.write(path, text);
    return true;
  };
}

std::optional<Act> readRemove(const JsonCursor& place) {
  const auto path = readPath(place);
  if (!path) return std::nullopt;
  return [path = *path](Simulation& simulation, std::string&) {
    simulation.remove(path);
    return true;
  };
}

const std::vector<std::pair<std::string, RequestKind>> requests{
    {"apply", RequestKind::applySettings},
    {"purge", RequestKind::purgeAllData},
    {"release", RequestKind::releaseCharge},
    {"restart", RequestKind::restart},
};

std::vector<std::string> requestNames() {
  std::vector<std::string> names;
  for (const auto& request : requests) names.push_back(request.first);
  return names;
}

std::vector<std::string> clientNames() {
  std::vector<std::string> names;
  for (const virtual_mac::KnownClient& client : virtual_mac::knownClients()) names.emplace_back(client.name);
  return names;
}

RequestKind requestNamed(const std::string& name) {
  const auto found =
      std::find_if(requests.begin(), requests.end(), [&](const auto& known) { return known.first == name; });
  return found->second;
}

std::optional<Act> readAsk(const JsonCursor& place) {
  std::optional<std::string> request;
  std::string client = "app";
  std::string settings;
  if (!place.value().is_object()) {
    request = place.oneOf(requestNames());
  } else {
    for (const JsonCursor& member : place.members({"request", "settings", "as"})) {
      if (member.name() == "request") request = member.oneOf(requestNames());
      if (member.name() == "settings") settings = textOrJson(member).value_or("");
      if (member.name() == "as") client = member.oneOf(clientNames()).value_or(client);
    }
    if (!place.value().contains("request")) place.complain("needs \"request\"");
  }
  if (!request) return std::nullopt;
  if ((*request == "apply") == settings.empty()) {
    place.complain(settings.empty() ? "apply needs \"settings\"" : *request + " takes no \"settings\"");
    return std::nullopt;
  }
  return [kind = requestNamed(*request), number = virtual_mac::clientNumber(client), settings](
             Simulation& simulation, std::string& reason) {
    if (!mustBeOn(simulation, true, reason)) return false;
    simulation.ask(kind, number, settings);
    return true;
  };
}

using ReadValue = std::optional<Act> (*)(const JsonCursor&);
constexpr std::array<std::pair<const char*, ReadValue>, 6> actionsWithValue{{
    {"settings", readEdit},
    {"settings-file", readSettingsFile},
    {"settings-replaced", readReplacement},
    {"write", readWrite},
    {"remove", readRemove},
    {"ask", readAsk},
}};

// --- Faults

std::string wordOf(const Json& value) {
  return value.is_string() ? value.get<std::string>() : value.is_number() ? plainNumber(value) : value.dump();
}

// {"key": …, "number": …, "bytes": …, "property": …}, or only the value if the fault takes just one.
vmac::FaultArguments readFaultArguments(const virtual_mac::Fault& fault, const JsonCursor& place) {
  vmac::FaultArguments said;
  if (!place.value().is_object()) {
    std::string& only = fault.asks.key      ? said.key
                        : fault.asks.number ? said.number
                        : fault.asks.bytes  ? said.bytes
                                            : said.property;
    only = wordOf(place.value());
    return said;
  }
  for (const JsonCursor& member : place.members({"key", "number", "bytes", "property"})) {
    const std::string word = wordOf(member.value());
    if (member.name() == "key") said.key = word;
    if (member.name() == "number") said.number = word;
    if (member.name() == "bytes") said.bytes = word;
    if (member.name() == "property") said.property = word;
  }
  return said;
}

bool happen(Simulation& simulation, const Change& change, std::string& reason) {
  if (change.kind == ChangeKind::signal && !simulation.daemonRuns()) {
    reason = "no daemon runs that could be told";
    return false;
  }
  simulation.change(change);
  return true;
}

std::optional<Act> readFault(const std::string& name, const vmac::FaultArguments& said,
                             const JsonCursor& place) {
  std::string reason;
  const auto change = vmac::changeOf(name, said, reason);
  if (!change) {
    place.complain(reason);
    return std::nullopt;
  }
  return [change = *change](Simulation& simulation, std::string& why) {
    return happen(simulation, change, why);
  };
}

void reportUnknownName(const JsonCursor& place, const std::string& name) {
  place.complain("there is no action \"" + name + "\"; \"brisko-lab actions\" lists them");
}

// --- Both kinds

// Without quotes and braces, as people would write it.
std::string wordsOf(const Json& value) {
  if (!value.is_object()) return wordOf(value);
  std::string words;
  for (const auto& [key, member] : value.items()) {
    words += (words.empty() ? "" : ", ") + key + " " + (member.is_object() ? member.dump() : wordOf(member));
  }
  return words;
}

std::optional<Act> readWord(const JsonCursor& place, const std::string& name) {
  for (const auto& [known, act] : simpleActions()) {
    if (known == name) return act;
  }
  for (const auto& [known, read] : actionsWithValue) {
    if (known == name) {
      place.complain("needs a value, as an object with \"" + name + "\" and its value");
      return std::nullopt;
    }
  }
  if (virtual_mac::findFault(name) != nullptr) return readFault(name, {}, place);
  reportUnknownName(place, name);
  return std::nullopt;
}

std::optional<Act> readMember(const JsonCursor& place) {
  const std::string name = place.name();
  for (const auto& [known, read] : actionsWithValue) {
    if (known == name) return read(place);
  }
  if (const virtual_mac::Fault* fault = virtual_mac::findFault(name)) {
    return readFault(name, readFaultArguments(*fault, place), place);
  }
  reportUnknownName(place, name);
  return std::nullopt;
}

void readAction(const JsonCursor& place, std::vector<Action>& actions) {
  if (place.value().is_string()) {
    if (auto act = readWord(place, place.value().get<std::string>())) {
      actions.push_back({place.pointer(), place.value().get<std::string>(), std::move(*act)});
    }
    return;
  }
  if (!place.value().is_object() || place.value().size() != 1) {
    place.expected("the name of an action, or an object with one name and its value");
    return;
  }
  const JsonCursor member = place.members().front();
  if (auto act = readMember(member)) {
    actions.push_back({member.pointer(), member.name() + " " + wordsOf(member.value()), std::move(*act)});
  }
}

}  // namespace

std::vector<Action> readActions(const JsonCursor& place) {
  std::vector<Action> actions;
  if (!place.value().is_array()) {
    readAction(place, actions);
    return actions;
  }
  for (const JsonCursor& element : place.elements()) readAction(element, actions);
  return actions;
}

std::vector<std::string> ownActionNames() {
  std::vector<std::string> names;
  for (const auto& [name, act] : simpleActions()) names.push_back(name);
  for (const auto& [name, read] : actionsWithValue) names.emplace_back(name);
  return names;
}

}  // namespace brisko::lab
