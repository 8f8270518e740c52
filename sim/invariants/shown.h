// sim/invariants/shown.h
// What the controller shows and the daemon wrote, looked at without asking the controller: an exchange of
// ours would be one more for the daemon's life.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/system_power.h"
#include "sim/invariants/rule.h"
#include "sim/machine/machine.h"

namespace brisko::lab {

// Percent that macOS shows as enforced in "bfG0", 0 none; none when the key cannot be read.
[[nodiscard]] std::optional<std::int64_t> limitShown(const virtual_mac::Machine& machine);

// A write of a key that stops the charge or cuts the adapter, whatever gate it belongs to.
[[nodiscard]] bool isGateWrite(const virtual_mac::JournalEntry& entry);
// … of the light.
[[nodiscard]] bool isLightWrite(const virtual_mac::JournalEntry& entry);
// A limit set through the client of macOS, or a preference written.
[[nodiscard]] bool isNativeWrite(const virtual_mac::JournalEntry& entry);

// Calls `look` with each entry from `from` to before `to`, as long as it returns true.
template <class Look>
void forEntries(const Observation& observation, std::uint64_t from, std::uint64_t to, const Look& look) {
  for (std::uint64_t number = from; number < to; ++number) {
    if (!look(entryOf(observation, number))) return;
  }
}
// The first such entry; null when there is none.
template <class IsMeant>
[[nodiscard]] const virtual_mac::JournalEntry* firstEntry(const Observation& observation, std::uint64_t from,
                                                          std::uint64_t to, const IsMeant& isMeant) {
  const virtual_mac::JournalEntry* found = nullptr;
  forEntries(observation, from, to, [&](const virtual_mac::JournalEntry& entry) {
    if (isMeant(entry)) found = &entry;
    return found == nullptr;
  });
  return found;
}

// A message of the power service that the daemon heard.
[[nodiscard]] bool isHeard(const virtual_mac::JournalEntry& entry, platform::PowerMessage message);

// A reply of the daemon to a request of this kind.
[[nodiscard]] bool isReply(const virtual_mac::JournalEntry& entry, virtual_mac::RequestKind kind);

// Whether the message of a logged line begins with the text.
[[nodiscard]] bool messageStartsWith(std::string_view line, std::string_view beginning);
[[nodiscard]] bool anyLineStartsWith(const LoopIteration& iteration, std::string_view beginning);

// Created, written or moved here: not removed, and not given other attributes alone.
[[nodiscard]] inline bool isWritten(const FileChange& change) {
  return !change.removed && !change.attributes;
}

}  // namespace brisko::lab
