#include "client/completions.h"

#include <vector>

#include "client/command_line.h"
#include "client/setting_keys.h"

namespace brisko::client {
namespace {

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::vector<std::string> commandNames() {
  std::vector<std::string> names;
  for (const CommandDefinition& command : commandDefinitions()) names.emplace_back(command.name);
  return names;
}

// What may follow a command, other than options.
std::vector<std::string> wordsAfter(const CommandDefinition& command) {
  std::vector<std::string> words(command.choices.begin(), command.choices.end());
  if (command.kind == WordKind::command) words = commandNames();
  if (command.kind == WordKind::settingKey || command.kind == WordKind::settingAssignment) {
    const std::string end = command.kind == WordKind::settingAssignment ? "=" : "";
    for (const SettingKey& key : settingKeys()) words.push_back(key.name + end);
  }
  return words;
}

std::vector<std::string> optionNames(std::span<const OptionDefinition> options) {
  std::vector<std::string> names;
  for (const OptionDefinition& option : options) names.emplace_back(option.name);
  return names;
}

bool takesAFile(const OptionDefinition& option) { return option.value == "FILE" || option.value == "DIR"; }

// Options of all commands whose value is a file, or another text.
std::vector<std::string> optionsWithValue(bool file) {
  std::vector<std::string> names;
  const auto add = [&](std::span<const OptionDefinition> options) {
    for (const OptionDefinition& option : options) {
      if (!option.value.empty() && takesAFile(option) == file) names.emplace_back(option.name);
    }
  };
  add(commonOptions());
  for (const CommandDefinition& command : commandDefinitions()) add(command.options);
  return names;
}

std::string alternatives(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : "|") + word;
  return text;
}

// The shells' shared part: one case for each command, which sets `words` and `options`.
std::string commandCases(const char* indent) {
  std::string text;
  for (const CommandDefinition& command : commandDefinitions()) {
    text += std::string(indent) + std::string(command.name) + ") words='" + joined(wordsAfter(command)) +
            "' options='" + joined(optionNames(command.options)) + "' ;;\n";
  }
  return text;
}

// bash 3.2 has no associative arrays, no compopt and no mapfile.
std::string bashScript() {
  return "# Completions of brisko for bash.\n"
         "_brisko() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
         "  local command='' words='' options='' word index\n"
         "  COMPREPLY=()\n"
         "  case $previous in\n"
         "    " +
         alternatives(optionsWithValue(true)) +
         ") COMPREPLY=( $(compgen -f -- \"$current\") ); return ;;\n"
         "    " +
         alternatives(optionsWithValue(false)) +
         ") return ;;\n"
         "  esac\n"
         "  for (( index = 1; index < COMP_CWORD; index++ )); do\n"
         "    word=${COMP_WORDS[index]}\n"
         "    case $word in\n"
         "      " +
         alternatives(optionsWithValue(true)) + "|" + alternatives(optionsWithValue(false)) +
         ") index=$(( index + 1 )) ;;\n"
         "      -*) ;;\n"
         "      *) command=$word; break ;;\n"
         "    esac\n"
         "  done\n"
         "  case $command in\n"
         "    '') words='" +
         joined(commandNames()) + "' ;;\n" + commandCases("    ") +
         "  esac\n"
         "  case $current in\n"
         "    -*) words=\"$options " +
         joined(optionNames(commonOptions())) +
         "\" ;;\n"
         "  esac\n"
         "  COMPREPLY=( $(compgen -W \"$words\" -- \"$current\") )\n"
         "  # A setting is followed by its value, not by a blank.\n"
         "  if [ \"$command\" = set ] && type compopt >/dev/null 2>&1; then compopt -o nospace 2>/dev/null; "
         "fi\n"
         "}\n"
         "complete -F _brisko brisko\n";
}

// In single quotes, with the separators of zsh's _describe and _arguments escaped.
std::string zshText(std::string_view text) {
  std::string quoted;
  for (const char character : text) {
    if (character == '\'') {
      quoted += "'\\''";
    } else if (character == ':' || character == '[' || character == ']') {
      quoted += std::string("\\") + character;
    } else {
      quoted += character;
    }
  }
  return quoted;
}

std::string zshOption(const OptionDefinition& option) {
  std::string text = "'" + std::string(option.name) + "[" + zshText(option.meaning) + "]";
  if (!option.value.empty())
    text += ":" + std::string(option.value) + ":" + (takesAFile(option) ? "_files" : " ");
  return text + "'";
}

std::string zshScript() {
  std::string commands;
  std::string cases;
  for (const CommandDefinition& command : commandDefinitions()) {
    commands += "    '" + std::string(command.name) + ":" + zshText(command.meaning) + "'\n";
    cases += "    " + std::string(command.name) + ")\n      arguments+=(";
    for (const OptionDefinition& option : command.options) cases += zshOption(option) + " ";
    const auto words = wordsAfter(command);
    if (!words.empty()) {
      const bool assignment = command.kind == WordKind::settingAssignment;
      cases += assignment ? "'*:setting:_brisko_assignments'" : "'1:word:(" + joined(words) + ")'";
    }
    cases += ") ;;\n";
  }
  std::string common;
  for (const OptionDefinition& option : commonOptions()) common += "    " + zshOption(option) + "\n";
  return "#compdef brisko\n"
         "# Completions of brisko for zsh.\n"
         "_brisko_assignments() {\n"
         "  compadd -S '' -- " +
         joined(wordsAfter(*findCommand("set"))) +
         "\n"
         "}\n"
         "_brisko() {\n"
         "  local -a commands arguments\n"
         "  local state line\n"
         "  commands=(\n" +
         commands +
         "  )\n"
         "  arguments=(\n" +
         common +
         "  )\n"
         "  _arguments -C $arguments '1: :->command' '*:: :->words' && return\n"
         "  if [[ $state == command ]]; then\n"
         "    _describe 'command' commands\n"
         "    return\n"
         "  fi\n"
         "  case $line[1] in\n" +
         cases +
         "  esac\n"
         "  _arguments $arguments\n"
         "}\n"
         "compdef _brisko brisko\n";
}

// In single quotes.
std::string fishText(std::string_view text) {
  std::string quoted;
  for (const char character : text) {
    if (character == '\'' || character == '\\') quoted += '\\';
    quoted += character;
  }
  return "'" + quoted + "'";
}

std::string fishOption(const OptionDefinition& option, const std::string& condition) {
  std::string text = "complete -c brisko" + condition + " -l " + std::string(option.name.substr(2));
  if (!option.value.empty()) text += takesAFile(option) ? " -r -F" : " -x";
  return text + " -d " + fishText(option.meaning) + "\n";
}

std::string fishScript() {
  std::string text = "# Completions of brisko for fish.\ncomplete -c brisko -f\n";
  for (const OptionDefinition& option : commonOptions()) text += fishOption(option, "");
  for (const CommandDefinition& command : commandDefinitions()) {
    const std::string name(command.name);
    text +=
        "complete -c brisko -n __fish_use_subcommand -a " + name + " -d " + fishText(command.meaning) + "\n";
    const std::string after = " -n '__fish_seen_subcommand_from " + name + "'";
    if (const auto words = wordsAfter(command); !words.empty())
      text += "complete -c brisko" + after + " -a '" + joined(words) + "'\n";
    for (const OptionDefinition& option : command.options) text += fishOption(option, after);
  }
  return text;
}

}  // namespace

std::optional<std::string> completionScript(std::string_view shell) {
  if (shell == "bash") return bashScript();
  if (shell == "zsh") return zshScript();
  if (shell == "fish") return fishScript();
  return std::nullopt;
}

}  // namespace brisko::client
