// tests/objective_c/foundation.h
// What was done with the fake Foundation, and how it behaves.
#pragma once

#include <string>
#include <vector>

#import <Foundation/Foundation.h>

namespace brisko::fakes {

// What was done to connections, in order.
[[nodiscard]] std::vector<std::string>& connectionJournal();

// Whether a connection raises an exception for its requirement. False by default.
extern bool gRequirementRaises;

// The object behind every connection of a client; without one there is no service, and a connection reports
// an error.
extern id gService;

// The object that the last connection was told to export.
extern id gExported;

// The delegate of the last listener, which is asked about new connections.
[[nodiscard]] id<NSXPCListenerDelegate> listenerDelegate();

}  // namespace brisko::fakes
