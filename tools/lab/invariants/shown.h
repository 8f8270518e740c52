// lab/invariants/shown.h
// What the controller shows and the daemon wrote, looked at without asking the controller: an exchange of
// ours would be one more for the daemon's life.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

#include "hardware/charge_gate.h"
#include "lab/invariants/rule.h"
#include "platform/system_power.h"
#include "platform/virtual/machine.h"

namespace brisko::lab {

// Whether an adapter is there as the daemon has to see it: by "AC-W", and when that cannot be read, by the
// last power reading.
[[nodiscard]] bool adapterShown(const virtual_mac::Machine& machine);

// Percent that macOS shows as enforced in "bfG0", 0 none; none when the key cannot be read.
[[nodiscard]] std::optional<std::int64_t> limitShown(const virtual_mac::Machine& machine);

// Whether every write to the keys of the gate is taken and has its effect at once, and they can be read.
[[nodiscard]] bool keysObey(const virtual_mac::Machine& machine, const ChargeGate& gate);

[[nodiscard]] bool isKeyWrite(const virtual_mac::JournalEntry& entry);
// … of a key that stops the charge or cuts the adapter.
[[nodiscard]] bool isGateWrite(const virtual_mac::JournalEntry& entry);
// … of the light.
[[nodiscard]] bool isLightWrite(const virtual_mac::JournalEntry& entry);
// A limit set through the client of macOS, or a preference written.
[[nodiscard]] bool isNativeWrite(const virtual_mac::JournalEntry& entry);

// Calls `look` with each entry from `from` to before `to`, as long as it returns true.
void forEntries(const Scene& scene, std::uint64_t from, std::uint64_t to,
                const std::function<bool(const virtual_mac::JournalEntry&)>& look);
// The first such entry; null when there is none.
[[nodiscard]] const virtual_mac::JournalEntry* firstEntry(
    const Scene& scene, std::uint64_t from, std::uint64_t to,
    const std::function<bool(const virtual_mac::JournalEntry&)>& isMeant);

// A message of the power service that the daemon heard.
[[nodiscard]] bool isHeard(const virtual_mac::JournalEntry& entry, platform::PowerMessage message);

// A reply of the daemon to a request of this kind.
[[nodiscard]] bool isReply(const virtual_mac::JournalEntry& entry, virtual_mac::RequestKind kind);

// Whether the message of a logged line begins with the text.
[[nodiscard]] bool says(std::string_view line, std::string_view beginning);
[[nodiscard]] bool anyLineSays(const Turn& turn, std::string_view beginning);

// Created, written or moved here: not removed, and not given other attributes alone.
[[nodiscard]] inline bool isWritten(const FileChange& change) {
  return !change.removed && !change.attributes;
}

}  // namespace brisko::lab
