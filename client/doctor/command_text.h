// client/doctor/command_text.h
// Reads what commands of macOS print.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/doctor/evidence.h"

namespace brisko::client {

// Whether "launchctl print-disabled system" lists the job as disabled.
[[nodiscard]] bool isDisabledIn(const std::string& list);

// Whether "sfltool dumpbtm" allows the job in the background; none when it does not know it.
[[nodiscard]] std::optional<bool> backgroundAllowedIn(const std::string& dump);

// The processes of "ps -axo pid=,ppid=,comm=".
struct ProcessLine {
  std::int64_t id = 0;
  std::int64_t parent = 0;
  std::string path = {};
};
[[nodiscard]] std::vector<ProcessLine> processesIn(const std::string& list);
// Those of the daemon.
[[nodiscard]] std::vector<DaemonProcess> daemonsIn(const std::vector<ProcessLine>& processes);

// The programs besides macOS's own and ours whose user clients are in a listing of the controller's registry
// entries, by "ioreg -r -c AppleSMC -l -w0".
[[nodiscard]] std::vector<std::string> otherProgramsIn(const std::string& entries,
                                                       const std::vector<ProcessLine>& processes);

// How many configuration profiles "profiles show" lists.
[[nodiscard]] std::int64_t profilesIn(const std::string& list);

// The arguments in the job's property list, as "plutil -convert json" prints it; none if it has none.
[[nodiscard]] std::optional<std::vector<std::string>> jobArgumentsInFile(const std::string& json);

}  // namespace brisko::client
