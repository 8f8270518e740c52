// platform/virtual/simulated/driver.h
// What a test or the lab holds of virtual time: the machine of this process, how far time may go, and what
// the host says of itself.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/virtual/machine_store.h"

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

// What platform/host.h answers in virtual time where the machine does not say: the same on every computer, so
// that nothing of the real one gets into a file.
struct SimulatedHost {
  std::map<std::string, std::string, std::less<>> environment;  // the real one stays out
  std::optional<std::string> executablePath = "/Applications/Brisko.app/Contents/MacOS/brisko-daemon";
  std::int64_t processId = 501;
};
// The one of this process, to be changed before the daemon runs; children inherit it.
[[nodiscard]] SimulatedHost& simulatedHost();

}  // namespace brisko::virtual_mac
