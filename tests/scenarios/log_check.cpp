// Checks that every line of a daemon's log fits exactly one entry of the client's catalogue.
#include <cstdio>
#include <fstream>
#include <string>

#include "client/log_catalogue.h"
#include "client/log_reader.h"

namespace brisko::client {
namespace {

// Why the line is unfit; empty when it is as it should be.
std::string flawOf(const std::string& text) {
  const auto line = logLineIn(text);
  if (!line) return "does not begin with a time";
  std::string fitting;
  std::size_t count = 0;
  for (const LogEntry& entry : logCatalogue()) {
    if (!fieldsIn(entry, line->message)) continue;
    ++count;
    fitting += " " + entry.id;
  }
  if (count == 1) return "";
  return count == 0 ? "fits no entry of docs/log.md" : "fits more than one entry of docs/log.md:" + fitting;
}

int check(const char* path) {
  std::ifstream log(path);
  if (!log) {
    static_cast<void>(std::fprintf(stderr, "%s: cannot be read\n", path));
    return 2;
  }
  std::size_t lines = 0;
  std::size_t unfit = 0;
  for (std::string line; std::getline(log, line); ++lines) {
    const std::string flaw = flawOf(line);
    if (flaw.empty()) continue;
    ++unfit;
    std::printf("%s:%zu: \"%s\" %s\n", path, lines + 1, line.c_str(), flaw.c_str());
  }
  std::printf("%zu lines, %zu of which do not fit exactly one entry\n", lines, unfit);
  return unfit == 0 ? 0 : 1;
}

}  // namespace
}  // namespace brisko::client

int main(int count, char** arguments) {
  if (count != 2) {
    static_cast<void>(std::fprintf(stderr, "usage: brisko-log-check FILE.log\n"));
    return 2;
  }
  return brisko::client::check(arguments[1]);
}
