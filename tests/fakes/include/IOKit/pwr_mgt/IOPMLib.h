// A fake for the system's announcements of sleep, its scheduled power events and its assertions against
// sleep.
#pragma once

#include <cstdint>

#include <IOKit/IOKitLib.h>

extern "C" {

io_connect_t IORegisterForSystemPower(void* refcon, IONotificationPortRef* port,
                                      IOServiceInterestCallback callback, io_object_t* notifier);
IOReturn IOAllowPowerChange(io_connect_t rootPort, std::intptr_t notification);

IOReturn IOPMSchedulePowerEvent(CFDateRef time, CFStringRef identifier, CFStringRef type);
IOReturn IOPMCancelScheduledPowerEvent(CFDateRef time, CFStringRef identifier, CFStringRef type);

using IOPMAssertionID = std::uint32_t;
using IOPMAssertionLevel = std::uint32_t;
enum : IOPMAssertionID { kIOPMNullAssertionID = 0 };
enum : IOPMAssertionLevel { kIOPMAssertionLevelOn = 255 };

IOReturn IOPMAssertionCreateWithName(CFStringRef type, IOPMAssertionLevel level, CFStringRef name,
                                     IOPMAssertionID* assertion);
IOReturn IOPMAssertionRelease(IOPMAssertionID assertion);
}
