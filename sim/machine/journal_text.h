// sim/machine/journal_text.h
// A machine's journal and its controller's keys, as texts and bytes to compare.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/machine/machine.h"

namespace brisko::sim {

// The text of an entry. A write is "CHTE=01000000", another exchange "read CHTE", "info CHTE" or "index
// CHTE". Power and service entries are "heard WillSleep", "allowed WillSleep", "wake scheduled", "wake
// cancelled", "asked apply" and "replied apply". Entries about macOS's limit are "limit set 80", "preference
// mclLimitValue=75", "preference MCLTempDisabledUntilDate removed", "preferences synchronised" and "notified
// " with the name. A failed operation ends with "!".
[[nodiscard]] std::string journalText(const virtual_mac::JournalEntry& entry);

// The bytes that a read of the key returns now; none when it cannot be read.
[[nodiscard]] std::vector<std::uint8_t> keyBytes(const virtual_mac::Machine& machine, std::string_view name);

}  // namespace brisko::sim
