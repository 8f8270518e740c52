#include "client/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>

#include "base/nearest_name.h"

namespace brisko::client {
namespace {

const std::vector<CommandDefinition>& definitions() {
  static const std::vector<CommandDefinition> commands{
      {.name = "status",
       .words = "",
       .meaning = "show the charge and what the daemon does; the default",
       .examples = {"brisko", "brisko status --watch", "brisko status --line"},
       .options = {{"--watch", "", "show it again every two seconds, until Ctrl-C"},
                   {"--line", "", "one line, for a prompt or a menu bar"}}},
      {.name = "why",
       .words = "",
       .meaning = "say in one sentence why, and what would change it",
       .examples = {"brisko why", "brisko why --json"}},
      {.name = "limit",
       .words = "[PERCENT]",
       .meaning = "show or set where charging stops, 20 to 100",
       .examples = {"brisko limit", "brisko limit 80"},
       .mostWords = 1},
      {.name = "band",
       .words = "[POINTS | LOWER..UPPER]",
       .meaning = "show or set the band below the limit",
       .examples = {"brisko band", "brisko band 5", "brisko band 70..80"},
       .mostWords = 1},
      {.name = "on", .words = "", .meaning = "limit the charge", .examples = {"brisko on"}},
      {.name = "off", .words = "", .meaning = "stop limiting the charge", .examples = {"brisko off"}},
      {.name = "full",
       .words = "",
       .meaning = "charge to full once; the limit returns when you unplug",
       .examples = {"brisko full", "brisko full --for 4h", "brisko full --stop"},
       .options = {{"--for", "HOURS", "the limit returns after this many hours, for example 4h"},
                   {"--stop", "", "let the limit return now"}}},
      {.name = "discharge",
       .words = "[on | off]",
       .meaning = "run the Mac from its battery down to the limit while it is plugged in",
       .examples = {"brisko discharge on", "brisko discharge off"},
       .kind = WordKind::choice,
       .choices = {"on", "off"},
       .mostWords = 1},
      {.name = "heat",
       .words = "[off | DEGREES]",
       .meaning = "pause charging while the battery is this warm, in °C",
       .examples = {"brisko heat 38", "brisko heat off"},
       .kind = WordKind::choice,
       .choices = {"off"},
       .mostWords = 1},
      {.name = "light",
       .words = "[on | off]",
       .meaning = "let the light of the MagSafe connector show the charge",
       .examples = {"brisko light on", "brisko light off"},
       .kind = WordKind::choice,
       .choices = {"on", "off"},
       .mostWords = 1},
      {.name = "calibrate",
       .words = "[start | stop | status | runs]",
       .meaning = "run a calibration of the battery's gauge, which takes about a day",
       .examples = {"brisko calibrate start", "brisko calibrate status", "brisko calibrate stop",
                    "brisko calibrate runs"},
       .kind = WordKind::choice,
       .choices = {"start", "stop", "status", "runs"},
       .mostWords = 1},
      {.name = "get",
       .words = "[KEY]",
       .meaning = "print a setting, or all of them",
       .examples = {"brisko get", "brisko get hysteresis"},
       .kind = WordKind::settingKey,
       .mostWords = 1},
      {.name = "set",
       .words = "KEY=VALUE...",
       .meaning = "change settings",
       .examples = {"brisko set hysteresis=10", "brisko set thermal=on thermalLimit=38"},
       .kind = WordKind::settingAssignment,
       .fewestWords = 1,
       .mostWords = 16},
      {.name = "history",
       .words = "",
       .meaning = "show the charge over the last days",
       .examples = {"brisko history", "brisko history --days 30 --open",
                    "brisko history --from 2026-03-01 --to 2026-03-14 --html march.html"},
       .options = {{"--days", "DAYS", "how many days back; default 7"},
                   {"--from", "DATE", "from this day on, for example 2026-03-01"},
                   {"--to", "DATE", "up to this day, inclusive"},
                   {"--html", "FILE", "write a page"},
                   {"--svg", "FILE", "write a picture"},
                   {"--csv", "", "print the samples, one on each line"},
                   {"--open", "", "open a page in the browser"}}},
      {.name = "what-if",
       .words = "KEY=VALUE...",
       .meaning = "show what the last days would have been with other settings",
       .examples = {"brisko what-if limit=70", "brisko what-if thermal=on thermalLimit=35 --days 60",
                    "brisko what-if limit=60 --html limit-60.html"},
       .kind = WordKind::settingAssignment,
       .fewestWords = 1,
       .mostWords = 16,
       .options = {{"--days", "DAYS", "how many days back; default 30"},
                   {"--html", "FILE", "write a page with both curves"}}},
      {.name = "advise",
       .words = "",
       .meaning = "find the lowest limit that would never have left you short in the last days",
       .examples = {"brisko advise", "brisko advise --days 90"},
       .options = {{"--days", "DAYS", "how many days back; default 30"}}},
      {.name = "log",
       .words = "",
       .meaning = "show what the daemon did, in local time and in English",
       .examples = {"brisko log", "brisko log --since 2h", "brisko log --follow"},
       .options = {{"--since", "TIME", "how far back: 90m, 2h or 3d; default 24h"},
                   {"--all", "", "repeated summaries too"},
                   {"--raw", "", "the lines as they are in the file"},
                   {"--follow", "", "print new lines as they come, until Ctrl-C"}}},
      {.name = "doctor",
       .words = "",
       .meaning = "find what is wrong, and how to fix it",
       .examples = {"brisko doctor", "sudo brisko doctor", "brisko doctor --fix D20"},
       .options = {{"--fix", "ID", "fix what this check has found, after asking"}}},
      {.name = "report",
       .words = "",
       .meaning = "collect what a bug report needs in a file, without names and serial numbers",
       .examples = {"brisko report", "brisko report --output charge.tar --yes"},
       .options = {{"--output", "FILE", "the new file; default brisko-report-DATE-TIME.tar"}}},
      {.name = "restart",
       .words = "",
       .meaning = "restart the daemon; it gives the charge back first",
       .examples = {"brisko restart"}},
      {.name = "version", .words = "", .meaning = "print the versions", .examples = {"brisko version"}},
      {.name = "completions",
       .words = "bash | zsh | fish",
       .meaning = "print a script that lets a shell complete commands",
       .examples = {"source <(brisko completions zsh)", "brisko completions fish | source"},
       .kind = WordKind::choice,
       .choices = {"bash", "zsh", "fish"},
       .fewestWords = 1,
       .mostWords = 1},
      {.name = "help",
       .words = "[COMMAND]",
       .meaning = "explain a command",
       .examples = {"brisko help full"},
       .kind = WordKind::command,
       .mostWords = 1},
  };
  return commands;
}

constexpr std::array<OptionDefinition, 8> everywhere{{
    {"--json", "", "print one JSON object"},
    {"--quiet", "", "print nothing but answers and errors"},
    {"--no-color", "", "print no colours; so does the variable NO_COLOR"},
    {"--volume", "DIR", "use the files of another Mac's volume, mounted there"},
    {"--yes", "", "do not ask"},
    {"--force", "", "replace an unreadable settings file with the defaults"},
    {"--wait", "SECONDS", "how long to wait until the change shows; default 3"},
    {"--help", "", "explain the command"},
}};

std::string_view firstWord(const std::vector<std::string>& arguments) {
  bool isValue = false;
  for (const std::string& argument : arguments) {
    if (isValue) {
      isValue = false;
    } else if (!argument.starts_with('-')) {
      return argument;
    } else {
      const auto option = std::find_if(everywhere.begin(), everywhere.end(),
                                       [&](const OptionDefinition& known) { return known.name == argument; });
      isValue = option != everywhere.end() && !option->value.empty();
    }
  }
  return {};
}

// Every value goes to where the parser finds it: the map of the invocation.
void addOption(CLI::App& app, const OptionDefinition& definition, Invocation& invocation) {
  const std::string name(definition.name);
  if (definition.value.empty()) {
    app.add_flag_callback(name, [&invocation, name] { invocation.options[name] = ""; });
  } else {
    app.add_option_function<std::string>(
        name, [&invocation, name](const std::string& value) { invocation.options[name] = value; });
  }
}

// The first line, without the parser's own hint at its help.
std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

std::string tryHelp(const std::string& command) {
  return "; try \"brisko help" + (command.empty() ? std::string() : " " + command) + "\"";
}

std::string wordCountError(const CommandDefinition& command, std::size_t count) {
  const std::string name(command.name);
  const std::string usage = "write \"brisko " + name + " " + std::string(command.words) + "\"";
  if (count < command.fewestWords) return "\"" + name + "\" needs more; " + usage;
  if (command.mostWords == 0) return "\"" + name + "\" takes no words" + tryHelp(name);
  return "\"" + name + "\" takes only " + (command.mostWords == 1 ? "one word" : "so many words") + "; " +
         usage;
}

std::string unknownCommand(std::string_view name) {
  std::vector<std::string> names;
  for (const CommandDefinition& command : definitions()) names.emplace_back(command.name);
  const auto nearest = nearestName(name, names);
  return "unknown command \"" + std::string(name) + "\"" +
         (nearest ? "; did you mean \"" + *nearest + "\"?" : tryHelp(""));
}

std::string synopsis(const CommandDefinition& command) {
  std::string text = "brisko " + std::string(command.name);
  if (!command.words.empty()) text += " " + std::string(command.words);
  return text;
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size() + 1, width), ' ');
  return text;
}

