// platform/code_signature.h
#pragma once

#include <optional>
#include <string>

namespace brisko::platform {

// The team identifier in this process's own code signature; none when it is unsigned or cannot be read. An
// empty text is returned unchanged.
[[nodiscard]] std::optional<std::string> teamIdentifier();

}  // namespace brisko::platform
