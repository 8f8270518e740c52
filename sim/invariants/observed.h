// sim/invariants/observed.h
// What the controller shows and what the daemon wrote, read without an exchange with the controller: an
// exchange of the checker would count as one of the daemon's.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/system_power.h"
#include "sim/invariants/rule.h"
#include "sim/machine/machine.h"

namespace brisko::lab {

// The limit in percent that macOS shows as enforced in "bfG0", 0 for no limit; none when the key cannot be
// read.
[[nodiscard]] std::optional<std::int64_t> limitShown(const virtual_mac::Machine& machine);

// A write of a key that stops the charge or cuts the adapter, whatever gate it belongs to.
[[nodiscard]] bool isGateWrite(const virtual_mac::JournalEntry& entry);
// … of the light.
[[nodiscard]] bool isLightWrite(const virtual_mac::JournalEntry& entry);
// A limit set through the client of macOS, or a preference written.
[[nodiscard]] bool isNativeWrite(const virtual_mac::JournalEntry& entry);

// Calls `visit` with each entry from `from` up to, not including, `to`, until it returns false.
template <class Visit>
void forEntries(const Observation& observation, std::uint64_t from, std::uint64_t to, const Visit& visit) {
  for (std::uint64_t number = from; number < to; ++number) {
    if (!visit(entryOf(observation, number))) return;
  }
}
// The first matching entry; null when there is none.
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

// A message of the power service that the daemon received.
[[nodiscard]] bool isReceived(const virtual_mac::JournalEntry& entry, platform::PowerMessage message);

// A reply of the daemon to a request of this kind.
[[nodiscard]] bool isReply(const virtual_mac::JournalEntry& entry, virtual_mac::RequestKind kind);

[[nodiscard]] std::string percentText(std::int64_t percent);  // "80%"

// Whether the message of a logged line begins with the text.
[[nodiscard]] bool messageStartsWith(std::string_view line, std::string_view beginning);
[[nodiscard]] bool anyLineStartsWith(const LoopIteration& iteration, std::string_view beginning);

// Created, written or moved here; not removed, nor only changed in its attributes.
[[nodiscard]] inline bool isWritten(const FileChange& change) {
  return !change.removed && !change.attributes;
}

}  // namespace brisko::lab
