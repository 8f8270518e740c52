// tests/support/child.h
// A piece of code in a process of its own: for what changes or ends the whole process.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace brisko::test {

struct Ended {
  std::optional<int> status;  // exit status
  std::optional<int> signal;  // or the signal that ended it
  std::string output;         // what it wrote to its standard output
  std::string errors;         // and to its standard error
};

// Runs `body` in a forked child and waits for its end; a body that returns ends the child with status 0 and
// without exit hooks. Expectations belong to the parent: the child tells what it saw by what it prints.
[[nodiscard]] Ended inChild(const std::function<void()>& body);

// Prints to standard output at once, past any buffer.
void tell(const std::string& text);

// Gives up root, so that permissions count for this process from here on.
void becomeNobody();

}  // namespace brisko::test
