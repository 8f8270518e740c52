// client/launchd_text.h
// Reads what "launchctl print" reports of a job.
#pragma once

#include <string>

#include "client/system.h"

namespace brisko::client {

// The job in a report such as "system/com.brisko.daemon = {…}". An empty report means that launchd does not
// know the job.
[[nodiscard]] Job jobIn(const std::string& report);

}  // namespace brisko::client
