// sim/machine/change_arguments.h
// The text form in which a user changes the machine. The machine's list of faults defines the possible
// changes; this parses texts into entries of that list.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sim/machine/machine.h"

namespace brisko::vmac {

// The arguments of a fault besides its name; empty if not given.
struct FaultArguments {
  std::string key = {};
  std::string number = {};
  std::string bytes = {};  // hexadecimal
  std::string property = {};
};

// The change that a fault stands for. None and a reason when the fault is unknown, when an argument is
// missing or not wanted, and when a value is malformed or out of range.
[[nodiscard]] std::optional<virtual_mac::Change> changeOf(std::string_view name,
                                                          const FaultArguments& arguments,
                                                          std::string& reason);

// "charge=70": a fault that needs only a number. "limit=off" is a limit of 100.
[[nodiscard]] std::optional<virtual_mac::Change> parseSetting(std::string_view text, std::string& reason);

// "CHTE=01000000": another program writes the key.
[[nodiscard]] std::optional<virtual_mac::Change> parseKeyWrite(std::string_view text, std::string& reason);

// The list of faults for users: every name, its arguments, and why the fault is believable.
[[nodiscard]] std::string faultList();
// The names that parseSetting() accepts, each with its unit and range.
[[nodiscard]] std::string settingList();

}  // namespace brisko::vmac
