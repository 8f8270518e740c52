#include "sim/scenario/actions.h"

#include <array>
#include <map>
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

Act always(void (Simulation::*action)()) {
  return [action](Simulation& simulation, std::string&) {
    (simulation.*action)();
    return true;
  };
}

Act ofTheApp(bool (*action)(const std::string&, std::string&)) {
  return [action](Simulation& simulation, std::string& reason) { return action(simulation.root(), reason); };
}

bool mustBeOn(const Simulation& simulation, bool on, std::string& reason) {
  if (simulation.machine().system.poweredOn == on) return true;
  reason = on ? "the Mac is off" : "the Mac is on already";
  return false;
}

Act onlyWhile(bool on, void (Simulation::*action)()) {
  return [on, action](Simulation& simulation, std::string& reason) {
    if (!mustBeOn(simulation, on, reason)) return false;
    (simulation.*action)();
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

// The app changes some settings and leaves the others as they are.
Act readEdit(const JsonCursor& place) {
  return [edit = place.value()](Simulation& simulation, std::string&) {
    Json all = Json::parse(simulation.read(defaultConfigPath).value_or("{}"), nullptr, false);
    if (!all.is_object()) all = Json::object();
    all.update(edit);
    simulation.write(defaultConfigPath, all.dump());
    return true;
  };
}

Act writing(const std::string& path, const std::string& text) {
  return [path, text](Simulation& simulation, std::string&) {
    simulation.write(path, text);
    return true;
  };
}

Act readSettingsFile(const JsonCursor& place) { return writing(defaultConfigPath, contentOf(place.value())); }

Act readReplacement(const JsonCursor& place) {
  return [text = contentOf(place.value())](Simulation& simulation, std::string&) {
    simulation.replace(defaultConfigPath, text);
    return true;
  };
}

Act readWrite(const JsonCursor& place) {
  const Json& file = place.value();
  const std::string text =
      file.contains("text") ? file.at("text").get<std::string>() : file.at("json").dump();
  return writing(file.at("path"), text);
}

Act readRemove(const JsonCursor& place) {
  return [path = place.value().get<std::string>()](Simulation& simulation, std::string&) {
    simulation.remove(path);
    return true;
  };
}

const std::map<std::string, RequestKind> requests{
    {"apply", RequestKind::applySettings},
    {"purge", RequestKind::purgeAllData},
    {"release", RequestKind::releaseCharge},
    {"restart", RequestKind::restart},
};

Act readAsk(const JsonCursor& place) {
  const Json words = place.value().is_object() ? place.value() : Json{{"request", place.value()}};
  const std::string request = words.at("request");
  const bool hasSettings = words.contains("settings");
  if ((request == "apply") != hasSettings) {
    place.addError(hasSettings ? request + " takes no \"settings\"" : "apply needs \"settings\"");
  }
  return [kind = requests.at(request), client = virtual_mac::clientNumber(words.value("as", "app")),
          settings = hasSettings ? contentOf(words.at("settings")) : ""](Simulation& simulation,
                                                                         std::string& reason) {
    if (!mustBeOn(simulation, true, reason)) return false;
    simulation.ask(kind, client, settings);
    return true;
  };
}

using ReadValue = Act (*)(const JsonCursor&);
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
vmac::FaultArguments readFaultArguments(const virtual_mac::Fault& fault, const Json& value) {
  if (!value.is_object()) {
    const std::string word = wordOf(value);
    return fault.asks.key      ? vmac::FaultArguments{.key = word}
           : fault.asks.number ? vmac::FaultArguments{.number = word}
                               : vmac::FaultArguments{.property = word};
  }
  const auto word = [&](const char* key) { return value.contains(key) ? wordOf(value.at(key)) : ""; };
  return {word("key"), word("number"), word("bytes"), word("property")};
}

bool applyChange(Simulation& simulation, const Change& change, std::string& reason) {
  if (change.kind == ChangeKind::signal && !simulation.daemonRuns()) {
    reason = "no daemon runs that could be told";
    return false;
  }
  simulation.change(change);
  return true;
}

Act readFault(const std::string& name, const vmac::FaultArguments& arguments, const JsonCursor& place) {
  std::string reason;
  const auto change = vmac::changeOf(name, arguments, reason);
  if (!change) place.addError(reason);
  return [change = change.value_or(Change{})](Simulation& simulation, std::string& why) {
    return applyChange(simulation, change, why);
  };
}

// --- All of them

// Without quotes and braces, as people would write it.
std::string wordsOf(const Json& value) {
  if (!value.is_object()) return wordOf(value);
  std::string words;
  for (const auto& [key, member] : value.items()) {
    words += (words.empty() ? "" : ", ") + key + " " + (member.is_object() ? member.dump() : wordOf(member));
  }
  return words;
}

Act readWord(const JsonCursor& place, const std::string& name) {
  for (const auto& [known, act] : simpleActions()) {
    if (known == name) return act;
  }
  return readFault(name, {}, place);
}

Act readMember(const JsonCursor& place) {
  for (const auto& [known, read] : actionsWithValue) {
    if (known == place.name()) return read(place);
  }
  const virtual_mac::Fault* fault = virtual_mac::findFault(place.name());
  return readFault(place.name(),
                   fault == nullptr ? vmac::FaultArguments{} : readFaultArguments(*fault, place.value()),
                   place);
}

void addActions(const JsonCursor& place, std::vector<Action>& actions) {
  const Json& value = place.value();
  if (value.is_array()) {
    for (const JsonCursor& element : place.elements()) addActions(element, actions);
  } else if (value.is_string()) {
    actions.push_back({place.pointer(), value, readWord(place, value)});
  } else {
    const JsonCursor member = place.members().front();
    actions.push_back({member.pointer(), member.name() + " " + wordsOf(member.value()), readMember(member)});
  }
}

}  // namespace

std::vector<Action> readActions(const JsonCursor& place) {
  std::vector<Action> actions;
  addActions(place, actions);
  return actions;
}

std::vector<std::string> ownActionNames() {
  std::vector<std::string> names;
  for (const auto& [name, act] : simpleActions()) names.push_back(name);
  for (const auto& [name, read] : actionsWithValue) names.emplace_back(name);
  return names;
}

}  // namespace brisko::lab
