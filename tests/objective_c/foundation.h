// tests/objective_c/foundation.h
// What the fake for Foundation was told, and what it makes of it.
#pragma once

#include <string>
#include <vector>

#import <Foundation/Foundation.h>

namespace brisko::fakes {

// What was done to connections, in order.
[[nodiscard]] std::vector<std::string>& connectionJournal();

// A connection raises an exception for the requirement that it is given. It does not, unless a test says
// otherwise.
extern bool gRequirementRaises;

// The object behind every connection of a client; without one there is no service, and a connection reports
// an error.
extern id gService;

// What the last listener was told to ask about new connections.
[[nodiscard]] id<NSXPCListenerDelegate> listenerDelegate();

}  // namespace brisko::fakes
