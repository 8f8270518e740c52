// Applies the changes that a user, the weather or a fault may make.
#include <algorithm>
#include <cmath>

#include "sim/machine/charge_limit.h"
#include "sim/machine/control_requests.h"
#include "sim/machine/controller.h"
#include "sim/machine/machine.h"
#include "sim/machine/physics.h"
#include "sim/machine/sleep.h"

namespace brisko::virtual_mac {
namespace {

// Anything that is not a number counts as `least`.
double bounded(double number, double least, double most) {
  return number >= least ? std::min(number, most) : least;
}

bool flag(double number) { return number != 0; }

// Sets `value` to the one of 0 … last that `number` names. False when it names none.
template <typename Enum>
bool name(double number, Enum last, Enum& value) {
  const auto most = static_cast<double>(last);
  if (!(number >= 0 && number <= most)) return false;
  value = static_cast<Enum>(static_cast<std::uint8_t>(number));
  return true;
}

constexpr double mostWatts = 1000;
constexpr double mostMAh = 100000;
constexpr double mostSeconds = 1e9;

// The battery keeps the percentage that it shows.
void setHealth(Battery& battery, double fullMAh) {
  const double share = battery.chargeMAh / battery.fullMAh;
  battery.fullMAh = bounded(fullMAh, 1, mostMAh);
  battery.chargeMAh = std::min(share * battery.fullMAh, battery.fullMAh);
}

void connectAdapter(Machine& machine, bool present) {
  if (machine.adapter.present == present) return;
  machine.adapter.present = present;
  wakeForAdapter(machine);
}

// Returns true when the change was one of these.
bool changeBattery(Machine& machine, const Change& change) {
  Battery& battery = machine.battery;
  const double number = change.number;
  switch (change.kind) {
    case ChangeKind::plug:
      machine.adapter.watts = bounded(number, 0, mostWatts);
      connectAdapter(machine, true);
      return true;
    case ChangeKind::unplug:
      connectAdapter(machine, false);
      return true;
    case ChangeKind::cutKeepsExternal:
      machine.adapter.staysConnectedWhenCut = flag(number);
      return true;
    case ChangeKind::charge:
      setShownLevel(battery, bounded(number, 0, 100));
      return true;
    case ChangeKind::load:
      machine.surroundings.loadWatts = bounded(number, 0, mostWatts);
      return true;
    case ChangeKind::ambient:
      machine.surroundings.ambientC = bounded(number, -100, 200);
      return true;
    case ChangeKind::temperature:
      battery.temperatureC = bounded(number, -100, 200);
      return true;
    case ChangeKind::health:
      setHealth(battery, number);
      return true;
    case ChangeKind::cycles:
      battery.cycles = std::llround(bounded(number, 0, 1e6));
      return true;
    case ChangeKind::decay:
      battery.decaySeconds = bounded(number, 0, mostSeconds);
      return true;
    case ChangeKind::trickle:
      battery.trickleMA = bounded(number, 0, mostMAh);
      return true;
    case ChangeKind::batteryInstalled:
      battery.installed = flag(number);
      if (!battery.installed) battery.currentMA = battery.targetMA = 0;
      return true;
    default:
      return false;
  }
}

void writeByOthers(SmcKey& key, const Change& change) {
  const std::size_t count = std::min<std::size_t>(change.byteCount, key.bytes.size());
  key.bytes.fill(0);
  std::copy_n(change.bytes.begin(), count, key.bytes.begin());
  if (key.source == KeySource::stored) {
    key.acted = key.bytes;
  } else {
    key.scripted = true;
  }
}

void setReleaseAfter(SmcKey& key, double seconds) {
  key.releaseAfter = seconds >= 0 ? bounded(seconds, 0, mostSeconds) : -1;
  if (key.releaseAfter < 0) key.releaseAt = -1;
}

bool isAboutKey(ChangeKind kind) {
  return kind >= ChangeKind::keyPresent && kind <= ChangeKind::keyReleaseAfter;
}

void changeKey(SmcKey& key, const Change& change) {
  switch (change.kind) {
    case ChangeKind::keyPresent:
      key.present = flag(change.number);
      break;
    case ChangeKind::keySize:
      key.size = static_cast<std::uint32_t>(bounded(change.number, 0, 1024));
      break;
    case ChangeKind::keyOnWrite:
      if (name(change.number, OnWrite::kernelError, key.onWrite) && change.status != 0) {
        key.writeStatus = change.status;
      }
      break;
    case ChangeKind::keyReadStatus:
      key.readStatus = change.status;
      break;
    case ChangeKind::keyBytes:
      writeByOthers(key, change);
      break;
    case ChangeKind::keyUnscript:
      key.scripted = false;
      break;
    case ChangeKind::keyRelease:
      releaseKey(key);
      break;
    case ChangeKind::keyReleaseAfter:
      setReleaseAfter(key, change.number);
      break;
    default:
      break;
  }
}

void changeNamedKey(Machine& machine, const Change& change) {
  SmcKey* key = placeOf(machine, change.key);
  const bool appears = change.kind == ChangeKind::keyPresent && flag(change.number);
  if (key == nullptr && appears && change.key != 0) key = addKey(machine, change.key);
  if (key != nullptr) changeKey(*key, change);
}

// Each property has at most one fault; the fault "none" heals it. When all places are taken, the oldest fault
// makes room.
void changeProperty(Machine& machine, const ShortText& property, double number) {
  PropertyFault fault = PropertyFault::none;
  if (!name(number, PropertyFault::unsignedInteger, fault)) return;
  auto& all = machine.properties;
  auto* end = std::remove_if(all.begin(), all.end(), [&](const PropertyChange& entry) {
    return entry.fault == PropertyFault::none || entry.name == property;
  });
  std::fill(end, all.end(), PropertyChange{});
  if (fault == PropertyFault::none) return;
  if (end == all.end()) {
    std::rotate(all.begin(), all.begin() + 1, all.end());
    --end;
  }
  *end = {.name = property, .fault = fault};
}

// An upgrade: the keys that the new version closes are closed at once. The caller reboots the machine
// afterwards.
void changeMacOS(Machine& machine, double number) {
  machine.system.macOS = std::llround(bounded(number, 1, 1000));
  machine.layout = machine.system.macOS >= 27 ? RegistryLayout::nested : RegistryLayout::flat;
  closeOrOpenKeys(machine);
}

void changeCapabilities(System& system, double number) {
  system.capabilitiesReadable = number >= 0;
  if (system.capabilitiesReadable)
    system.capabilities = static_cast<std::uint32_t>(bounded(number, 0, 4294967295.0));
}

void changeSignalAtExchange(Smc& smc, const Change& change) {
  const bool wanted = change.status > 0 && change.number >= 1 && change.number <= 31;
  smc.signalAtExchange = wanted ? smc.exchanges + change.status : 0;
  smc.signalToRaise = wanted ? static_cast<std::int32_t>(change.number) : 0;
}

// Returns true when the change was one of these.
bool changePower(Machine& machine, const Change& change) {
  SleepRefusal refusal = machine.sleep.refusal;
  Nights nights = machine.sleep.nights;
  switch (change.kind) {
    case ChangeKind::closeLid:
      closeLid(machine);
      return true;
    case ChangeKind::openLid:
      openLid(machine);
      return true;
    case ChangeKind::sleep:
      commandSleep(machine);
      return true;
    case ChangeKind::idleSleep:
      askForSleep(machine);
      return true;
    case ChangeKind::wake:
      wakeByUser(machine);
      return true;
    case ChangeKind::darkWake:
      wakeDark(machine, bounded(change.number, 0, mostSeconds));
      return true;
    case ChangeKind::sleepRefused:
      if (name(change.number, SleepRefusal::inDarkness, refusal)) setRefusal(machine, refusal);
      return true;
    case ChangeKind::scheduledWakes:
      machine.sleep.promotesScheduledWakes = flag(change.number);
      return true;
    case ChangeKind::batteryWakes:
      machine.sleep.batteryWakeSeconds = bounded(change.number, 0, mostSeconds);
      return true;
    case ChangeKind::adapterWakes:
      machine.sleep.adapterWakes = flag(change.number);
      return true;
    case ChangeKind::lateCapabilities:
      machine.sleep.capabilitiesDelay = bounded(change.number, 0, mostSeconds);
      return true;
    case ChangeKind::nights:
      if (name(change.number, Nights::busy, nights)) setNights(machine, nights);
      return true;
    case ChangeKind::scheduleStatus:
      machine.sleep.scheduleStatus = change.status;
      return true;
    case ChangeKind::powerClients:
      machine.sleep.refusesClients = !flag(change.number);
      return true;
    default:
      return false;
  }
}

// Returns true when the change was one of these.
bool changeLimit(Machine& machine, const Change& change) {
  ChargeLimit& limit = machine.limit;
  const double number = change.number;
  switch (change.kind) {
    case ChangeKind::limit:
      setLimitByHand(machine, std::llround(bounded(number, 1, 100)));
      return true;
    case ChangeKind::chargeToFull:
      askForFullCharge(machine, bounded(number, 0, mostSeconds));
      return true;
    case ChangeKind::limitReverted:
      guardLimit(machine, number >= 0 ? bounded(number, 0, mostSeconds) : -1);
      return true;
    case ChangeKind::limitDelay:
      limit.delay = bounded(number, 0, mostSeconds);
      return true;
    case ChangeKind::limitClient:
      (void)name(number, LimitClient::noFramework, limit.client);
      return true;
    case ChangeKind::limitSupportedAfter:
      limit.supportedAfter = bounded(number, 0, mostSeconds);
      return true;
    case ChangeKind::limitReadableAfter:
      limit.readableAfter = bounded(number, 0, mostSeconds);
      return true;
    case ChangeKind::limitEnabledFails:
      limit.enabledFails = flag(number);
      return true;
    case ChangeKind::limitValueFails:
      limit.valueFails = flag(number);
      return true;
    case ChangeKind::limitSetAnswer:
      (void)name(number, LimitAnswer::error, limit.setAnswer);
      return true;
    case ChangeKind::limitBelowFloor:
      (void)name(number, OddLimit::adjusted, limit.belowFloor);
      return true;
    case ChangeKind::limitOffStep:
      (void)name(number, OddLimit::adjusted, limit.offStep);
      return true;
    case ChangeKind::limitDrains:
      limit.drains = flag(number);
      return true;
    case ChangeKind::limitNoneAs100:
      limit.showsNoneAs100 = flag(number);
      return true;
    case ChangeKind::preferencesFail:
      limit.preferencesFail = flag(number);
      return true;
    default:
      return false;
  }
}

void changeSystem(Machine& machine, const Change& change) {
  const double number = change.number;
  switch (change.kind) {
    case ChangeKind::macOS:
      changeMacOS(machine, number);
      break;
    case ChangeKind::clockStep:
      machine.system.wallOffset += bounded(number, -mostSeconds, mostSeconds);
      break;
    case ChangeKind::capabilities:
      changeCapabilities(machine.system, number);
      break;
    case ChangeKind::userId:
      machine.system.pretendedUserId = static_cast<std::int64_t>(bounded(number, 0, 4294967295.0));
      break;
    case ChangeKind::smcService:
      (void)name(number, SmcService::refusesToOpen, machine.smc.service);
      break;
    case ChangeKind::property:
      changeProperty(machine, change.text, number);
      break;
    case ChangeKind::powerSources:
      (void)name(number, PowerSourceFault::upsFirst, machine.powerSourceFault);
      break;
    case ChangeKind::powerSourceLag:
      machine.powerSource.lagSeconds = bounded(number, 0, mostSeconds);
      break;
    case ChangeKind::layout:
      (void)name(number, RegistryLayout::nested, machine.layout);
      break;
    case ChangeKind::signal:
      if (number >= 1 && number <= 31) machine.pendingSignals |= 1U << static_cast<std::uint32_t>(number);
      break;
    case ChangeKind::signalAtExchange:
      changeSignalAtExchange(machine.smc, change);
      break;
    case ChangeKind::lightTaken:
      machine.smc.lightTaken = flag(number);
      break;
    case ChangeKind::daemonTeam:
      machine.system.daemonTeam = change.text;
      machine.system.daemonSignatureReadable = true;
      break;
    case ChangeKind::daemonSignature:
      machine.system.daemonSignatureReadable = flag(number);
      break;
    case ChangeKind::request:
    case ChangeKind::requestUnawaited:
      sendRequest(machine, change);
      break;
    default:
      break;
  }
}

}  // namespace

void apply(Machine& machine, const Change& change) {
  const bool reached = adapterReachesBattery(machine);
  if (isAboutKey(change.kind)) {
    changeNamedKey(machine, change);
  } else if (!changeBattery(machine, change) && !changePower(machine, change) &&
             !changeLimit(machine, change)) {
    changeSystem(machine, change);
  }
  settle(machine, reached);
  if (change.kind == ChangeKind::charge || change.kind == ChangeKind::batteryInstalled) publishGauge(machine);
}

}  // namespace brisko::virtual_mac
