// sim/dump_import/read_dump.h
// Reads the file forms of a registry dump: a property list, text or binary, or JSON.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/value.h"

namespace brisko {

// The one dictionary of the dump, also when a list with one element stands around it. None when the text is
// neither form or holds something else; `reason` then says what it is.
[[nodiscard]] std::optional<platform::Dictionary> readDump(std::string_view text, std::string& reason);

}  // namespace brisko
