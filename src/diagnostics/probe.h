// diagnostics/probe.h
// What this Mac offers for controlling its charge, told without writing anything.
#pragma once

#include "hardware/charge_gate.h"

namespace brisko {

// Opens the controller and prints what is found to standard output: some lines for a person, or one JSON
// object without a line feed. Returns the exit status, 1 only without a controller.
[[nodiscard]] int runProbe(bool json);

// The word for a failure in the object.
[[nodiscard]] const char* publishedReason(GateFailure failure);

}  // namespace brisko
