// sim/seam/power_message_watch.h
// Connects the run loops with system_power.cpp: the power messages that wait for this process.
#pragma once

#include <functional>
#include <vector>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// The work items that deliver each message sent since the last call, in order; none when this process has not
// registered.
[[nodiscard]] std::vector<std::function<void()>> arrivedPowerMessages(const Machine& machine);

}  // namespace brisko::virtual_mac
