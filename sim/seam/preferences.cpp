#include "platform/preferences.h"

#include <map>
#include <utility>

#include "sim/machine/charge_limit.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/moment.h"

namespace brisko::platform {

namespace {

using virtual_mac::Journal;
using virtual_mac::LimitPreference;
using virtual_mac::Machine;
using virtual_mac::MachineStore;
using virtual_mac::Preference;
using virtual_mac::PreferenceKind;

// What this process has written but not synchronised to the disk; it is lost with the process. Exit hooks
// still write, so it is never destroyed.
using Pending = std::map<LimitPreference, std::optional<Value>>;
Pending& pending() {
  static Pending& kept = *new Pending;
  return kept;
}

// The disk has one domain and its keys; writes to any other domain are dropped.
std::optional<LimitPreference> preferenceAt(std::string_view domain, std::string_view key) {
  if (domain != virtual_mac::limitDomain) return std::nullopt;
  return virtual_mac::limitPreferenceNamed(key);
}

Preference asKept(const std::optional<Value>& value) {
  Preference kept{};
  if (!value) return kept;
  if (const auto flag = value->asBoolean()) {
    kept.kind = PreferenceKind::boolean;
    kept.integer = *flag ? 1 : 0;
  } else if (const auto integer = value->asInteger()) {
    kept.kind = PreferenceKind::integer;
    kept.integer = *integer;
  } else if (const auto real = value->asDouble()) {
    kept.kind = PreferenceKind::real;
    kept.real = *real;
  } else if (const auto date = value->asDate()) {
    kept.kind = PreferenceKind::date;
    kept.real = date->secondsSince1970;
  } else if (const std::string* text = value->asText()) {
    kept.kind = PreferenceKind::text;
    kept.text = virtual_mac::shortText(*text);
  }
  return kept;
}

std::optional<Value> asValue(const Preference& kept) {
  switch (kept.kind) {
    case PreferenceKind::none:
      return std::nullopt;
    case PreferenceKind::boolean:
      return kept.integer != 0;
    case PreferenceKind::integer:
      return kept.integer;
    case PreferenceKind::real:
      return kept.real;
    case PreferenceKind::date:
      return Date{kept.real};
    case PreferenceKind::text:
      return std::string(virtual_mac::textOf(kept.text));
  }
  return std::nullopt;
}

}  // namespace

std::optional<Value> preference(std::string_view domain, std::string_view key) {
  MachineStore* store = virtual_mac::machineFor({.name = "preference", .subject = key});
  const std::optional<LimitPreference> which = preferenceAt(domain, key);
  if (store == nullptr || !which) return std::nullopt;
  const auto written = pending().find(*which);
  if (written != pending().end()) return written->second;
  return asValue(virtual_mac::readNow(
      *store, [&](const Machine& machine) { return virtual_mac::preferenceOnDisk(machine, *which); }));
}

void setPreference(std::string_view domain, std::string_view key, std::optional<Value> value) {
  MachineStore* store = virtual_mac::machineFor({.name = "setPreference", .subject = key});
  const std::optional<LimitPreference> which = preferenceAt(domain, key);
  if (store == nullptr || !which) return;
  const Preference kept = asKept(value);
  pending()[*which] = std::move(value);
  virtual_mac::changeNow(*store, [&](Machine& machine, Journal& journal) {
    virtual_mac::notePreferenceWrite(machine, journal, *which, kept);
  });
}

// What could not be written stays pending.
bool synchronizePreferences(std::string_view domain) {
  MachineStore* store = virtual_mac::machineFor({"synchronizePreferences"});
  if (store == nullptr) return false;
  if (domain != virtual_mac::limitDomain) return true;
  const bool written = virtual_mac::changeNow(*store, [](Machine& machine, Journal& journal) {
    if (!virtual_mac::beginSynchronisation(machine, journal)) return false;
    for (const auto& [which, value] : pending()) virtual_mac::storePreference(machine, which, asKept(value));
    return true;
  });
  if (written) pending().clear();
  return written;
}

void postNotification(std::string_view name) {
  MachineStore* store = virtual_mac::machineFor({.name = "postNotification", .subject = name});
  if (store == nullptr) return;
  virtual_mac::changeNow(
      *store, [name](Machine& machine, Journal& journal) { virtual_mac::notify(machine, journal, name); });
}

}  // namespace brisko::platform
