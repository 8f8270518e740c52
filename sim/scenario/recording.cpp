#include "sim/scenario/recording.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "base/process_flags.h"
#include "base/settings.h"
#include "sim/scenario/strict_json.h"
#include "sim/scenario/timing.h"
#include "state/calibration_state.h"
#include "state/led_mode.h"
#include "state/machine_abilities.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::Machine;

// --- The machine

std::optional<Light> lightOf(const Machine& machine, bool blinking) {
  const virtual_mac::SmcKey* key = virtual_mac::findKey(machine, virtual_mac::keyCode("ACLC"));
  if (key == nullptr || !key->present || !machine.adapter.present) return std::nullopt;
  switch (key->acted[0]) {
    case LED_OFF:
      return blinking ? Light::blinking : Light::off;
    case LED_GREEN:
      return blinking ? Light::blinking : Light::green;
    case LED_ORANGE:
      return Light::orange;
    default:
      return Light::system;
  }
}

Supply supplyOf(const Machine& machine) {
  if (!machine.adapter.present) return Supply::none;
  return virtual_mac::adapterReachesBattery(machine) ? Supply::connected : Supply::cut;
}

ChargeState hardwareStateOf(const Machine& machine) {
  if (supplyOf(machine) == Supply::cut) return ChargeState::discharge;
  return virtual_mac::chargingIsOpen(machine) ? ChargeState::allow : ChargeState::hold;
}

Wakefulness wakefulnessOf(const Machine& machine) {
  if (!machine.system.poweredOn) return Wakefulness::off;
  if (machine.system.asleep) return Wakefulness::asleep;
  return machine.sleep.dark ? Wakefulness::darkWake : Wakefulness::awake;
}

Moment momentOf(const Machine& machine) {
  Moment moment;
  moment.time = machine.now;
  if (machine.battery.installed) {
    moment.level = virtual_mac::level(machine);
    moment.shown = machine.gauge.percent;
    moment.currentMA = machine.battery.currentMA;
    moment.temperatureC = machine.battery.temperatureC;
  }
  moment.hardware = hardwareStateOf(machine);
  moment.supply = supplyOf(machine);
  moment.wakefulness = wakefulnessOf(machine);
  return moment;
}

// --- The daemon

Occasion occasionOf(CalPhase phase) {
  switch (phase) {
    case CalPhase::fill:
      return Occasion::fill;
    case CalPhase::drain:
      return Occasion::drain;
    case CalPhase::refill:
      return Occasion::refill;
    case CalPhase::soak:
      return Occasion::soak;
    case CalPhase::restore:
      return Occasion::restore;
    case CalPhase::idle:
      break;
  }
  if (gThermalPaused) return Occasion::heat;
  return gTopUpSince != 0 ? Occasion::topUp : Occasion::none;
}

// Not during a calibration, nor while the daemon only observes, is dormant or was released.
bool bandIsInForce() {
  return gAtLimit && gCal.phase == CalPhase::idle && !gSystemLocked && !gDormant && !gReleased;
}

// --- The filter

bool moved(const std::optional<double>& now, const std::optional<double>& before, double step) {
  return std::abs(now.value_or(0) - before.value_or(0)) >= step;
}

bool moved(const Moment& now, const Moment& before, double percent, double milliampere, double degrees) {
  return moved(now.level, before.level, percent) || moved(now.currentMA, before.currentMA, milliampere) ||
         moved(now.temperatureC, before.temperatureC, degrees);
}

// Whether anything differs except the time and the drifting numbers.
bool isAnother(const Moment& now, const Moment& before) {
  Moment likeBefore = now;
  likeBefore.time = before.time;
  if (now.level.has_value() == before.level.has_value()) likeBefore.level = before.level;
  likeBefore.currentMA = before.currentMA;
  likeBefore.temperatureC = before.temperatureC;
  return likeBefore != before;
}

}  // namespace

int SampleFilter::keep(const Moment& moment) {
  constexpr double drifting = 60;  // seconds
  constexpr double standing = 900;
  before_ = seen_;
  seen_ = moment;
  const double elapsed = moment.time - kept_.time;
  const bool sudden = !begun_ || isAnother(moment, kept_) || moved(moment, kept_, 1.0, 200, 2.0);
  const bool slow = elapsed >= standing || (elapsed >= drifting && moved(moment, kept_, 0.1, 10, 0.1));
  if (!sudden && !slow) return 0;
  const bool beforeIsNew = begun_ && sudden && before_.time > kept_.time;
  begun_ = true;
  kept_ = moment;
  return beforeIsNew ? 2 : 1;
}

