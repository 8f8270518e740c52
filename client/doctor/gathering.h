// client/doctor/gathering.h
// Gathers the evidence for the checks, in at most three seconds. Writes nothing.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/child_process.h"
#include "client/doctor/evidence.h"

namespace brisko::client {

// Everything that can be looked at. Implemented in mac/ and linux/.
[[nodiscard]] Evidence gather(const Volume& volume);

// --- Its parts

// What the files on the volume show, and the job.
[[nodiscard]] Evidence gatherFiles(const Volume& volume);

// The battery's entry in the registry and the controller's keys.
void gatherHardware(Evidence& evidence);

// What commands of macOS report. `run` starts all of them at once.
using CommandRunner = std::function<std::vector<CommandResult>(const std::vector<TimedCommand>&)>;
void gatherFromCommands(Evidence& evidence, bool asRoot, const CommandRunner& run);

// The status once more, and a job without a process; to be called last.
void gatherLater(Evidence& evidence);

// Sets the reason of everything that was not gathered.
void explainGaps(Evidence& evidence, const std::string& whyNot);

}  // namespace brisko::client
