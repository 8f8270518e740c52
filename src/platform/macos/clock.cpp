#include "platform/clock.h"

#include <cstdint>

#include <CoreFoundation/CoreFoundation.h>
#include <mach/mach_time.h>

namespace brisko::platform {
namespace {

constexpr double nanosecondsPerSecond = 1e9;

// The length of a tick of mach_absolute_time(), which pauses while the machine sleeps.
double tickSeconds() {
  mach_timebase_info_data_t base{};
  mach_timebase_info(&base);
  return static_cast<double>(base.numer) / static_cast<double>(base.denom) / nanosecondsPerSecond;
}

}  // namespace

double wallNow() { return CFAbsoluteTimeGetCurrent() + kCFAbsoluteTimeIntervalSince1970; }

double uptime() { return static_cast<double>(mach_absolute_time()) * tickSeconds(); }

// A signal ends the wait early, so the remaining time is waited again.
void pause(double seconds) {
  const std::uint64_t deadline = mach_absolute_time() + static_cast<std::uint64_t>(seconds / tickSeconds());
  while (mach_wait_until(deadline) == KERN_ABORTED) {
  }
}

}  // namespace brisko::platform
