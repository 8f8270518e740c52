#include "client/commands/command.h"

namespace brisko::client {

// report/ draws the pages, the chart and the summary from the samples of the chosen days.
ExitStatus runHistory(const Context& context) {
  context.output.complain("the history cannot be drawn yet");
  return ExitStatus::notDone;
}

}  // namespace brisko::client
