// state/tick_state.h
// What a tick stores for the next tick and for other layers to read.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

inline std::int64_t gLastPct = 0;  // percent, of the last power reading
inline bool gLastPlugged = false;  // likewise

inline double gTopUpSince = 0;  // seconds since 1970; 0: no Top Up is running

// Whether the battery has reached the limit and is held in the band; unknown until the first tick.
inline std::optional<bool> gAtLimit;

// The band in force, percent, as the firmware gate arms it.
inline std::int64_t gFirmwareUpper = 80;
inline std::int64_t gFirmwareLower = 75;

inline bool gThermalPaused = false;    // charging is paused for heat
inline bool gDischargeBroken = false;  // forced discharge was found not to work
inline bool gDischargeUnseen = false;  // … is wanted, but the adapter could not be seen through the cut

inline std::optional<bool> gGateVerified;  // the last verdict on a hold: true when charging really stops

}  // namespace brisko
