#include "platform/code_signature.h"

#include "sim/machine/machine_store.h"
#include "sim/seam/call_watch.h"
#include "sim/seam/moment.h"

namespace brisko::platform {

std::optional<std::string> teamIdentifier() {
  virtual_mac::MachineStore* store = virtual_mac::machineFor({"teamIdentifier"});
  if (store == nullptr) return std::nullopt;  // without a virtual Mac nothing is signed
  return virtual_mac::readNow(*store, [](const virtual_mac::Machine& machine) -> std::optional<std::string> {
    if (!machine.system.daemonSignatureReadable) return std::nullopt;
    return std::string(virtual_mac::textOf(machine.system.daemonTeam));
  });
}

}  // namespace brisko::platform
