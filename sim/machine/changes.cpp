// Applies the changes that a user, the weather or a fault may make.
#include "sim/machine/changes.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "sim/machine/charge_limit.h"
#include "sim/machine/control_requests.h"
#include "sim/machine/controller.h"
#include "sim/machine/physics.h"
#include "sim/machine/sleep.h"

namespace brisko::virtual_mac {
namespace {

bool flag(double number) { return number != 0; }

// The setter of a field that takes the number as it is.
template <auto part, auto field>
void put(Machine& machine, const Change& change) {
  auto& value = machine.*part.*field;
  using Value = std::remove_reference_t<decltype(value)>;
  if constexpr (std::is_same_v<Value, bool>) {
    value = flag(change.number);
  } else if constexpr (std::is_same_v<Value, std::int64_t>) {
    value = std::llround(change.number);
  } else {
    value = static_cast<Value>(change.number);
  }
}

// --- The battery and the adapter

void connectAdapter(Machine& machine, bool present) {
  if (machine.adapter.present == present) return;
  machine.adapter.present = present;
  wakeForAdapter(machine);
}

void plugIn(Machine& machine, const Change& change) {
  machine.adapter.watts = change.number;
  connectAdapter(machine, true);
}

void unplug(Machine& machine, const Change&) { connectAdapter(machine, false); }

void setCharge(Machine& machine, const Change& change) { setShownLevel(machine.battery, change.number); }

// The battery keeps the percentage that it shows.
void setHealth(Machine& machine, const Change& change) {
  Battery& battery = machine.battery;
  const double share = battery.chargeMAh / battery.fullMAh;
  battery.fullMAh = change.number;
  battery.chargeMAh = std::min(share * battery.fullMAh, battery.fullMAh);
}

void setInstalled(Machine& machine, const Change& change) {
  Battery& battery = machine.battery;
  battery.installed = flag(change.number);
  if (!battery.installed) battery.currentMA = battery.targetMA = 0;
}

// --- The controller's keys

void setOnWrite(SmcKey& key, const Change& change) {
  key.onWrite = static_cast<OnWrite>(change.number);
  if (change.status != 0) key.writeStatus = change.status;
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

void setReleaseAfter(SmcKey& key, const Change& change) {
  key.releaseAfter = change.number;
  if (key.releaseAfter < 0) key.releaseAt = -1;
}

void setPresent(SmcKey& key, const Change& change) { key.present = flag(change.number); }
void setSize(SmcKey& key, const Change& change) { key.size = static_cast<std::uint32_t>(change.number); }
void setReadStatus(SmcKey& key, const Change& change) { key.readStatus = change.status; }
void unscript(SmcKey& key, const Change&) { key.scripted = false; }
void release(SmcKey& key, const Change&) { releaseKey(key); }

template <void (*set)(SmcKey&, const Change&)>
void ofKey(Machine& machine, const Change& change) {
  SmcKey* key = placeOf(machine, change.key);
  const bool appears = change.kind == ChangeKind::keyPresent && flag(change.number);
  if (key == nullptr && appears && change.key != 0) key = addKey(machine, change.key);
  if (key != nullptr) set(*key, change);
}

// --- What macOS shows

// Each property has at most one fault; the fault "none" heals it. When all places are taken, the oldest fault
// makes room.
void changeProperty(Machine& machine, const Change& change) {
  const auto fault = static_cast<PropertyFault>(change.number);
  auto& all = machine.properties;
  auto* end = std::remove_if(all.begin(), all.end(), [&](const PropertyChange& entry) {
    return entry.fault == PropertyFault::none || entry.name == change.text;
  });
  std::fill(end, all.end(), PropertyChange{});
  if (fault == PropertyFault::none) return;
  if (end == all.end()) {
    std::rotate(all.begin(), all.begin() + 1, all.end());
    --end;
  }
  *end = {.name = change.text, .fault = fault};
}

void setPowerSources(Machine& machine, const Change& change) {
  machine.powerSourceFault = static_cast<PowerSourceFault>(change.number);
}

void setLayout(Machine& machine, const Change& change) {
  machine.layout = static_cast<RegistryLayout>(change.number);
}

// An upgrade: the keys that the new version closes are closed at once. The caller reboots the machine
// afterwards.
void changeMacOS(Machine& machine, const Change& change) {
  machine.system.macOS = std::llround(change.number);
  machine.layout = machine.system.macOS >= 27 ? RegistryLayout::nested : RegistryLayout::flat;
  closeOrOpenKeys(machine);
}

void setCapabilities(Machine& machine, const Change& change) {
  System& system = machine.system;
  system.capabilitiesReadable = change.number >= 0;
  if (system.capabilitiesReadable) system.capabilities = static_cast<std::uint32_t>(change.number);
}

// --- Sleep and wake

template <void (*act)(Machine&)>
void doAs(Machine& machine, const Change&) {
  act(machine);
}

void wakeForMaintenance(Machine& machine, const Change& change) { wakeDark(machine, change.number); }

void refuseSleep(Machine& machine, const Change& change) {
  setRefusal(machine, static_cast<SleepRefusal>(change.number));
}

void chooseNights(Machine& machine, const Change& change) {
  setNights(machine, static_cast<Nights>(change.number));
}

void setScheduleStatus(Machine& machine, const Change& change) {
  machine.sleep.scheduleStatus = change.status;
}

void setPowerClients(Machine& machine, const Change& change) {
  machine.sleep.refusesClients = !flag(change.number);
}

// --- The limit of macOS

void moveSlider(Machine& machine, const Change& change) {
  setLimitByHand(machine, std::llround(change.number));
}
void requestFull(Machine& machine, const Change& change) { askForFullCharge(machine, change.number); }
void insistOnLimit(Machine& machine, const Change& change) { guardLimit(machine, change.number); }

// --- Around the process

void stepClock(Machine& machine, const Change& change) { machine.system.wallOffset += change.number; }

constexpr Range signals{1, 31};

void raise(Machine& machine, const Change& change) {
  machine.pendingSignals |= 1U << static_cast<std::uint32_t>(change.number);
}

// Any other value than a signal and a number of exchanges cancels it.
void raiseAtExchange(Machine& machine, const Change& change) {
  Smc& smc = machine.smc;
  const bool wanted = change.status > 0 && change.number >= signals.least && change.number <= signals.most;
  smc.signalAtExchange = wanted ? smc.exchanges + change.status : 0;
  smc.signalToRaise = wanted ? static_cast<std::int32_t>(change.number) : 0;
}

void setTeam(Machine& machine, const Change& change) {
  machine.system.daemonTeam = change.text;
  machine.system.daemonSignatureReadable = true;
}

// --- The table

// How the number of a change is limited.
enum class Takes : std::uint8_t {
  any,           // none, or a flag
  range,         // clamped; the least if it is not a number
  rangeOrNever,  // the same, but below 0 it means "never" or "not readable"
  choice,        // outside the range the change has no effect
};

struct Row {
  ChangeKind kind;
  void (*set)(Machine&, const Change&);
  Takes takes = Takes::any;
  Range range = {};
};

constexpr double notEver = -1;
constexpr double day = 86400;
constexpr double mostSeconds = 1e9;
constexpr double most32Bits = 4294967295.0;

template <typename Enum>
constexpr Range upTo(Enum last) {
  return {0, static_cast<double>(last)};
}

using Kind = ChangeKind;
constexpr Row rows[] = {
    {Kind::plug, plugIn, Takes::range, {0, 300, "W"}},
    {Kind::unplug, unplug},
    {Kind::charge, setCharge, Takes::range, {0, 100, "%"}},
    {Kind::load, put<&Machine::surroundings, &Surroundings::loadWatts>, Takes::range, {0, 300, "W"}},
    {Kind::ambient, put<&Machine::surroundings, &Surroundings::ambientC>, Takes::range, {-50, 80, "°C"}},
    {Kind::temperature, put<&Machine::battery, &Battery::temperatureC>, Takes::range, {-50, 150, "°C"}},
    {Kind::health, setHealth, Takes::range, {100, 20000, "mAh"}},
    {Kind::cycles, put<&Machine::battery, &Battery::cycles>, Takes::range, {0, 10000, "cycles"}},
    {Kind::decay, put<&Machine::battery, &Battery::decaySeconds>, Takes::range, {0, 3600, "s"}},
    {Kind::trickle, put<&Machine::battery, &Battery::trickleMA>, Takes::range, {0, 10000, "mA"}},
    {Kind::batteryInstalled, setInstalled},
    {Kind::cutKeepsExternal,
     put<&Machine::adapter, &Adapter::staysConnectedWhenCut>,
     Takes::range,
     {0, 1, "1: stays set, 0: cleared"}},

    {Kind::keyPresent, ofKey<setPresent>},
    {Kind::keySize, ofKey<setSize>, Takes::range, {0, 64, "bytes"}},
    {Kind::keyOnWrite, ofKey<setOnWrite>, Takes::choice, upTo(OnWrite::kernelError)},
    {Kind::keyReadStatus, ofKey<setReadStatus>},
    {Kind::keyBytes, ofKey<writeByOthers>},
    {Kind::keyUnscript, ofKey<unscript>},
    {Kind::keyRelease, ofKey<release>},
    {Kind::keyReleaseAfter, ofKey<setReleaseAfter>, Takes::rangeOrNever, {0, day, "s"}},
    {Kind::smcService, put<&Machine::smc, &Smc::service>, Takes::choice, upTo(SmcService::refusesToOpen)},
    {Kind::lightTaken, put<&Machine::smc, &Smc::lightTaken>},

    {Kind::property, changeProperty, Takes::choice, upTo(PropertyFault::unsignedInteger)},
    {Kind::powerSources, setPowerSources, Takes::choice, upTo(PowerSourceFault::upsFirst)},
    {Kind::powerSourceLag,
     put<&Machine::powerSource, &PowerSource::lagSeconds>,
     Takes::range,
     {0, 3600, "s"}},
    {Kind::layout, setLayout, Takes::choice, upTo(RegistryLayout::nested)},
    {Kind::macOS, changeMacOS, Takes::range, {11, 99, "major version"}},
    {Kind::capabilities, setCapabilities, Takes::rangeOrNever, {0, most32Bits, "bits"}},

    {Kind::closeLid, doAs<closeLid>},
    {Kind::openLid, doAs<openLid>},
    {Kind::sleep, doAs<commandSleep>},
    {Kind::idleSleep, doAs<askForSleep>},
    {Kind::wake, doAs<wakeByUser>},
    {Kind::darkWake, wakeForMaintenance, Takes::range, {1, 3600, "s"}},
    {Kind::sleepRefused, refuseSleep, Takes::choice, upTo(SleepRefusal::inDarkness)},
    {Kind::scheduledWakes,
     put<&Machine::sleep, &Sleep::promotesScheduledWakes>,
     Takes::range,
     {0, 1, "1: full for some seconds, 0: dark"}},
    {Kind::batteryWakes, put<&Machine::sleep, &Sleep::batteryWakeSeconds>, Takes::range, {5, 45, "s"}},
    {Kind::adapterWakes,
     put<&Machine::sleep, &Sleep::adapterWakes>,
     Takes::range,
     {0, 1, "1: a dark wake, 0: none"}},
    {Kind::lateCapabilities, put<&Machine::sleep, &Sleep::capabilitiesDelay>, Takes::range, {0, 5, "s"}},
    {Kind::nights, chooseNights, Takes::choice, upTo(Nights::busy)},
    {Kind::scheduleStatus, setScheduleStatus},
    {Kind::powerClients, setPowerClients},

    {Kind::limit, moveSlider, Takes::range, {80, 100, "%, 100 for none"}},
    {Kind::chargeToFull, requestFull, Takes::range, {0, day, "s, 0 no longer"}},
    {Kind::limitReverted,
     insistOnLimit,
     Takes::rangeOrNever,
     {notEver, day, "s after each change, below 0 never"}},
    {Kind::limitDelay, put<&Machine::limit, &ChargeLimit::delay>, Takes::range, {0, day, "s"}},
    {Kind::limitClient, put<&Machine::limit, &ChargeLimit::client>, Takes::choice,
     upTo(LimitClient::noFramework)},
    {Kind::limitSupportedAfter,
     put<&Machine::limit, &ChargeLimit::supportedAfter>,
     Takes::range,
     {0, mostSeconds, "s of uptime"}},
    {Kind::limitReadableAfter,
     put<&Machine::limit, &ChargeLimit::readableAfter>,
     Takes::range,
     {0, mostSeconds, "s of uptime"}},
    {Kind::limitEnabledFails, put<&Machine::limit, &ChargeLimit::enabledFails>},
    {Kind::limitValueFails, put<&Machine::limit, &ChargeLimit::valueFails>},
    {Kind::limitSetAnswer, put<&Machine::limit, &ChargeLimit::setAnswer>, Takes::choice,
     upTo(LimitAnswer::error)},
    {Kind::limitBelowFloor, put<&Machine::limit, &ChargeLimit::belowFloor>, Takes::choice,
     upTo(OddLimit::adjusted)},
    {Kind::limitOffStep, put<&Machine::limit, &ChargeLimit::offStep>, Takes::choice,
     upTo(OddLimit::adjusted)},
    {Kind::limitDrains, put<&Machine::limit, &ChargeLimit::drains>},
    {Kind::limitNoneAs100, put<&Machine::limit, &ChargeLimit::showsNoneAs100>},
    {Kind::preferencesFail, put<&Machine::limit, &ChargeLimit::preferencesFail>},

    {Kind::clockStep, stepClock, Takes::range, {-mostSeconds, mostSeconds, "s"}},
    {Kind::userId, put<&Machine::system, &System::pretendedUserId>, Takes::range, {0, most32Bits, "user id"}},
    {Kind::signal, raise, Takes::choice, signals},
    {Kind::signalAtExchange, raiseAtExchange},
    {Kind::daemonTeam, setTeam},
    {Kind::daemonSignature, put<&Machine::system, &System::daemonSignatureReadable>},
    {Kind::request, sendRequest},
    {Kind::requestUnawaited, sendRequest},
};

const Row* rowOf(ChangeKind kind) {
  const auto* row =
      std::find_if(std::begin(rows), std::end(rows), [kind](const Row& one) { return one.kind == kind; });
  return row == std::end(rows) ? nullptr : row;
}

double bounded(double number, const Range& range) {
  return number >= range.least ? std::min(number, range.most) : range.least;
}

void change(Machine& machine, const Row& row, Change requested) {
  const double number = requested.number;
  if (row.takes == Takes::choice && !(number >= row.range.least && number <= row.range.most)) return;
  if (row.takes != Takes::any) requested.number = bounded(number, row.range);
  if (row.takes == Takes::rangeOrNever && !(number >= 0)) requested.number = notEver;
  row.set(machine, requested);
}

}  // namespace

const Range& rangeOf(ChangeKind kind) {
  static constexpr Range noNumber{};
  const Row* row = rowOf(kind);
  return row == nullptr ? noNumber : row->range;
}

void apply(Machine& machine, const Change& requested) {
  const bool reached = adapterReachesBattery(machine);
  if (const Row* row = rowOf(requested.kind)) change(machine, *row, requested);
  settle(machine, reached);
  if (requested.kind == ChangeKind::charge || requested.kind == ChangeKind::batteryInstalled)
    publishGauge(machine);
}

}  // namespace brisko::virtual_mac
