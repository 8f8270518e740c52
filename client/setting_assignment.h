// client/setting_assignment.h
// KEY=VALUE, as people write settings on a command line.
#pragma once

#include <string>

#include "base/json_file.h"

namespace brisko::client {

// Names the setting that was probably meant.
[[nodiscard]] std::string unknownKey(const std::string& name);

// Adds the assignment to `keys`; a reason when it is invalid. `command` is the one that takes it, for an
// example.
[[nodiscard]] std::string takeAssignment(const std::string& word, const std::string& command, Json& keys);

}  // namespace brisko::client
