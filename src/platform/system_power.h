// platform/system_power.h
// The system's announcements of sleep and wake, and wakes scheduled ahead.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "platform/smc_service.h"

namespace brisko::platform {

// Message types of the root power domain that a client handles. Others may arrive and are ignored.
enum class PowerMessage : std::uint32_t {
  canSystemSleep = 0xE0000270,      // kIOMessageCanSystemSleep: must be answered
  systemWillSleep = 0xE0000280,     // kIOMessageSystemWillSleep: must be answered
  systemHasPoweredOn = 0xE0000300,  // kIOMessageSystemHasPoweredOn: not answered
};

using RootPowerPort = std::uint32_t;  // 0: none
// The argument is the system's token for the answer and is passed back unchanged.
using PowerCallback = std::function<void(PowerMessage message, std::intptr_t argument)>;

struct PowerRegistration {
  RootPowerPort rootPort;  // 0 when the registration failed
  bool notifying;          // a notification port was returned and its source added to the main run loop
};

// Registers until the process ends. The callback runs on the main thread from the run loop.
[[nodiscard]] PowerRegistration registerSystemPower(PowerCallback callback);

// Answers canSystemSleep and systemWillSleep; the system waits up to 30 s for it.
void allowPowerChange(RootPowerPort rootPort, std::intptr_t argument);

// Schedules or cancels an event of `type` ("wake") at `date` (seconds since 1970) under `identifier`.
// Cancelling needs the same three. The status is the system's, 0 is success.
[[nodiscard]] KernelStatus schedulePowerEvent(double date, std::string_view identifier,
                                              std::string_view type);
KernelStatus cancelPowerEvent(double date, std::string_view identifier, std::string_view type);

using SleepAssertion = std::uint32_t;  // 0: none
// Keeps a Mac on its adapter from sleeping, in a dark wake too, until the assertion is released or the
// process ends. The system's tools show `reason` to people. 0 when the system refuses.
[[nodiscard]] SleepAssertion preventSystemSleep(std::string_view reason);
void releaseSleepAssertion(SleepAssertion assertion);

}  // namespace brisko::platform
