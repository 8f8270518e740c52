// hardware/scheduled_wake.h
// The one wake that the daemon schedules with the system while the Mac sleeps.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

inline constexpr const char* wakeEventID = "com.brisko.daemon";  // identifier of the scheduled wakes
inline constexpr const char* wakeEventType = "wake";             // of the power event

inline std::optional<double> gScheduledWake;  // wall clock; none: no wake is scheduled

// Schedules a wake in `minutes` from now in place of the previous one, and logs it, even if the system
// refuses.
void scheduleWake(std::int64_t minutes);

// Does nothing without a scheduled wake. The system's answer is ignored.
void cancelScheduledWake();

}  // namespace brisko
