// client/report_json.h
// Which values of a JSON text may be in a bug report: those under listed keys, of the type that is listed
// there, and among texts only listed ones. Everything else is dropped and counted.
#pragma once

#include <string_view>

#include "base/json_file.h"
#include "client/report_lines.h"
#include "platform/value.h"

namespace brisko::client {

// The daemon's files, as one line; "unreadable" unless it is a JSON object.
[[nodiscard]] KeptText keptStatus(std::string_view text);
[[nodiscard]] KeptText keptConfig(std::string_view text);
[[nodiscard]] KeptText keptStatistics(std::string_view text);
[[nodiscard]] KeptText keptCalibration(std::string_view text);
// Lines of the history, each an object.
[[nodiscard]] KeptText keptHistory(std::string_view text);

// The daemon's job, as launchd reads it; its arguments are those of the daemon, with their paths shortened.
[[nodiscard]] KeptText keptJob(std::string_view text);
// What "brisko doctor --json" prints: which checks found something, not their texts.
[[nodiscard]] KeptText keptDoctor(std::string_view text);
// Properties of the battery's entry in the registry.
[[nodiscard]] KeptText keptBattery(std::string_view text);

// The properties of an entry in the registry as JSON; what JSON has no type for is null.
[[nodiscard]] Json jsonOf(const platform::Dictionary& properties);

}  // namespace brisko::client
