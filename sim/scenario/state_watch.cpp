#include "sim/scenario/state_watch.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "state/calibration_state.h"
#include "state/charge_state_record.h"
#include "state/led_mode.h"
#include "state/sleep_state.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::Machine;

struct Aspect {
  std::string_view name;
  std::vector<std::string_view> values;
  std::size_t (*valueNow)(const Machine&);
  bool (*mayFollow)(std::size_t from, std::size_t to);
};

bool anyOrder(std::size_t, std::size_t) { return true; }
bool neverChanges(std::size_t, std::size_t) { return false; }

// A calibration may be cancelled in every phase; with a full battery the first phase ends in the tick that
// begins it.
bool isCalibrationStep(std::size_t from, std::size_t to) {
  constexpr auto idle = static_cast<std::size_t>(CalPhase::idle);
  constexpr auto drain = static_cast<std::size_t>(CalPhase::drain);
  return to == idle || to == from + 1 || (from == idle && to == drain);
}

enum class Service : std::uint8_t { working, observing, dormant, released, erased };

Service serviceNow() {
  if (gPurged) return Service::erased;
  if (gDormant) return Service::dormant;
  if (gReleased) return Service::released;
  return gSystemLocked ? Service::observing : Service::working;
}

// What the Mac offers is found at the start, and what was erased stays so until the process ends.
bool isServiceStep(std::size_t from, std::size_t to) {
  const auto isAwake = [](std::size_t value) {
    return value == static_cast<std::size_t>(Service::working) ||
           value == static_cast<std::size_t>(Service::observing);
  };
  return from != static_cast<std::size_t>(Service::erased) && !(isAwake(from) && isAwake(to));
}

// In the order of ChargeKeys.
std::size_t gateNow() { return gGate ? static_cast<std::size_t>(gGate->charge) + 1 : 0; }

// 0: not known, 1: no, 2: yes
std::size_t indexOf(const std::optional<bool>& answer) { return answer ? (*answer ? 2 : 1) : 0; }

std::size_t sleepNow(const Machine& machine) {
  if (gSleepPendingSince) return 2;
  return machine.sleep.dark ? 1 : 0;
}

const std::array<Aspect, StateWatch::aspectCount>& aspects() {
  static const auto& all = *new std::array<Aspect, StateWatch::aspectCount>{{
      {"charge",
       {"allow", "hold", "discharge"},
       [](const Machine&) { return static_cast<std::size_t>(gState); },
       anyOrder},
      {"calibration",
       {"idle", "fill", "drain", "refill", "soak", "restore"},
       [](const Machine&) { return static_cast<std::size_t>(gCal.phase); },
       isCalibrationStep},
      {"light",
       {"system", "green", "orange", "blink"},
       [](const Machine&) { return static_cast<std::size_t>(gMode); },
       anyOrder},
      {"Top Up",
       {"off", "on"},
       [](const Machine&) { return static_cast<std::size_t>(gTopUpSince != 0); },
       anyOrder},
      {"heat",
       {"normal", "paused"},
       [](const Machine&) { return static_cast<std::size_t>(gThermalPaused); },
       anyOrder},
      {"hold",
       {"not judged", "charging continues", "verified"},
       [](const Machine&) { return indexOf(gGateVerified); },
       anyOrder},
      {"sleep", {"awake", "dark wake", "announced"}, sleepNow, anyOrder},
      {"gate",
       {"none", "CHTE", "CH0B+CH0C", "firmware band", "limit of macOS"},
       [](const Machine&) { return gateNow(); },
       neverChanges},
      {"service",
       {"working", "observing", "dormant", "released", "erased"},
       [](const Machine&) { return static_cast<std::size_t>(serviceNow()); },
       isServiceStep},
  }};
  return all;
}

std::string stateText(const Aspect& aspect, std::size_t value) {
  return std::string(aspect.name) + " " + std::string(aspect.values[value]);
}

}  // namespace

void StateWatch::processBegins() { now_.fill(noValue); }

void StateWatch::note(const Machine& machine) {
  for (std::size_t index = 0; index < aspectCount; ++index) {
    const std::size_t value = aspects()[index].valueNow(machine);
    if (value == now_[index]) continue;
    ++steps_->ofAspect[index][now_[index]][value];
    now_[index] = value;
  }
}

StateWatch::Counts StateWatch::states() const {
  Counts counts;
  for (std::size_t index = 0; index < aspectCount; ++index) {
    const Aspect& aspect = aspects()[index];
    for (std::size_t value = 0; value < aspect.values.size(); ++value) {
      std::uint64_t entered = 0;
      for (const auto& from : steps_->ofAspect[index]) entered += from[value];
      counts[stateText(aspect, value)] = entered;
    }
  }
  return counts;
}

StateWatch::Counts StateWatch::transitions() const {
  Counts counts;
  for (std::size_t index = 0; index < aspectCount; ++index) {
    const Aspect& aspect = aspects()[index];
    for (std::size_t from = 0; from < aspect.values.size(); ++from) {
      for (std::size_t to = 0; to < aspect.values.size(); ++to) {
        const std::uint64_t count = steps_->ofAspect[index][from][to];
        const bool isKnown = from != to && aspect.mayFollow(from, to);
        if (count > 0 || isKnown)
          counts[stateText(aspect, from) + " → " + std::string(aspect.values[to])] = count;
      }
    }
  }
  return counts;
}

}  // namespace brisko::lab
