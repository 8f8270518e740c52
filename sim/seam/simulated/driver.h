// sim/seam/simulated/driver.h
// What a test or the lab holds of virtual time: the machine of this process, how far time may go, and what
// the host says of itself.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "sim/machine/machine_store.h"

namespace brisko::virtual_mac {

// Attaches the machine to the seam of this process and its children; null takes it away again. Not owned; it
// must outlive its use. Without a machine there is still virtual time, but nothing happens in it.
void attachMachine(MachineStore* store);

// Time never passes `horizon` (machine time) without asking: when the run loop or a pause is about to, the
// machine is brought exactly there and `reached` is called; it returns the next horizon, later than this one.
// What is due at the horizon itself is done before. Without a horizon time runs freely.
void setHorizon(double horizon, std::function<double()> reached);

// Called after every event of the run loop, once the machine and the daemon are done with it. For invariants.
void setAfterEvent(std::function<void()> afterEvent);

// What platform/host.h answers where the machine does not say; children inherit it. Nothing of the real
// computer is seen there but its temporary folder: no variable is set until a test sets it, the process
// number is always the same, and the executable is the one in the app's bundle unless said otherwise (none:
// it cannot be had).
void setEnvironment(const std::string& name, const std::string& value);
void setExecutablePath(std::optional<std::string> path);

}  // namespace brisko::virtual_mac
