// brisko, the program with which people control the daemon.

#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "base/standard_output.h"
#include "client/command_line.h"
#include "client/commands/command.h"
#include "client/output.h"
#include "client/system.h"
#include "report/terminal_text.h"

namespace brisko::client {
namespace {

struct Command {
  std::string_view name;
  ExitStatus (*run)(const Context& context);
};

constexpr std::array commands{
    Command{"status", runStatus},
    Command{"why", runWhy},
    Command{"limit", runLimit},
    Command{"band", runBand},
    Command{"on", runOn},
    Command{"off", runOff},
    Command{"full", runFull},
    Command{"discharge", runDischarge},
    Command{"heat", runHeat},
    Command{"light", runLight},
    Command{"calibrate", runCalibrate},
    Command{"get", runGet},
    Command{"set", runSet},
    Command{"history", runHistory},
    Command{"what-if", runWhatIf},
    Command{"advise", runAdvise},
    Command{"log", runLog},
    Command{"doctor", runDoctor},
    Command{"report", runReport},
    Command{"restart", runRestart},
    Command{"version", runVersion},
    Command{"completions", runCompletions},
    Command{"help", runHelp},
};

// The other two print only what the program itself contains.
bool needsAMac(std::string_view command) { return command != "completions" && command != "help"; }

// Quoted for a shell, so that it can be copied.
std::string quoted(const std::string& word) {
  constexpr std::string_view plain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./=%:,+@";
  if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
  std::string text = "'";
  for (const char character : word)
    text += character == '\'' ? std::string("'\\''") : std::string(1, character);
  return text + "'";
}

std::string commandLineOf(const std::vector<std::string>& arguments) {
  std::string text = "brisko";
  for (const std::string& argument : arguments) text += " " + quoted(argument);
  return text;
}

// The seconds in the value of --wait; none when it is invalid.
std::optional<double> waitIn(const Invocation& invocation) {
  constexpr double usual = 3;
  constexpr std::int64_t longest = 600;
  const auto text = invocation.value("--wait");
  if (!text) return usual;
  const auto seconds = parseInteger(*text);
  if (!seconds || *seconds < 0 || *seconds > longest) return std::nullopt;
  return static_cast<double>(*seconds);
}

ExitStatus runCommand(const Context& context) {
  for (const Command& command : commands) {
    if (command.name == context.invocation.command) return command.run(context);
  }
  return ExitStatus::misused;
}

ExitStatus run(const std::vector<std::string>& arguments) {
  const Parsed parsed = parseCommandLine(arguments);
  const Invocation invocation = parsed.invocation.value_or(Invocation{});
  const Output output(styleOfStandardOutput(invocation.has("--no-color")), invocation.has("--quiet"));
  Context context{.invocation = invocation,
                  .output = output,
                  .volume = Volume(invocation.value("--volume")),
                  .commandLine = commandLineOf(arguments)};
  if (!parsed.invocation) return misuse(context, parsed.error);
  if (invocation.has("--help")) {
    output.lines(helpText(findCommand(invocation.command)));
    return output.flush() ? ExitStatus::done : ExitStatus::notDone;
  }
  const auto wait = waitIn(invocation);
  if (!wait) return misuse(context, "--wait takes whole seconds from 0 to 600");
  context.waitSeconds = *wait;
  if (const auto reason = whyUnusable();
      reason && needsAMac(invocation.command) && !context.volume.isForeign()) {
    output.complain(*reason);
    return ExitStatus::noDaemon;
  }
  const ExitStatus status = runCommand(context);
  if (output.flush()) return status;
  output.complain("the output could not be written");
  return ExitStatus::notDone;
}

}  // namespace
}  // namespace brisko::client

int main(int count, char** arguments) {
  brisko::occupyStandardStreams();
  // A reader that has closed its pipe, or a limit for the size of files, must not end the program in the
  // middle of a change.
  for (const int signal : {SIGPIPE, SIGXFSZ}) std::signal(signal, SIG_IGN);
  try {
    return static_cast<int>(brisko::client::run({arguments + 1, arguments + count}));
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "brisko: %s\n", brisko::lab::forTerminal(error.what()).c_str()));
    return 1;
  }
}
