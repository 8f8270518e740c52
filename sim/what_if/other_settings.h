// sim/what_if/other_settings.h
// The same days with other settings: the Mac, its adapter, its sleep and its use stay as they were.
#pragma once

#include <nlohmann/json.hpp>

#include "sim/replay/reconstruct.h"

namespace brisko::lab {

// Sets the keys of `asked` from the beginning on, and leaves out every later change of them. All other
// settings change when they did.
void setThroughout(const nlohmann::json& asked, Reconstruction& reconstruction);

}  // namespace brisko::lab
