#include "tools/lab/standard_streams.h"

#include <cstdio>
#include <string>

#include <unistd.h>

namespace brisko::lab {
namespace {

void writeTo(std::FILE* stream, const std::string& text) {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stream));
  static_cast<void>(std::fflush(stream));
}

}  // namespace

Output outputToStandardStreams() {
  return {.print = [](const std::string& text) { writeTo(stdout, text); },
          .progress = [](const std::string& text) { writeTo(stderr, text); },
          .onTerminal = ::isatty(STDERR_FILENO) == 1};
}

}  // namespace brisko::lab
