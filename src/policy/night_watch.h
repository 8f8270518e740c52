// policy/night_watch.h
// Carries out the rules of the night (policy/night_rules.h): plans the wakes of a sleeping Mac that charges,
// and stops charging in the last of them. Does nothing without the guard "night".
#pragma once

#include <cstdint>

#include "policy/charge_bounds.h"

namespace brisko {

// A sleep was announced.
void beginNight();
// The Mac is fully awake.
void endNight();

// Whether the night has begun and the Mac is not fully awake. Without a reading of the kind of wake the
// announcements alone decide.
[[nodiscard]] bool isNight();

// The step for a sleep that begins now, at a charge below the band or, without an adapter, below the limit.
void planNight(std::int64_t pct, const Bounds& band);

// The step after a tick of the night. `limited` when the band is in force: not switched off, overruled by a
// Top Up or a calibration, or a limit of 100.
void watchNight(std::int64_t pct, const Bounds& band, bool limited);

// Whether the step after this tick would stop charging that the tick resumed. If that step is to stay awake,
// the stay begins now.
[[nodiscard]] bool wouldStopAgain(std::int64_t pct, const Bounds& band);

// To be called when charging is stopped for the night, and when the Mac wakes fully, because the night's
// readings pause then. What the charge gains until the next plan shows nothing about the charger.
void forgetGain();

// Ends a stay in a dark wake that has lasted for too long, even if no tick comes that would end it.
void endOverlongStay();

}  // namespace brisko
