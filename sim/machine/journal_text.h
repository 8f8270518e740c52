// sim/machine/journal_text.h
// What a machine's journal and its controller's keys say, as texts and bytes to compare.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/machine/machine.h"

namespace brisko::sim {

// An entry as a text: a write "CHTE=01000000", another exchange "read CHTE", "info CHTE" or "index CHTE";
// "heard WillSleep", "allowed WillSleep", "wake scheduled", "wake cancelled", "asked apply" and "replied
// apply"; of the limit of macOS "limit set 80", "preference mclLimitValue=75", "preference
// MCLTempDisabledUntilDate removed", "preferences synchronised" and "notified " with the name. What did not
// succeed ends with "!".
[[nodiscard]] std::string journalText(const virtual_mac::JournalEntry& entry);

// The bytes that a read of the key shows now; none when it cannot be read.
[[nodiscard]] std::vector<std::uint8_t> keyBytes(const virtual_mac::Machine& machine, std::string_view name);

}  // namespace brisko::sim
