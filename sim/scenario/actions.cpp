#include "sim/scenario/actions.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "base/options.h"
#include "sim/machine/app_bundle.h"
#include "sim/machine/change_words.h"
#include "sim/machine/client_requirement.h"
#include "sim/machine/faults.h"

namespace brisko::lab {
namespace {

using virtual_mac::Change;
using virtual_mac::ChangeKind;
using virtual_mac::RequestKind;
using Act = std::function<bool(Stage&, std::string&)>;

// --- What needs no further word

Act always(void (Stage::*happen)()) {
  return [happen](Stage& stage, std::string&) {
    (stage.*happen)();
    return true;
  };
}

Act ofTheApp(bool (*happen)(const std::string&, std::string&)) {
  return [happen](Stage& stage, std::string& reason) { return happen(stage.root(), reason); };
}

bool mustBeOn(const Stage& stage, bool on, std::string& reason) {
  if (stage.machine().system.poweredOn == on) return true;
  reason = on ? "the Mac is off" : "the Mac is on already";
  return false;
}

Act onlyWhile(bool on, void (Stage::*happen)()) {
  return [on, happen](Stage& stage, std::string& reason) {
    if (!mustBeOn(stage, on, reason)) return false;
    (stage.*happen)();
    return true;
  };
}

bool plugTheSameAdapter(Stage& stage, std::string&) {
  stage.change({.kind = ChangeKind::plug, .number = stage.machine().adapter.watts});
  return true;
}

bool removeSettings(Stage& stage, std::string&) {
  stage.remove(defaultConfigPath);
  return true;
}

const std::vector<std::pair<std::string, Act>>& simpleActions() {
  static const auto& actions = *new std::vector<std::pair<std::string, Act>>{
      {"start", onlyWhile(true, &Stage::startDaemon)},
      {"unload", always(&Stage::unloadService)},
      {"load", onlyWhile(true, &Stage::loadService)},
      {"shutdown", always(&Stage::shutDown)},
      {"power-loss", always(&Stage::losePower)},
      {"boot", onlyWhile(false, &Stage::boot)},
      {"disk-full", [](Stage& stage, std::string&) { return stage.setDiskFull(true), true; }},
      {"disk-freed", [](Stage& stage, std::string&) { return stage.setDiskFull(false), true; }},
      {"app-deleted", ofTheApp(vmac::deleteApp)},
      {"app-moved", ofTheApp(vmac::moveApp)},
      {"app-restored", ofTheApp(vmac::restoreApp)},
      {"settings-removed", removeSettings},
      {"plug", plugTheSameAdapter},
  };
  return actions;
}

// --- What needs one

std::optional<std::string> textOrJson(const Place& place) {
  if (place.value().is_string()) return place.value().get<std::string>();
  return place.value().dump();
}

// The app changes some settings and leaves the others as they are.
std::optional<Act> readEdit(const Place& place) {
  if (!place.value().is_object()) {
    place.expected("an object with the settings that change");
    return std::nullopt;
  }
  return [edit = place.value()](Stage& stage, std::string&) {
    Json all = Json::parse(stage.read(defaultConfigPath).value_or("{}"), nullptr, false);
    if (!all.is_object()) all = Json::object();
    all.update(edit);
    stage.write(defaultConfigPath, all.dump());
    return true;
  };
}

std::optional<Act> readSettingsFile(const Place& place) {
  return [text = textOrJson(place).value_or("")](Stage& stage, std::string&) {
    stage.write(defaultConfigPath, text);
    return true;
  };
}

std::optional<Act> readReplacement(const Place& place) {
  return [text = textOrJson(place).value_or("")](Stage& stage, std::string&) {
    stage.replace(defaultConfigPath, text);
    return true;
  };
}

std::optional<std::string> readPath(const Place& place) {
  std::optional<std::string> path = place.text();
  if (!path || path->starts_with("/")) return path;
  place.expected("an absolute path on the Mac");
  return std::nullopt;
}

std::optional<Act> readWrite(const Place& place) {
  std::optional<std::string> path;
  std::optional<std::string> text;
  for (const Place& member : place.members({"path", "text", "json"})) {
    if (member.name() == "path") path = readPath(member);
    if (member.name() == "text") text = member.text();
    if (member.name() == "json") text = member.value().dump();
  }
  if (!path || !text) {
    place.complain("needs \"path\", and \"text\" or \"json\"");
    return std::nullopt;
  }
  return [path = *path, text = *text](Stage& stage, std::string&) {
    stage.write(path, text);
    return true;
  };
}

std::optional<Act> readRemove(const Place& place) {
  const auto path = readPath(place);
  if (!path) return std::nullopt;
  return [path = *path](Stage& stage, std::string&) {
    stage.remove(path);
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

std::optional<Act> readAsk(const Place& place) {
  std::optional<std::string> request;
  std::string client = "app";
  std::string settings;
  if (!place.value().is_object()) {
    request = place.oneOf(requestNames());
  } else {
    for (const Place& member : place.members({"request", "settings", "as"})) {
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
             Stage& stage, std::string& reason) {
    if (!mustBeOn(stage, true, reason)) return false;
    stage.ask(kind, number, settings);
    return true;
  };
}

using ReadValue = std::optional<Act> (*)(const Place&);
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

// {"key": …, "number": …, "bytes": …, "property": …}, or the one that is asked for as it is.
vmac::Said readSaid(const virtual_mac::Fault& fault, const Place& place) {
  vmac::Said said;
  if (!place.value().is_object()) {
    std::string& only = fault.asks.key      ? said.key
                        : fault.asks.number ? said.number
                        : fault.asks.bytes  ? said.bytes
                                            : said.property;
    only = wordOf(place.value());
    return said;
  }
  for (const Place& member : place.members({"key", "number", "bytes", "property"})) {
    const std::string word = wordOf(member.value());
    if (member.name() == "key") said.key = word;
    if (member.name() == "number") said.number = word;
    if (member.name() == "bytes") said.bytes = word;
    if (member.name() == "property") said.property = word;
  }
  return said;
}

bool happen(Stage& stage, const Change& change, std::string& reason) {
  if (change.kind == ChangeKind::signal && !stage.daemonRuns()) {
    reason = "no daemon runs that could be told";
    return false;
  }
  stage.change(change);
  return true;
}

std::optional<Act> readFault(const std::string& name, const vmac::Said& said, const Place& place) {
  std::string reason;
  const auto change = vmac::changeOf(name, said, reason);
  if (!change) {
    place.complain(reason);
    return std::nullopt;
  }
  return [change = *change](Stage& stage, std::string& why) { return happen(stage, change, why); };
}

void complainOfName(const Place& place, const std::string& name) {
  place.complain("nothing is called \"" + name + "\"; \"brisko-lab actions\" lists what can happen");
}

// --- Both

// As people would write it: no quotes and no braces.
std::string wordsOf(const Json& value) {
  if (!value.is_object()) return wordOf(value);
  std::string words;
  for (const auto& [key, member] : value.items()) {
    words += (words.empty() ? "" : ", ") + key + " " + (member.is_object() ? member.dump() : wordOf(member));
  }
  return words;
}

std::optional<Act> readWord(const Place& place, const std::string& name) {
  for (const auto& [known, act] : simpleActions()) {
    if (known == name) return act;
  }
  for (const auto& [known, read] : actionsWithValue) {
    if (known == name) {
      place.complain("needs a value, as an object with \"" + name + "\" and what it takes");
      return std::nullopt;
    }
  }
  if (virtual_mac::findFault(name) != nullptr) return readFault(name, {}, place);
  complainOfName(place, name);
  return std::nullopt;
}

std::optional<Act> readMember(const Place& place) {
  const std::string name = place.name();
  for (const auto& [known, read] : actionsWithValue) {
    if (known == name) return read(place);
  }
  if (const virtual_mac::Fault* fault = virtual_mac::findFault(name)) {
    return readFault(name, readSaid(*fault, place), place);
  }
  complainOfName(place, name);
  return std::nullopt;
}

void readAction(const Place& place, std::vector<Action>& actions) {
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
  const Place member = place.members().front();
  if (auto act = readMember(member)) {
    actions.push_back({member.pointer(), member.name() + " " + wordsOf(member.value()), std::move(*act)});
  }
}

}  // namespace

std::vector<Action> readActions(const Place& place) {
  std::vector<Action> actions;
  if (!place.value().is_array()) {
    readAction(place, actions);
    return actions;
  }
  for (const Place& element : place.elements()) readAction(element, actions);
  return actions;
}

std::vector<std::string> ownActionNames() {
  std::vector<std::string> names;
  for (const auto& [name, act] : simpleActions()) names.push_back(name);
  for (const auto& [name, read] : actionsWithValue) names.emplace_back(name);
  return names;
}

}  // namespace brisko::lab
