#include <cstdint>
#include <map>
#include <utility>

#include <notify.h>

#include "fakes/values.h"
#include "sim/machine/charge_limit.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/moment.h"

namespace brisko::fakes {

namespace {

using virtual_mac::Journal;
using virtual_mac::LimitPreference;
using virtual_mac::Machine;
using virtual_mac::Preference;
using virtual_mac::PreferenceKind;

// What this process has written but not yet synchronised; it is lost when the process ends. Exit hooks still
// write, so it is never destroyed.
using Pending = std::map<LimitPreference, Preference>;
Pending& pending() {
  static Pending& kept = *new Pending;
  return kept;
}

// The disk stores one domain of one user, for any host.
bool isKnown(CFStringRef application, CFStringRef user, CFStringRef host) {
  return virtual_mac::attachedMachine() != nullptr && textOf(application) == virtual_mac::limitDomain &&
         textOf(user) == textOf(kCFPreferencesCurrentUser) && textOf(host) == textOf(kCFPreferencesAnyHost);
}

Preference asKept(CFPropertyListRef object) {
  Preference kept{};
  const auto value = object == nullptr ? std::nullopt : valueOf(object);
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

platform::Value asValue(const Preference& kept) {
  switch (kept.kind) {
    case PreferenceKind::none:
      return {};
    case PreferenceKind::boolean:
      return kept.integer != 0;
    case PreferenceKind::integer:
      return kept.integer;
    case PreferenceKind::real:
      return kept.real;
    case PreferenceKind::date:
      return platform::Date{kept.real};
    case PreferenceKind::text:
      return std::string(virtual_mac::textOf(kept.text));
  }
  return {};
}

}  // namespace

}  // namespace brisko::fakes

using namespace brisko::fakes;
namespace virtual_mac = brisko::virtual_mac;

extern "C" {

const CFStringRef kCFPreferencesCurrentUser = constantString("kCFPreferencesCurrentUser");
const CFStringRef kCFPreferencesAnyUser = constantString("kCFPreferencesAnyUser");
const CFStringRef kCFPreferencesCurrentHost = constantString("kCFPreferencesCurrentHost");
const CFStringRef kCFPreferencesAnyHost = constantString("kCFPreferencesAnyHost");

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user,
                                         CFStringRef host) {
  const auto which = virtual_mac::limitPreferenceNamed(textOf(key));
  if (!which || !isKnown(application, user, host)) return nullptr;
  const auto written = pending().find(*which);
  const Preference kept =
      written != pending().end()
          ? written->second
          : virtual_mac::readNow(*virtual_mac::attachedMachine(), [&](const Machine& machine) {
              return virtual_mac::preferenceOnDisk(machine, *which);
            });
  return objectOf(asValue(kept));
}

void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application,
                           CFStringRef user, CFStringRef host) {
  const auto which = virtual_mac::limitPreferenceNamed(textOf(key));
  if (!which || !isKnown(application, user, host)) return;
  const Preference kept = asKept(value);
  pending()[*which] = kept;
  virtual_mac::changeNow(*virtual_mac::attachedMachine(), [&](Machine& machine, Journal& journal) {
    virtual_mac::notePreferenceWrite(machine, journal, *which, kept);
  });
}

Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host) {
  if (virtual_mac::attachedMachine() == nullptr) return 0;
  if (!isKnown(application, user, host)) return 1;
  const bool written =
      virtual_mac::changeNow(*virtual_mac::attachedMachine(), [](Machine& machine, Journal& journal) {
        if (!virtual_mac::beginSynchronisation(machine, journal)) return false;
        for (const auto& [which, kept] : pending()) virtual_mac::storePreference(machine, which, kept);
        return true;
      });
  if (written) pending().clear();
  return written ? 1 : 0;
}

std::uint32_t notify_post(const char* name) {
  if (virtual_mac::attachedMachine() == nullptr) return 0;
  virtual_mac::changeNow(*virtual_mac::attachedMachine(), [name](Machine& machine, Journal& journal) {
    virtual_mac::notify(machine, journal, name);
  });
  return 0;
}
}
