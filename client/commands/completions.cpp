#include "client/completions.h"

#include "client/commands/command.h"

namespace brisko::client {

ExitStatus runCompletions(const Context& context) {
  const std::string& shell = context.invocation.words.front();
  const auto script = completionScript(shell);
  if (!script) return misuse(context, "completions are for bash, zsh and fish, not for \"" + shell + "\"");
  context.output.raw(*script);
  return ExitStatus::done;
}

}  // namespace brisko::client
