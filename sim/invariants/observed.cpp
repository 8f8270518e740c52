#include "sim/invariants/observed.h"

#include <algorithm>
#include <array>

#include "sim/invariants/gate_keys.h"
#include "sim/machine/charge_limit.h"

namespace brisko::lab {
namespace {

using virtual_mac::findKey;
using virtual_mac::JournalEntry;
using virtual_mac::keyCode;
using virtual_mac::Machine;
using virtual_mac::SmcKey;

// Null when the key cannot be read.
const SmcKey* readableKey(const Machine& machine, std::uint32_t code) {
  const SmcKey* key = findKey(machine, code);
  return key != nullptr && key->present && key->readStatus == 0 && key->size > 0 ? key : nullptr;
}

}  // namespace

std::optional<std::int64_t> limitShown(const Machine& machine) {
  const SmcKey* key = readableKey(machine, keyCode("bfG0"));
  if (key == nullptr) return std::nullopt;
  return key->scripted ? key->bytes[0] : virtual_mac::shownLimit(machine);
}

bool isGateWrite(const JournalEntry& entry) {
  static constexpr std::array gateKeys{keyCode("CHTE"), keyCode("CH0B"), keyCode("CH0C"),
                                       keyCode("bfF0"), keyCode("bfD0"), keyCode("bfE0"),
                                       keyCode("CHIE"), keyCode("CH0I"), keyCode("CH0J")};
  return isWrite(entry) && std::find(gateKeys.begin(), gateKeys.end(), entry.key) != gateKeys.end();
}

bool isLightWrite(const JournalEntry& entry) { return isWrite(entry) && entry.key == keyCode("ACLC"); }

bool isNativeWrite(const JournalEntry& entry) {
  return entry.command == virtual_mac::journalLimitSet || entry.command == virtual_mac::journalPreference;
}

bool isReceived(const JournalEntry& entry, platform::PowerMessage message) {
  return entry.command == virtual_mac::journalReceived && entry.key == static_cast<std::uint32_t>(message);
}

bool isReply(const JournalEntry& entry, virtual_mac::RequestKind kind) {
  return entry.command == virtual_mac::journalReplied && entry.key == static_cast<std::uint32_t>(kind);
}

std::string percentText(std::int64_t percent) { return std::to_string(percent) + "%"; }

bool messageStartsWith(std::string_view line, std::string_view beginning) {
  constexpr std::size_t stampWidth = 22;  // "2026-03-01T08:15:30Z" and two blanks
  return line.size() >= stampWidth && line.substr(stampWidth).starts_with(beginning);
}

bool anyLineStartsWith(const LoopIteration& iteration, std::string_view beginning) {
  return std::any_of(iteration.lines.begin(), iteration.lines.end(),
                     [beginning](const std::string& line) { return messageStartsWith(line, beginning); });
}

}  // namespace brisko::lab
