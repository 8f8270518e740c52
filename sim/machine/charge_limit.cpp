#include "sim/machine/charge_limit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "sim/machine/journal.h"
#include "sim/machine/physics.h"

namespace brisko::virtual_mac {
namespace {

constexpr double usualDelay = 5;  // seconds
constexpr std::int64_t noLimit = 100;
constexpr std::int64_t firstMacOS = 26;

constexpr std::array<std::string_view, limitPreferences> preferenceNames{"MCLFeatureState", "mclLimitValue",
                                                                         "MCLTempDisabledUntilDate"};

bool isRunning(const Machine& machine) {
  return hasLimit(machine) && machine.system.poweredOn && !machine.system.asleep;
}

Preference& placeOf(ChargeLimit& limit, LimitPreference which) {
  return limit.preferences[static_cast<std::size_t>(which)];
}

Preference integerPreference(std::int64_t number) {
  return {.kind = PreferenceKind::integer, .integer = number, .real = 0, .text = {}};
}

std::optional<std::int64_t> integerIn(const Preference& preference) {
  if (preference.kind != PreferenceKind::integer) return std::nullopt;
  return preference.integer;
}

bool isEnabled(const Machine& machine) {
  return integerIn(preferenceOnDisk(machine, LimitPreference::featureState)) == 1;
}

std::int64_t limitOnDisk(const Machine& machine) {
  return integerIn(preferenceOnDisk(machine, LimitPreference::limitValue)).value_or(noLimit);
}

// When the service is told again of an order that is already pending, its delay does not start again.
void readOrder(Machine& machine) {
  ChargeLimit& limit = machine.limit;
  const LimitOrder order = orderOnDisk(machine);
  if (limit.comingAt >= 0 && order == limit.coming) return;
  limit.coming = order;
  limit.comingAt = machine.now + limit.delay;
}

// Tells the service that the preferences have changed; a program that guards its own limit is told too.
void notifyService(Machine& machine) {
  readOrder(machine);
  ChargeLimit& limit = machine.limit;
  const bool guarded = limit.revertAfter >= 0 && limit.revertAt < 0;
  if (guarded && limit.coming.percent != limit.revertPercent)
    limit.revertAt = machine.now + limit.revertAfter;
}

std::int64_t asThisMacHolds(const ChargeLimit& limit, std::int64_t percent) {
  if (percent == 0) return percent;
  const bool small = percent < lowestOffered;
  if (!small && percent % limitStep == 0) return percent;
  switch (small ? limit.belowFloor : limit.offStep) {
    case OddLimit::taken:
      return percent;
    case OddLimit::ignored:
      return limit.held.percent;
    case OddLimit::adjusted:
      break;
  }
  return small ? lowestOffered : percent - percent % limitStep;
}

void takeOrder(Machine& machine) {
  ChargeLimit& limit = machine.limit;
  limit.comingAt = unset;
  const bool full = limit.coming.fullUntil > wallClock(machine);
  limit.held = {.percent = asThisMacHolds(limit, limit.coming.percent),
                .fullUntil = full ? limit.coming.fullUntil : 0};
}

// The end of a full charge, as machine time.
double fullUntil(const Machine& machine) {
  const double until = machine.limit.held.fullUntil;
  return until > 0 ? until - machine.system.wallOffset : never;
}

void writeLimit(Machine& machine, std::int64_t percent) {
  storePreference(machine, LimitPreference::featureState, integerPreference(percent < noLimit ? 1 : 0));
  storePreference(machine, LimitPreference::limitValue, integerPreference(percent));
}

bool isReadable(const Machine& machine) { return uptimeOf(machine) >= machine.limit.readableAfter; }

// A limit of 100 switches the feature off rather than on, so that it is not shown as in use while it does
// nothing. A full charge that the user asked for today continues.
std::optional<bool> answerSet(Machine& machine, std::int64_t percent) {
  if (!hasLimit(machine)) return false;
  if (machine.limit.setAnswer == LimitAnswer::error) return std::nullopt;
  const bool offered = percent >= lowestOffered && percent <= noLimit && percent % limitStep == 0;
  if (!offered || machine.limit.setAnswer == LimitAnswer::no) return false;
  setLimitByHand(machine, percent);
  return true;
}

// Packs a preference into an entry of the journal: its kind, then its number or as much of its text as fits.
void pack(const Preference& value, JournalEntry& entry) {
  entry.bytes[0] = static_cast<std::uint8_t>(value.kind);
  const bool real = value.kind == PreferenceKind::real || value.kind == PreferenceKind::date;
  if (value.kind == PreferenceKind::text) {
    std::copy_n(value.text.begin(), entry.bytes.size() - 2, entry.bytes.begin() + 1);
  } else if (real) {
    std::memcpy(&entry.bytes[1], &value.real, sizeof value.real);
  } else {
    std::memcpy(&entry.bytes[1], &value.integer, sizeof value.integer);
  }
  entry.size = static_cast<std::uint8_t>(entry.bytes.size());
}

std::string valueText(const JournalEntry& entry) {
  std::int64_t integer = 0;
  double real = 0;
  std::memcpy(&integer, &entry.bytes[1], sizeof integer);
  std::memcpy(&real, &entry.bytes[1], sizeof real);
  switch (static_cast<PreferenceKind>(entry.bytes[0])) {
    case PreferenceKind::none:
      return " removed";
    case PreferenceKind::boolean:
      return integer != 0 ? "=true" : "=false";
    case PreferenceKind::integer:
      return "=" + std::to_string(integer);
    case PreferenceKind::real:
      return "=" + std::to_string(real);
    case PreferenceKind::date:
      return "=date " + std::to_string(real);
    case PreferenceKind::text:
      break;
  }
  std::string text = "=\"";
  for (std::size_t at = 1; at < entry.bytes.size() && entry.bytes[at] != 0; ++at) {
    text += static_cast<char>(entry.bytes[at]);
  }
  return text + "\"";
}

}  // namespace

ChargeLimit freshLimit(bool offered) {
  ChargeLimit limit{};
  limit.offered = offered;
  limit.delay = usualDelay;
  limit.comingAt = unset;
  limit.revertAfter = unset;
  limit.revertAt = unset;
  return limit;
}

void startLimitService(Machine& machine) {
  machine.limit.comingAt = unset;
  readOrder(machine);
}

double nextLimitEvent(const Machine& machine) {
  const ChargeLimit& limit = machine.limit;
  // Called at every step of the machine, and nearly always when nothing is about to happen.
  const bool quiet = limit.comingAt < 0 && limit.revertAt < 0 && limit.held.fullUntil <= 0;
  if (quiet || !isRunning(machine)) return never;
  return std::min({orNever(limit.comingAt), orNever(limit.revertAt), fullUntil(machine)});
}

void applyLimitEvent(Machine& machine) {
  ChargeLimit& limit = machine.limit;
  const bool reached = adapterReachesBattery(machine);
  if (orNever(limit.comingAt) <= machine.now) {
    takeOrder(machine);
  } else if (fullUntil(machine) <= machine.now) {
    limit.held.fullUntil = 0;
  } else {
    limit.revertAt = unset;
    setLimitByHand(machine, limit.revertPercent == 0 ? noLimit : limit.revertPercent);
  }
  settle(machine, reached);
}

bool hasLimit(const Machine& machine) { return machine.limit.offered && machine.system.macOS >= firstMacOS; }

// Values that are not limits request none.
LimitOrder orderOnDisk(const Machine& machine) {
  LimitOrder order{};
  const std::int64_t percent = limitOnDisk(machine);
  if (isEnabled(machine) && percent >= 1 && percent < noLimit) order.percent = percent;
  const Preference& until = preferenceOnDisk(machine, LimitPreference::disabledUntil);
  if (until.kind == PreferenceKind::date && until.real > 0) order.fullUntil = until.real;
  return order;
}

std::int64_t enforcedLimit(const Machine& machine) {
  const LimitOrder& held = machine.limit.held;
  return held.fullUntil > 0 || !hasLimit(machine) ? 0 : held.percent;
}

std::uint8_t shownLimit(const Machine& machine) {
  const std::int64_t enforced = enforcedLimit(machine);
  if (enforced == 0 && machine.limit.showsNoneAs100) return noLimit;
  return static_cast<std::uint8_t>(enforced);
}

bool limitLetsCharge(double limit, double shownLevel, bool limitCharging) {
  if (limit <= 0) return true;
  const double percent = std::round(shownLevel);  // what users see
  if (percent >= limit) return false;
  if (percent < limit - restingMargin) return true;
  return limitCharging;
}

void setLimitByHand(Machine& machine, std::int64_t percent) {
  writeLimit(machine, percent);
  notifyService(machine);
}

void askForFullCharge(Machine& machine, double seconds) {
  Preference until{};
  if (seconds > 0)
    until = {.kind = PreferenceKind::date, .integer = 0, .real = wallClock(machine) + seconds, .text = {}};
  storePreference(machine, LimitPreference::disabledUntil, until);
  notifyService(machine);
}

void guardLimit(Machine& machine, double seconds) {
  ChargeLimit& limit = machine.limit;
  limit.revertAfter = seconds;
  limit.revertPercent = orderOnDisk(machine).percent;
  if (seconds < 0) limit.revertAt = unset;
}

LimitClient loadClient(Machine& machine) {
  ++machine.limit.calls.loads;
  const LimitClient client = machine.limit.client;
  // A macOS without the limit has the framework but not the class.
  return client == LimitClient::offered && !hasLimit(machine) ? LimitClient::noClass : client;
}

void noteClientMade(Machine& machine) { ++machine.limit.calls.clients; }

bool clientSaysSupported(Machine& machine) {
  ++machine.limit.calls.supported;
  return hasLimit(machine) && uptimeOf(machine) >= machine.limit.supportedAfter;
}

std::optional<bool> clientSaysEnabled(Machine& machine) {
  ++machine.limit.calls.enabled;
  if (machine.limit.enabledFails || !isReadable(machine)) return std::nullopt;
  return isEnabled(machine);
}

std::optional<std::int64_t> clientSaysLimit(Machine& machine) {
  ++machine.limit.calls.limit;
  if (machine.limit.valueFails || !isReadable(machine)) return std::nullopt;
  return limitOnDisk(machine);
}

std::optional<bool> setByClient(Machine& machine, Journal& journal, std::int64_t percent) {
  ++machine.limit.calls.sets;
  const std::optional<bool> answer = answerSet(machine, percent);
  JournalEntry& entry = newEntry(machine, journal, journalLimitSet);
  entry.key = static_cast<std::uint32_t>(percent);
  entry.status = answer.value_or(false) ? 0 : 1;
  return answer;
}

std::string_view nameOf(LimitPreference preference) {
  return preferenceNames[static_cast<std::size_t>(preference)];
}

std::optional<LimitPreference> limitPreferenceNamed(std::string_view name) {
  const auto* found = std::find(preferenceNames.begin(), preferenceNames.end(), name);
  if (found == preferenceNames.end()) return std::nullopt;
  return static_cast<LimitPreference>(found - preferenceNames.begin());
}

const Preference& preferenceOnDisk(const Machine& machine, LimitPreference which) {
  return machine.limit.preferences[static_cast<std::size_t>(which)];
}

void notePreferenceWrite(Machine& machine, Journal& journal, LimitPreference which, const Preference& value) {
  ++machine.limit.calls.preferenceWrites;
  JournalEntry& entry = newEntry(machine, journal, journalPreference);
  entry.key = static_cast<std::uint32_t>(which);
  pack(value, entry);
}

bool beginSynchronisation(Machine& machine, Journal& journal) {
  ++machine.limit.calls.synchronisations;
  const bool written = !machine.limit.preferencesFail;
  newEntry(machine, journal, journalSynchronised).status = written ? 0 : 1;
  return written;
}

void storePreference(Machine& machine, LimitPreference which, const Preference& value) {
  placeOf(machine.limit, which) = value;
}

void notify(Machine& machine, Journal& journal, std::string_view name) {
  ++machine.limit.calls.notifications;
  JournalEntry& entry = newEntry(machine, journal, journalNotified);
  const bool ours = name == limitNotification;
  entry.key = ours ? 1 : 0;
  if (!ours) entry.size = static_cast<std::uint8_t>(std::min(name.size(), entry.bytes.size()));
  std::copy_n(name.begin(), entry.size, entry.bytes.begin());
  if (ours) notifyService(machine);
}

std::string limitEntryText(const JournalEntry& entry) {
  switch (entry.command) {
    case journalLimitSet:
      return "limit set " + std::to_string(static_cast<std::int32_t>(entry.key));
    case journalPreference:
      return "preference " + std::string(nameOf(static_cast<LimitPreference>(entry.key))) + valueText(entry);
    case journalSynchronised:
      return "preferences synchronised";
    case journalNotified:
      return "notified " + (entry.key == 1
                                ? std::string(limitNotification)
                                : std::string(entry.bytes.begin(), entry.bytes.begin() + entry.size));
    default:
      return "";
  }
}

}  // namespace brisko::virtual_mac
