// tests/fakes/smart_charge.h
// Faults of the private class of macOS's own limit. None by default.
#pragma once

#include <set>
#include <string>

namespace brisko::fakes {

// The selectors of messages that the class does not understand, and of those that raise an exception. Sending
// one of the former ends the process, as an uncaught exception does on a Mac.
[[nodiscard]] std::set<std::string>& missingSelectors();
[[nodiscard]] std::set<std::string>& raisingSelectors();

}  // namespace brisko::fakes