// The memory that processes share with the lab. It is emptied at every pause.
struct Recording::Shared {
  static constexpr std::size_t places = 4096;
  SampleFilter filter = {};
  DaemonState daemonState = {};
  bool limited = true;
  std::size_t count = 0;
  std::array<Moment, places> moments = {};
};

Recording::Recording() = default;
Recording::~Recording() = default;

Recording::DaemonState Recording::readDaemonState() {
  DaemonState daemonState{};
  daemonState.known = true;
  daemonState.state = gState;
  daemonState.blinking = gLedSupported && gMode == LedMode::blink;
  if (bandIsInForce()) daemonState.band = Bounds{.upper = gFirmwareUpper, .lower = gFirmwareLower};
  daemonState.occasion = occasionOf(gCal.phase);
  return daemonState;
}

void Recording::noteInDaemon(const Machine& machine) {
  shared_->daemonState = readDaemonState();
  see(machine);
}

void Recording::note(const Machine& machine, bool daemonRuns) {
  if (!daemonRuns) shared_->daemonState = {};
  if (!firstOffset_) firstOffset_ = machine.system.wallOffset;
  clockWasSet_ = clockWasSet_ || machine.system.wallOffset != *firstOffset_;
  see(machine);
  collect();
}

void Recording::noteSettings(const std::optional<std::string>& file) {
  const Json object = file ? Json::parse(*file, nullptr, false) : Json();
  const auto enabled = object.is_object() ? object.find("enabled") : object.end();
  shared_->limited = enabled == object.end() || !enabled->is_boolean() || enabled->get<bool>();
}

void Recording::see(const Machine& machine) {
  const DaemonState& daemonState = shared_->daemonState;
  Moment moment = momentOf(machine);
  moment.light = lightOf(machine, daemonState.blinking);
  if (daemonState.known) {
    moment.state = daemonState.state;
    moment.occasion = daemonState.occasion;
    if (shared_->limited) moment.band = daemonState.band;
  }
  const int kept = shared_->filter.keep(moment);
  if (kept == 2) keep(shared_->filter.before());
  if (kept >= 1) keep(moment);
}

void Recording::keep(const Moment& moment) {
  // If there is no room, after thousands of changes within a minute, the latest one is kept.
  shared_->count = std::min(shared_->count + 1, Shared::places);
  shared_->moments[shared_->count - 1] = moment;
}

void Recording::collect() {
  const auto begin = shared_->moments.begin();
  picture_.moments.insert(picture_.moments.end(), begin, begin + static_cast<std::ptrdiff_t>(shared_->count));
  shared_->count = 0;
}

void Recording::noteEvent(const Machine& machine, const std::string& words) {
  picture_.events.push_back({machine.now, words});
}

void Recording::noteLine(const Machine& machine, const std::string& line) {
  // The clock is only set while the processes are paused, so the present offset was valid then.
  std::string stamp = line.substr(0, 19);
  if (stamp.size() == 19) stamp[10] = ' ';
  const auto wall = parseDate(stamp);
  const double earliest = picture_.log.empty() ? 0 : picture_.log.back().time;
  const double told = wall ? *wall - machine.system.wallOffset : machine.now;
  picture_.log.push_back({std::clamp(told, std::min(earliest, machine.now), machine.now), line});
}

Picture Recording::picture() const {
  Picture picture = picture_;
  if (const auto rest = shared_->filter.rest()) picture.moments.push_back(*rest);
  const double offset = firstOffset_.value_or(0);
  for (Moment& moment : picture.moments) moment.time += offset;
  for (Event& event : picture.events) event.time += offset;
  for (LoggedLine& line : picture.log) line.time += offset;
  if (clockWasSet_) {
    picture.notes.emplace_back(
        "The clock was set meanwhile. The picture continues with the clock of its beginning; the lines of "
        "the "
        "log have the times that they were given.");
  }
  return picture;
}

}  // namespace brisko::lab
