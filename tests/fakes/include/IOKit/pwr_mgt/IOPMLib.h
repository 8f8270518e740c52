// A fake for the system's announcements of sleep and its scheduled power events.
#pragma once

#include <cstdint>

#include <IOKit/IOKitLib.h>

extern "C" {

io_connect_t IORegisterForSystemPower(void* refcon, IONotificationPortRef* port,
                                      IOServiceInterestCallback callback, io_object_t* notifier);
IOReturn IOAllowPowerChange(io_connect_t rootPort, std::intptr_t notification);

IOReturn IOPMSchedulePowerEvent(CFDateRef time, CFStringRef identifier, CFStringRef type);
IOReturn IOPMCancelScheduledPowerEvent(CFDateRef time, CFStringRef identifier, CFStringRef type);
}