std::string optionLines(std::span<const OptionDefinition> options) {
  std::string text;
  for (const OptionDefinition& option : options) {
    std::string name = "  " + std::string(option.name);
    if (!option.value.empty()) name += " " + std::string(option.value);
    text += padded(name, 20) + std::string(option.meaning) + "\n";
  }
  return text;
}

std::string overview() {
  std::string text =
      "brisko limit 80          stop charging at 80 %\n"
      "brisko status            what happens now\n"
      "brisko why               why, and what would change it\n"
      "brisko full --for 4h     charge to full once, for a trip\n\n"
      "Shows and changes how the daemon keeps this Mac's charge inside a band.\n\nCommands:\n";
  for (const CommandDefinition& command : definitions()) {
    text += padded("  " + std::string(command.name), 16) + std::string(command.meaning) + "\n";
  }
  return text + "\nEverywhere:\n" + optionLines(everywhere) +
         "\n\"brisko help COMMAND\" explains a command.\n";
}

}  // namespace

std::span<const CommandDefinition> commandDefinitions() { return definitions(); }

const CommandDefinition* findCommand(std::string_view name) {
  const auto& commands = definitions();
  const auto found = std::find_if(commands.begin(), commands.end(),
                                  [name](const CommandDefinition& command) { return command.name == name; });
  return found == commands.end() ? nullptr : &*found;
}

