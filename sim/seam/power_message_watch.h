// sim/seam/power_message_watch.h
// Between the run loops and system_power.cpp: the power messages that wait for this process.
#pragma once

#include <functional>
#include <vector>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// The work of telling each message that was sent since the last call, in their order; none when this process
// has not registered.
[[nodiscard]] std::vector<std::function<void()>> arrivedPowerMessages(const Machine& machine);

}  // namespace brisko::virtual_mac
