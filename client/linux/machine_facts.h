// client/linux/machine_facts.h
// What the record of a virtual Mac contains of the facts about the system.
#pragma once

#include "client/system.h"
#include "sim/machine/machine.h"

namespace brisko::client {

// Everything but the job.
[[nodiscard]] SystemFacts factsOf(const virtual_mac::Machine& machine);

}  // namespace brisko::client
