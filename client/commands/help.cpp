#include "client/commands/command.h"

namespace brisko::client {

ExitStatus runHelp(const Context& context) {
  const auto& words = context.invocation.words;
  if (words.empty()) {
    context.output.lines(helpText(nullptr));
    return ExitStatus::done;
  }
  const CommandDefinition* command = findCommand(words.front());
  if (command == nullptr) return misuse(context, parseCommandLine(words).error);
  context.output.lines(helpText(command));
  return ExitStatus::done;
}

}  // namespace brisko::client
