// tests/fuzz/bytes.h
// Reads an input from its beginning. Beyond its end everything is 0 or empty.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace brisko {

class Bytes {
 public:
  explicit Bytes(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool atEnd() const { return rest_.empty(); }

  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const auto first = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return first;
  }

  // Little-endian.
  template <typename Integer>
  Integer integer() {
    std::uint64_t value = 0;
    for (std::size_t index = 0; index < sizeof(Integer); ++index) {
      value |= static_cast<std::uint64_t>(byte()) << (8 * index);
    }
    return static_cast<Integer>(value);
  }

  template <std::size_t size>
  std::array<std::uint8_t, size> array() {
    std::array<std::uint8_t, size> bytes{};
    for (std::uint8_t& each : bytes) each = byte();
    return bytes;
  }

  // Up to the separator, which is consumed too, or to the end.
  std::string_view upTo(char separator) {
    const std::string_view text = rest_.substr(0, rest_.find(separator));
    rest_.remove_prefix(text.size() < rest_.size() ? text.size() + 1 : text.size());
    return text;
  }

  std::string_view rest() {
    const std::string_view text = rest_;
    rest_ = {};
    return text;
  }

 private:
  std::string_view rest_;
};

}  // namespace brisko
