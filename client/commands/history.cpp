#include "client/commands/command.h"

namespace brisko::client {

// The pages, the picture and the summary are drawn in report/, from the samples of the chosen days.
ExitStatus runHistory(const Context& context) {
  context.output.complain("the history cannot be drawn yet");
  return ExitStatus::notDone;
}

}  // namespace brisko::client
