// client/commands/why_text.h
// The answer of "why" in JSON, which several commands print.
#pragma once

#include "base/json_file.h"
#include "client/exit_status.h"
#include "client/why.h"

namespace brisko::client {

// {"code", "text", "until"}; until is null if no event is known that ends the state.
[[nodiscard]] Json jsonOf(const Answer& answer);

// noDaemon if the reason is that no daemon works.
[[nodiscard]] ExitStatus statusFor(Reason reason);

}  // namespace brisko::client
