// client/child_process.h
// Other programs, without a shell.
#pragma once

#include <string>
#include <vector>

namespace brisko::client {

// Runs a program to its end, with what it prints discarded but for its errors. A name without a slash is
// searched in PATH. True when it ended with status 0; otherwise false and a reason, as a clause.
[[nodiscard]] bool runProgram(const std::vector<std::string>& words, std::string& reason);

}  // namespace brisko::client
