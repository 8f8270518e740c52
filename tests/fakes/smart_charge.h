// tests/fakes/smart_charge.h
// What is wrong with the private class of macOS's own limit. Nothing, unless a test says otherwise.
#pragma once

#include <set>
#include <string>

namespace brisko::fakes {

// By their selectors: messages that the class does not understand, and those that it answers with an
// exception. Sending one of the first kind ends the process, as an exception that nobody catches does on a
// Mac.
[[nodiscard]] std::set<std::string>& missingSelectors();
[[nodiscard]] std::set<std::string>& raisingSelectors();

}  // namespace brisko::fakes
