// hardware/smc.h
// The client of the system management controller: every key is read and written through here.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/smc_service.h"

namespace brisko {

// The connection of this process; 0 until it is open.
inline platform::SmcConnection gConn = 0;

struct SmcValue {
  std::uint32_t key = 0;
  std::uint32_t dataSize = 0;  // bytes of the key; may be above 32
  std::uint32_t dataType = 0;
  std::array<std::uint8_t, 32> bytes{};
};

// Statuses are those of platform/smc_service.h. The kernel's own are passed on, and an answer without its
// result or the requested bytes is a kernelError. A key is a text whose first four bytes are used.
[[nodiscard]] platform::KernelStatus SMCOpen(platform::SmcConnection& connection);
platform::KernelStatus SMCClose(platform::SmcConnection connection);
// kernelNotFound: the controller does not know the key.
[[nodiscard]] platform::KernelStatus SMCReadKey(platform::SmcConnection connection, std::string_view key,
                                                SmcValue& value);
// kernelBadArgument: more than 32 bytes, or not exactly the key's own size. kernelError: refused.
[[nodiscard]] platform::KernelStatus SMCWriteKey(platform::SmcConnection connection, std::string_view key,
                                                 std::span<const std::uint8_t> bytes);
// The name of the key at `index` in the controller's list, zero-terminated.
[[nodiscard]] platform::KernelStatus SMCKeyAtIndex(platform::SmcConnection connection, std::uint32_t index,
                                                   std::array<char, 5>& name);

// The value bytes of a key on gConn, at most 32; none when it cannot be read. A key of size 0 reads as an
// empty list.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> readKey(std::string_view key);

// True when the controller accepted the write; accepted is not obeyed.
[[nodiscard]] bool writeKey(std::string_view key, std::span<const std::uint8_t> bytes);

// Whether the controller knows the key and lets it be read.
[[nodiscard]] bool canRead(std::string_view key);

// The first byte of a key; none when it cannot be read or is empty.
[[nodiscard]] std::optional<std::uint8_t> readFirstByte(std::string_view key);

// writeKey() for a key of one byte.
[[nodiscard]] bool writeByte(std::string_view key, std::uint8_t value);

}  // namespace brisko
