// tools/vmac/settings_words.h
// The words in which a person changes the machine: "charge=70", "load=12".
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/virtual/machine.h"

namespace brisko::vmac {

struct SettingWord {
  std::string_view name;
  virtual_mac::ChangeKind kind;
  double least;
  double most;
  std::string_view meaning;  // for --help, with its unit
};

[[nodiscard]] std::span<const SettingWord> settingWords();

// The change that "name=value" stands for; none and a reason when there is no such word, no number or one out
// of range.
[[nodiscard]] std::optional<virtual_mac::Change> parseSetting(std::string_view text, std::string& reason);

// "CHTE=01000000": somebody else writes the key. None and a reason when it is not of that form.
[[nodiscard]] std::optional<virtual_mac::Change> parseKeyBytes(std::string_view text, std::string& reason);

// A whole decimal number in the C locale, blanks and trailing text refused.
[[nodiscard]] std::optional<double> parseNumber(std::string_view text);

}  // namespace brisko::vmac
