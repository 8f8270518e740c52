// base/fatal.cpp
// Alone in its source file, so that a program that watches for the end of the process can provide its own.
#include <array>
#include <csignal>
#include <cstdlib>

#include <sys/uio.h>
#include <unistd.h>

#include "base/checked.h"

namespace brisko {
namespace {

iovec piece(std::string_view text) {
  // The call only reads, but its record has no const form.
  return {const_cast<char*>(text.data()), text.size()};
}

}  // namespace

void fatal(std::string_view message) {
  // Writing to standard error through a closed pipe would end the process by another signal than the intended
  // one.
  std::signal(SIGPIPE, SIG_IGN);
  const std::array<iovec, 3> line{piece("brisko-daemon: "), piece(message), piece("\n")};
  // The process ends whether or not the line was written.
  [[maybe_unused]] const ssize_t written =
      ::writev(STDERR_FILENO, line.data(), static_cast<int>(line.size()));
  std::abort();
}

}  // namespace brisko
