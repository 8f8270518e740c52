// hardware/scheduled_wake.h
// The one wake that the daemon has the system make for it while the Mac sleeps.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

inline constexpr const char* wakeEventID = "com.brisko.daemon";  // under which wakes are scheduled
inline constexpr const char* wakeEventType = "wake";             // of the power event

inline std::optional<double> gScheduledWake;  // wall clock; none: no wake is scheduled

// Schedules a wake in `minutes` from now in place of the one before, and logs it; also when the system
// refuses.
void scheduleWake(std::int64_t minutes);

// Without a scheduled wake nothing happens. What the system says to it changes nothing.
void cancelScheduledWake();

}  // namespace brisko
