// sim/machine/models.h
// The models of Mac that can be made without a dump from a real one.
#pragma once

#include <span>
#include <string_view>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

[[nodiscard]] std::span<const Model> models();                // "air13", "pro14", "pro16"
[[nodiscard]] const Model* findModel(std::string_view name);  // null when there is none

}  // namespace brisko::virtual_mac
