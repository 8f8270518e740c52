// sim/machine/machine_text.h
// The machine as text for users, and as JSON for programs.
#pragma once

#include <string>

#include "sim/machine/machine.h"

namespace brisko::vmac {

[[nodiscard]] std::string machineText(const virtual_mac::Machine& machine);

// The last `count` entries of the journal, oldest first, one line each.
[[nodiscard]] std::string journalText(const virtual_mac::Journal& journal, std::size_t count);

// "2026-03-01 08:15:30 UTC".
[[nodiscard]] std::string timeText(double secondsSince1970);

// "CHTE 01000000 (stored)": the name, what a read returns, and what is unusual about the key.
[[nodiscard]] std::string keyText(const virtual_mac::SmcKey& key);
[[nodiscard]] std::string keyName(std::uint32_t code);

// The state that the keys request from the hardware: "allow", "hold" or "discharge".
[[nodiscard]] const char* gateText(const virtual_mac::Machine& machine);

}  // namespace brisko::vmac
