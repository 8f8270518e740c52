// client/command_line.h
// The commands and options of brisko, defined once: the parser, the help, the completions and a check of the
// manual all read these tables.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brisko::client {

struct OptionDefinition {
  std::string_view name;   // "--for"
  std::string_view value;  // "HOURS"; empty for a flag
  std::string_view meaning;
};

// What a shell can offer for a word after the command.
enum class WordKind : std::uint8_t { none, choice, settingKey, settingAssignment, command };

struct CommandDefinition {
  std::string_view name;
  std::string_view words;  // of the synopsis: "[N | LOWER..UPPER]"
  std::string_view meaning;
  std::vector<std::string_view> examples;
  WordKind kind = WordKind::none;
  std::vector<std::string_view> choices = {};
  std::size_t fewestWords = 0;
  std::size_t mostWords = 0;
  std::vector<OptionDefinition> options = {};
};

[[nodiscard]] std::span<const CommandDefinition> commandDefinitions();
[[nodiscard]] const CommandDefinition* findCommand(std::string_view name);  // null if unknown
// Accepted before and after every command.
[[nodiscard]] std::span<const OptionDefinition> commonOptions();

// A parsed command line.
struct Invocation {
  std::string command = "status";
  std::vector<std::string> words = {};
  std::map<std::string, std::string> options = {};  // by name; a flag has an empty value
  [[nodiscard]] bool has(const std::string& option) const { return options.contains(option); }
  [[nodiscard]] std::optional<std::string> value(const std::string& option) const;
};

struct Parsed {
  std::optional<Invocation> invocation = {};
  std::string error = {};  // what is wrong and what to do, without an invocation
};
[[nodiscard]] Parsed parseCommandLine(const std::vector<std::string>& arguments);

// The help for one command, or the overview for none.
[[nodiscard]] std::string helpText(const CommandDefinition* command);

}  // namespace brisko::client
