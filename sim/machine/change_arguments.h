// sim/machine/change_arguments.h
// The words in which a person changes the machine. What may be said is the machine's own list of what can
// happen to it; this turns words into entries of that list.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sim/machine/machine.h"

namespace brisko::vmac {

// What is said besides the name of a fault; empty where nothing is.
struct FaultArguments {
  std::string key;
  std::string number;
  std::string bytes;  // hexadecimal
  std::string property;
};

// The change that a fault stands for. None and a reason when there is no such fault, when it lacks something
// or was told something that it has no use for, and when a value is none or out of range.
[[nodiscard]] std::optional<virtual_mac::Change> changeOf(std::string_view name, const FaultArguments& said,
                                                          std::string& reason);

// "charge=70": a fault that asks for a number alone. "limit=off" is a limit of 100.
[[nodiscard]] std::optional<virtual_mac::Change> parseSetting(std::string_view text, std::string& reason);

// "CHTE=01000000": somebody else writes the key.
[[nodiscard]] std::optional<virtual_mac::Change> parseKeyWrite(std::string_view text, std::string& reason);

// The list for people: every name, what it asks for, and why it is believable.
[[nodiscard]] std::string faultList();
// The names that parseSetting() knows, each with its unit and range.
[[nodiscard]] std::string settingList();

}  // namespace brisko::vmac
