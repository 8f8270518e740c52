// sim/seam/simulated/driver.h
// How a test or the lab controls virtual time: the machine of this process, how far time may advance, and
// what the host reports about itself.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "sim/machine/machine_store.h"

namespace brisko::virtual_mac {

// Attaches the machine to the seam of this process and its children; null detaches it. Not owned; it must
// outlive its use. Without a machine there is still virtual time, but nothing happens in it.
void attachMachine(MachineStore* store);

// Virtual time never passes `horizon` (machine time) without asking. When the run loop or a pause is about to
// pass it, the machine is advanced exactly to it and `reached` is called, which returns the next, later
// horizon. Work due at the horizon itself is done before. Without a horizon time advances freely.
void setHorizon(double horizon, std::function<double()> reached);

// Called after every event of the run loop, once the machine and the daemon have handled it. For invariants.
void setAfterEvent(std::function<void()> afterEvent);

// What platform/host.h answers beyond what the machine determines; children inherit it. Of the real computer
// only its temporary folder is visible. No variable is set until a test sets it, the process number is always
// the same, and the executable is the one in the app's bundle unless set otherwise (none: it is unknown).
void setEnvironment(const std::string& name, const std::string& value);
void setExecutablePath(std::optional<std::string> path);

}  // namespace brisko::virtual_mac