std::span<const OptionDefinition> commonOptions() { return everywhere; }

std::optional<std::string> Invocation::value(const std::string& option) const {
  const auto found = options.find(option);
  return found == options.end() ? std::nullopt : std::optional(found->second);
}

Parsed parseCommandLine(const std::vector<std::string>& arguments) {
  const std::string_view named = firstWord(arguments);
  const CommandDefinition* command = findCommand(named.empty() ? "status" : named);
  if (command == nullptr) return {.error = unknownCommand(named)};

  // The command is known, so only its own options and the common ones are.
  Invocation invocation{.command = std::string(command->name)};
  std::vector<std::string> words;
  CLI::App app("", "brisko");
  app.set_help_flag();
  for (const OptionDefinition& option : everywhere) addOption(app, option, invocation);
  for (const OptionDefinition& option : command->options) addOption(app, option, invocation);
  app.add_option("words", words);
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::ParseError& error) {
    return {.error = firstLine(error.what()) + tryHelp(invocation.command)};
  }
  if (!named.empty()) words.erase(words.begin());
  invocation.words = std::move(words);
  const std::size_t count = invocation.words.size();
  if (!invocation.has("--help") && (count < command->fewestWords || count > command->mostWords)) {
    return {.error = wordCountError(*command, count)};
  }
  return {.invocation = std::move(invocation)};
}

std::string helpText(const CommandDefinition* command) {
  if (command == nullptr) return overview();
  std::string text;
  for (const std::string_view example : command->examples) text += std::string(example) + "\n";
  std::string meaning(command->meaning);
  text += "\n" + synopsis(*command) + "\n    " + meaning + "\n";
  if (!command->options.empty()) text += "\n" + optionLines(command->options);
  return text + "\nEverywhere:\n" + optionLines(everywhere);
}

}  // namespace brisko::client
