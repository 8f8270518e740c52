#include "client/commands/command.h"

namespace brisko::client {
namespace {

std::string lightSentence(bool on) {
  return on ? "The light of the connector is green while the charge is held, and blinks green while it moves "
              "to its target."
            : "The light of the connector is left to macOS.";
}

}  // namespace

ExitStatus runLight(const Context& context) {
  return runSwitch(context, {.key = "led",
                             .sentence = lightSentence,
                             .supported = &DaemonStatus::ledSupported,
                             .unsupported = "this Mac has no light that the daemon can drive"});
}

}  // namespace brisko::client
