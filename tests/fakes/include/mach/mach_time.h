// A fake for the clock of Mach: it counts ticks while the machine is awake.
#pragma once

#include <cstdint>

#include <mach/mach_types.h>

struct mach_timebase_info {
  std::uint32_t numer;  // nanoseconds …
  std::uint32_t denom;  // … in so many ticks
};
using mach_timebase_info_t = mach_timebase_info*;
using mach_timebase_info_data_t = mach_timebase_info;

extern "C" {
kern_return_t mach_timebase_info(mach_timebase_info_t info);
std::uint64_t mach_absolute_time();
kern_return_t mach_wait_until(std::uint64_t deadline);
}
