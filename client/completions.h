// client/completions.h
// Scripts that let a shell complete commands, generated from the tables of the command line.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brisko::client {

// For "bash" (3.2 and later), "zsh" or "fish"; none for another shell.
[[nodiscard]] std::optional<std::string> completionScript(std::string_view shell);

}  // namespace brisko::client
