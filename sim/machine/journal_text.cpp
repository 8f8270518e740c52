#include "sim/machine/journal_text.h"

#include <algorithm>
#include <memory>

#include "platform/smc_service.h"
#include "platform/system_power.h"
#include "sim/machine/charge_limit.h"

namespace brisko::sim {
namespace {

using virtual_mac::JournalEntry;

constexpr std::uint8_t readCommand = 5;
constexpr std::uint8_t writeCommand = 6;
constexpr std::uint8_t indexCommand = 8;

std::string keyName(std::uint32_t code) {
  std::string name;
  for (unsigned shift = 32; shift > 0; shift -= 8) name += static_cast<char>(code >> (shift - 8) & 0xFFU);
  return name;
}

std::string hexOf(const JournalEntry& entry) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  for (std::size_t index = 0; index < std::min<std::size_t>(entry.size, entry.bytes.size()); ++index) {
    hex += digits[entry.bytes[index] >> 4U];
    hex += digits[entry.bytes[index] & 0xFU];
  }
  return hex;
}

std::string messageName(std::uint32_t type) {
  if (type == virtual_mac::willNotSleep) return "WillNotSleep";
  if (type == virtual_mac::willPowerOn) return "WillPowerOn";
  switch (static_cast<platform::PowerMessage>(type)) {
    case platform::PowerMessage::canSystemSleep:
      return "CanSystemSleep";
    case platform::PowerMessage::systemWillSleep:
      return "WillSleep";
    case platform::PowerMessage::systemHasPoweredOn:
      return "HasPoweredOn";
  }
  return "?";
}

std::string requestName(std::uint32_t kind) {
  switch (static_cast<virtual_mac::RequestKind>(kind)) {
    case virtual_mac::RequestKind::applySettings:
      return "apply";
    case virtual_mac::RequestKind::purgeAllData:
      return "purge";
    case virtual_mac::RequestKind::releaseCharge:
      return "release";
    case virtual_mac::RequestKind::restart:
      return "restart";
  }
  return "?";
}

}  // namespace

std::string journalText(const JournalEntry& entry) {
  const std::string failed = entry.status != 0 || entry.result != 0 ? "!" : "";
  if (entry.command == virtual_mac::journalReceived) return "heard " + messageName(entry.key);
  if (entry.command == virtual_mac::journalAnswered) return "allowed " + messageName(entry.key);
  if (entry.command == virtual_mac::journalScheduled) return "wake scheduled" + failed;
  if (entry.command == virtual_mac::journalCancelled) return "wake cancelled" + failed;
  if (entry.command == virtual_mac::journalPrevented) return "sleep prevented" + failed;
  if (entry.command == virtual_mac::journalReleased) return "sleep permitted";
  if (entry.command == virtual_mac::journalAsked) return "asked " + requestName(entry.key);
  if (entry.command == virtual_mac::journalReplied) {
    return "replied " + requestName(entry.key) + (entry.bytes[0] != 0 ? "" : "!");
  }
  const std::string limit = virtual_mac::limitEntryText(entry);
  if (!limit.empty()) return limit + failed;
  if (entry.command == writeCommand) return keyName(entry.key) + "=" + hexOf(entry) + failed;
  const char* verb = entry.command == readCommand    ? "read "
                     : entry.command == indexCommand ? "index "
                                                     : "info ";
  return verb + keyName(entry.key) + failed;
}

std::vector<std::uint8_t> keyBytes(const virtual_mac::Machine& machine, std::string_view name) {
  virtual_mac::Machine copy = machine;
  const auto unwritten = std::make_unique<virtual_mac::Journal>();
  platform::SmcRecord input{};
  platform::SmcRecord output{};
  const std::uint32_t code = virtual_mac::keyCode(name);
  for (unsigned byte = 0; byte < 4; ++byte) input[byte] = static_cast<std::uint8_t>(code >> (8 * byte));
  const virtual_mac::SmcKey* known = virtual_mac::findKey(copy, code);
  if (known == nullptr) return {};
  input[42] = readCommand;
  input[28] = static_cast<std::uint8_t>(known->size);
  const auto status = virtual_mac::exchange(copy, *unwritten, input, output);
  if (status != platform::kernelSuccess || output[40] != 0) return {};
  const std::size_t count = std::min<std::size_t>(known->size, 32);
  return {output.begin() + 48, output.begin() + 48 + static_cast<std::ptrdiff_t>(count)};
}

}  // namespace brisko::sim
