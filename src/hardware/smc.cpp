#include "hardware/smc.h"

#include <algorithm>
#include <cstring>

#include "base/checked.h"

namespace brisko {
namespace {

// The record of one exchange: little-endian, naturally aligned.
constexpr std::size_t keyAt = 0;
constexpr std::size_t dataSizeAt = 28;
constexpr std::size_t dataTypeAt = 32;
constexpr std::size_t resultAt = 40;
constexpr std::size_t commandAt = 42;
constexpr std::size_t data32At = 44;
constexpr std::size_t bytesAt = 48;
constexpr std::size_t bytesSize = 32;

enum class Command : std::uint8_t { readKey = 5, writeKey = 6, keyAtIndex = 8, keyInfo = 9 };

void store32(platform::SmcRecord& record, std::size_t offset, std::uint32_t value) {
  for (std::size_t index = 0; index < 4; ++index) {
    record[offset + index] = static_cast<std::uint8_t>(value >> (8 * index));
  }
}

std::uint32_t load32(const platform::SmcRecord& record, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t index = 4; index > 0; --index) value = (value << 8U) | record[offset + index - 1];
  return value;
}

// First character in the high byte. A shorter text is padded with zero bytes.
std::uint32_t encodeKey(std::string_view key) {
  std::uint32_t code = 0;
  for (std::size_t index = 0; index < 4; ++index) {
    const auto character = index < key.size() ? static_cast<std::uint8_t>(key[index]) : std::uint8_t{0};
    code = (code << 8U) | character;
  }
  return code;
}

// A shorter answer is valid if it contains the result byte, and with it everything before that, and the
// requested value bytes. Missing bytes would be read as success and zero.
constexpr std::size_t answerWithoutBytes = resultAt + 1;

std::size_t answerWithBytes(std::uint32_t count) {
  return count == 0 ? answerWithoutBytes : bytesAt + std::min<std::size_t>(count, bytesSize);
}

platform::KernelStatus call(platform::SmcConnection connection, Command command, platform::SmcRecord input,
                            platform::SmcRecord& output, std::size_t needed = answerWithoutBytes) {
  input[commandAt] = static_cast<std::uint8_t>(command);
  const platform::SmcExchange exchange = platform::exchangeSmc(connection, input, output);
  if (exchange.status != platform::kernelSuccess) return exchange.status;
  return exchange.answered >= needed ? platform::kernelSuccess : platform::kernelError;
}

// The status that the caller reports for a refusal by the controller.
platform::KernelStatus statusFrom(const platform::SmcRecord& output, platform::KernelStatus whenRefused) {
  return output[resultAt] == 0 ? platform::kernelSuccess : whenRefused;
}

platform::KernelStatus readKeyInfo(platform::SmcConnection connection, std::uint32_t code,
                                   platform::SmcRecord& output) {
  platform::SmcRecord input{};
  store32(input, keyAt, code);
  const platform::KernelStatus status = call(connection, Command::keyInfo, input, output);
  if (status != platform::kernelSuccess) return status;
  return statusFrom(output, platform::kernelNotFound);
}

}  // namespace

platform::KernelStatus SMCOpen(platform::SmcConnection& connection) {
  const platform::SmcOpening opening = platform::openSmc();
  connection = opening.connection;
  return opening.status;
}

platform::KernelStatus SMCClose(platform::SmcConnection connection) { return platform::closeSmc(connection); }

platform::KernelStatus SMCReadKey(platform::SmcConnection connection, std::string_view key, SmcValue& value) {
  value = SmcValue{};
  value.key = encodeKey(key);

  platform::SmcRecord output{};
  platform::KernelStatus status = readKeyInfo(connection, value.key, output);
  if (status != platform::kernelSuccess) return status;
  value.dataSize = load32(output, dataSizeAt);
  value.dataType = load32(output, dataTypeAt);

  platform::SmcRecord input{};
  store32(input, keyAt, value.key);
  store32(input, dataSizeAt, value.dataSize);
  status = call(connection, Command::readKey, input, output, answerWithBytes(value.dataSize));
  if (status != platform::kernelSuccess) return status;
  status = statusFrom(output, platform::kernelNotFound);
  if (status != platform::kernelSuccess) return status;
  std::memcpy(value.bytes.data(), output.data() + bytesAt, bytesSize);
  return platform::kernelSuccess;
}

platform::KernelStatus SMCWriteKey(platform::SmcConnection connection, std::string_view key,
                                   std::span<const std::uint8_t> bytes) {
  if (bytes.size() > bytesSize) return platform::kernelBadArgument;
  const std::uint32_t code = encodeKey(key);
  const auto count = static_cast<std::uint32_t>(bytes.size());

  platform::SmcRecord output{};
  const platform::KernelStatus status = readKeyInfo(connection, code, output);
  if (status != platform::kernelSuccess) return status;
  // A key is written only with exactly its own size.
  if (load32(output, dataSizeAt) != count) return platform::kernelBadArgument;

  platform::SmcRecord input{};
  store32(input, keyAt, code);
  store32(input, dataSizeAt, count);
  std::copy(bytes.begin(), bytes.end(), input.begin() + bytesAt);
  const platform::KernelStatus written = call(connection, Command::writeKey, input, output);
  if (written != platform::kernelSuccess) return written;
  return statusFrom(output, platform::kernelError);
}

platform::KernelStatus SMCKeyAtIndex(platform::SmcConnection connection, std::uint32_t index,
                                     std::array<char, 5>& name) {
  platform::SmcRecord input{};
  store32(input, data32At, index);
  platform::SmcRecord output{};
  const platform::KernelStatus status = call(connection, Command::keyAtIndex, input, output);
  if (status != platform::kernelSuccess) return status;
  const std::uint32_t code = load32(output, keyAt);
  for (std::size_t position = 0; position < 4; ++position) {
    name[position] = static_cast<char>(static_cast<std::uint8_t>(code >> (8 * (3 - position))));
  }
  name[4] = '\0';
  return platform::kernelSuccess;
}

std::optional<std::vector<std::uint8_t>> readKey(std::string_view key) {
  SmcValue value;
  if (SMCReadKey(gConn, key, value) != platform::kernelSuccess) return std::nullopt;
  const std::size_t count = std::min<std::size_t>(value.dataSize, bytesSize);
  return std::vector<std::uint8_t>(value.bytes.begin(),
                                   value.bytes.begin() + static_cast<std::ptrdiff_t>(count));
}

bool writeKey(std::string_view key, std::span<const std::uint8_t> bytes) {
  // The count is transferred as 32 bits.
  static_cast<void>(checkedUnsigned32(bytes.size()));
  return SMCWriteKey(gConn, key, bytes) == platform::kernelSuccess;
}

bool canRead(std::string_view key) { return readKey(key).has_value(); }

std::optional<std::uint8_t> readFirstByte(std::string_view key) {
  const auto bytes = readKey(key);
  if (!bytes || bytes->empty()) return std::nullopt;
  return bytes->front();
}

bool writeByte(std::string_view key, std::uint8_t value) { return writeKey(key, {&value, 1}); }

}  // namespace brisko
