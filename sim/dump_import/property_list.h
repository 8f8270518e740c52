// sim/dump_import/property_list.h
// Reads a property list, text or binary. The lab that is installed on a Mac does without and reads none.
#pragma once

#include <optional>
#include <string_view>

#include "platform/value.h"

namespace brisko {

// Real dumps nest seven levels deep; what lies deeper than this is left out.
inline constexpr int mostDumpLevels = 32;

// None when the text is no property list.
[[nodiscard]] std::optional<platform::Value> readPropertyList(std::string_view text);

}  // namespace brisko
