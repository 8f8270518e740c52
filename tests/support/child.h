// tests/support/child.h
// Runs code in a child process, for code that changes or ends the whole process.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace brisko::test {

struct Ended {
  std::optional<int> status;  // exit status
  std::optional<int> signal;  // or the signal that ended it
  std::string output;         // its standard output
  std::string errors;         // its standard error
};

// Runs `body` in a forked child and waits for its end. If `body` returns, the child ends with status 0 and
// without exit hooks. Expectations belong in the parent; the child reports by its output.
[[nodiscard]] Ended inChild(const std::function<void()>& body);

// Prints to standard output at once, unbuffered.
void tell(const std::string& text);

// Gives up root, so that permissions apply to this process from now on.
void becomeNobody();

}  // namespace brisko::test
