// diagnostics/probe.h
// Reports, without writing anything, what this Mac offers for controlling its charge.
#pragma once

#include "hardware/charge_gate.h"

namespace brisko {

// Opens the controller and prints its findings to standard output: some lines for users, or one JSON object
// without a line feed. Returns the exit status, 1 only without a controller.
[[nodiscard]] int runProbe(bool json);

// The failure's name in the JSON object.
[[nodiscard]] const char* publishedReason(GateFailure failure);

}  // namespace brisko
