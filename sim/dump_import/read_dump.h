// sim/dump_import/read_dump.h
// Reads the file forms of a registry dump: a property list, text or binary, or JSON.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/value.h"

namespace brisko {

// Returns the one dictionary of the dump, also if it is wrapped in a list of one element. Returns none when
// the text has neither form or contains something else; `reason` then says what is wrong.
[[nodiscard]] std::optional<platform::Dictionary> readDump(std::string_view text, std::string& reason);

}  // namespace brisko
