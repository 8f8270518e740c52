#include "vmac/settings_words.h"

#include <array>
#include <charconv>

namespace brisko::vmac {
namespace {

using virtual_mac::Change;
using virtual_mac::ChangeKind;

constexpr std::array words{
    SettingWord{"charge", ChangeKind::charge, 0, 100, "percent shown"},
    SettingWord{"load", ChangeKind::load, 0, 200, "watts that the Mac itself needs"},
    SettingWord{"ambient", ChangeKind::ambient, -20, 60, "degrees Celsius around it"},
    SettingWord{"temperature", ChangeKind::temperature, -20, 90, "degrees Celsius of the battery, now"},
    SettingWord{"health", ChangeKind::health, 100, 20000, "mAh that the battery holds when full"},
    SettingWord{"cycles", ChangeKind::cycles, 0, 5000, "charge cycles so far"},
    SettingWord{"decay", ChangeKind::decay, 0, 3600, "seconds over which the current follows a change"},
    SettingWord{"trickle", ChangeKind::trickle, -5000, 5000, "mA that still flow while charging is stopped"},
    SettingWord{"macos", ChangeKind::macOS, 11, 99, "major version of macOS"},
    SettingWord{"clock-step", ChangeKind::clockStep, -1e9, 1e9, "seconds by which the wall clock jumps, now"},
    SettingWord{"capabilities", ChangeKind::capabilities, -1, 255,
                "wake capabilities: 15 full wake, 9 dark wake, -1 not readable"},
    SettingWord{"source-lag", ChangeKind::powerSourceLag, 0, 600,
                "seconds by which the power source follows the adapter"},
};

std::optional<int> hexDigit(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return std::nullopt;
}

std::string plain(double number) {
  std::array<char, 32> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
  return {text.data(), end};
}

}  // namespace

std::span<const SettingWord> settingWords() { return words; }

std::optional<double> parseNumber(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<Change> parseSetting(std::string_view text, std::string& reason) {
  const std::size_t equals = text.find('=');
  const std::string_view name = text.substr(0, equals);
  for (const SettingWord& word : words) {
    if (word.name != name) continue;
    const auto number =
        equals == std::string_view::npos ? std::nullopt : parseNumber(text.substr(equals + 1));
    if (number && *number >= word.least && *number <= word.most) {
      Change change;
      change.kind = word.kind;
      change.number = *number;
      return change;
    }
    reason = std::string(name) + " takes a number from " + plain(word.least) + " to " + plain(word.most) +
             " (" + std::string(word.meaning) + ")";
    return std::nullopt;
  }
  reason = "there is nothing called \"" + std::string(name) + "\" to set";
  return std::nullopt;
}

std::optional<Change> parseKeyBytes(std::string_view text, std::string& reason) {
  reason = "a key is written as KEY=HEX, e.g. CHTE=01000000";
  if (text.size() < 5 || text[4] != '=' || text.size() % 2 == 0 || text.size() > 5 + 64) return std::nullopt;
  Change change;
  change.kind = ChangeKind::keyBytes;
  change.key = virtual_mac::keyCode(text.substr(0, 4));
  for (std::size_t index = 5; index < text.size(); index += 2) {
    const auto high = hexDigit(text[index]);
    const auto low = hexDigit(text[index + 1]);
    if (!high || !low) return std::nullopt;
    change.bytes[change.byteCount++] = static_cast<std::uint8_t>(*high * 16 + *low);
  }
  reason.clear();
  return change;
}

}  // namespace brisko::vmac
