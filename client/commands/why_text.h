// client/commands/why_text.h
// An answer to why in JSON, as several commands print it.
#pragma once

#include "base/json_file.h"
#include "client/exit_status.h"
#include "client/why.h"

namespace brisko::client {

// {"code", "text", "until"}; until is null where nothing known ends it.
[[nodiscard]] Json jsonOf(const Answer& answer);

// noDaemon where the reason is that none does anything.
[[nodiscard]] ExitStatus statusFor(Reason reason);

}  // namespace brisko::client
