#include "client/commands/command.h"

namespace brisko::client {
namespace {

std::string dischargeSentence(bool on) {
  return on ? "Above the limit the Mac runs from its battery, also while it is plugged in."
            : "Discharging is off: above the limit the charge is held.";
}

}  // namespace

ExitStatus runDischarge(const Context& context) {
  return runSwitch(
      context,
      {.key = "discharge",
       .sentence = dischargeSentence,
       .supported = &DaemonStatus::dischargeSupported,
       .unsupported = "this Mac cannot run from its battery while it is plugged in; unplug it instead"});
}

}  // namespace brisko::client
