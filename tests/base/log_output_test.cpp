#include "base/log_output.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include "base/files.h"
#include "base/log.h"
#include "support/child.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::log_output_test {
namespace {

using namespace test;

// A stream for the log, and its other end, which is read without blocking.
struct Stream {
  Descriptor writing;
  Descriptor reading;
};

Stream makePipe() {
  int ends[2];
  if (::pipe(ends) != 0 || ::fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0) ::_exit(1);
  return {Descriptor(ends[1]), Descriptor(ends[0])};
}

Stream makeSocket() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0 || ::fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0)
    ::_exit(1);
  return {Descriptor(ends[1]), Descriptor(ends[0])};
}

Stream makeTerminal() {
  Descriptor master(::posix_openpt(O_RDWR | O_NOCTTY));
  if (!master || ::grantpt(master.number()) != 0 || ::unlockpt(master.number()) != 0) ::_exit(1);
  if (::fcntl(master.number(), F_SETFL, O_NONBLOCK) != 0) ::_exit(1);
  Descriptor terminal(::open(::ptsname(master.number()), O_RDWR | O_NOCTTY));
  termios modes{};
  if (::tcgetattr(terminal.number(), &modes) != 0) ::_exit(1);
  modes.c_oflag &= ~static_cast<tcflag_t>(OPOST);  // keeps a line feed one byte
  if (::tcsetattr(terminal.number(), TCSANOW, &modes) != 0) ::_exit(1);
  return {std::move(terminal), std::move(master)};
}

Stream makeStream(const std::string& kind) {
  if (kind == "Pipe") return makePipe();
  return kind == "Socket" ? makeSocket() : makeTerminal();
}

// Reads what is available, at most `most` bytes.
std::string readNow(const Stream& stream, std::size_t most = 1U << 24U) {
  std::string text;
  std::string part(4096, '\0');
  while (text.size() < most) {
    const ssize_t got =
        ::read(stream.reading.number(), part.data(), std::min(part.size(), most - text.size()));
    if (got <= 0) break;
    text.append(part, 0, static_cast<std::size_t>(got));
  }
  return text;
}

// Runs `body` in a child whose standard output is a stream of that kind, and returns its result.
std::string withOutputTo(const std::string& kind, const std::function<std::string(Stream&)>& body) {
  const auto ended = inChild([&] {
    const int results = ::dup(STDOUT_FILENO);
    Stream stream = makeStream(kind);
    ::dup2(stream.writing.number(), STDOUT_FILENO);
    stream.writing.close();
    static_cast<void>(writeAll(results, body(stream)));
  });
  EXPECT_EQ(ended.status, 0) << ended.errors;
  return ended.output;
}

// Distinct lines of 100 bytes each.
std::string numbered(int number) {
  std::string line = std::to_string(number) + " ";
  line.resize(99, 'x');
  return line + "\n";
}

constexpr int farTooMany = 20'000;  // two megabytes: more than any of these streams buffers

// The numbers of the lines in `text`; -1 for an incomplete one.
std::vector<int> numbersIn(const std::string& text) {
  std::vector<int> numbers;
  for (std::size_t from = 0; from < text.size(); from += 100) {
    const int number = std::atoi(text.c_str() + from);
    numbers.push_back(text.substr(from, 100) == numbered(number) ? number : -1);
  }
  return numbers;
}

std::vector<int> firstNumbers(int count) {
  std::vector<int> numbers(static_cast<std::size_t>(count));
  std::iota(numbers.begin(), numbers.end(), 0);
  return numbers;
}

class LogOutput : public testing::TestWithParam<const char*> {};  // the kind of stream

// A line that was written in part when the stream filled up is completed, and then the lines continue.
TEST_P(LogOutput, dropsWholeLinesWhileNobodyReads) {
  const std::string text = withOutputTo(GetParam(), [](Stream& stream) {
    for (int number = 0; number < farTooMany; ++number) offerLogLine(numbered(number));
    std::string read = readNow(stream);
    // A terminal passes its data on gradually, so there is no end to wait for: each new line shows whether
    // there is room again.
    while (read.find("one more\n") == std::string::npos) {
      offerLogLine("one more\n");
      read += readNow(stream);
    }
    return read.substr(0, read.find("one more\n"));
  });
  const std::vector<int> numbers = numbersIn(text);
  EXPECT_THAT(numbers.size(), testing::AllOf(Gt(1U), Lt(std::size_t{farTooMany})));
  EXPECT_EQ(numbers.front(), 0);
  EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()), numbers.end());
}

// Also if only a part of a write was accepted, as by a terminal.
TEST_P(LogOutput, completesALineBeforeTheNextBegins) {
  const std::string lengthy = std::string(1'000'000, 'a') + "\n";  // larger than the buffer
  const std::string text = withOutputTo(GetParam(), [&lengthy](Stream& stream) {
    offerLogLine(lengthy);
    std::string read = readNow(stream, 100);
    offerLogLine("dropped\n");
    while (read.find("next\n") == std::string::npos) {
      read += readNow(stream);
      offerLogLine("next\n");
    }
    return read;
  });
  EXPECT_THAT(text, StartsWith(lengthy + "next\n"));
}

TEST_P(LogOutput, dropsNoLineWhileSomebodyReads) {
  const std::string text = withOutputTo(GetParam(), [](Stream& stream) {
    std::string read;
    for (int number = 0; number < 2000; ++number) {
      offerLogLine(numbered(number));
      while (read.size() < 100U * static_cast<std::size_t>(number + 1)) read += readNow(stream);
    }
    return read;
  });
  EXPECT_EQ(numbersIn(text), firstNumbers(2000));
}

TEST_P(LogOutput, keepsTheFlagsOfTheStream) {
  const std::string flags = withOutputTo(GetParam(), [](Stream&) {
    const int before = ::fcntl(STDOUT_FILENO, F_GETFL);
    for (int number = 0; number < farTooMany; ++number) offerLogLine(numbered(number));
    return std::string(::fcntl(STDOUT_FILENO, F_GETFL) == before && (before & O_NONBLOCK) == 0 ? "kept"
                                                                                               : "set");
  });
  EXPECT_EQ(flags, "kept");
}

TEST_P(LogOutput, leavesNoDescriptorBehind) {
  const std::string next = withOutputTo(GetParam(), [](Stream&) {
    const Descriptor before(::dup(STDERR_FILENO));
    offerLogLine("line\n");
    const Descriptor after(::dup(STDERR_FILENO));
    return std::to_string(after.number() - before.number());
  });
  EXPECT_EQ(next, "1");
}

TEST_P(LogOutput, toleratesAClosedPipe) {
  const std::string outcome = withOutputTo(GetParam(), [](Stream& stream) {
    offerLogLine("one\n");
    stream.reading.close();
    for (int number = 0; number < 100; ++number) offerLogLine(numbered(number));
    return std::string("continued");
  });
  EXPECT_EQ(outcome, "continued");
}

INSTANTIATE_TEST_SUITE_P(To, LogOutput, testing::Values("Pipe", "Socket", "Terminal"),
                         [](const auto& each) { return std::string(each.param); });

TEST(LogOutputToAPipe, dropsALineWhoseBeginningDoesNotFit) {
  const std::string text = withOutputTo("Pipe", [](Stream& stream) {
    ::fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
    while (writeAll(STDOUT_FILENO, "x")) {
    }
    ::fcntl(STDOUT_FILENO, F_SETFL, 0);
    offerLogLine("lost\n");
    const std::string before = readNow(stream);
    offerLogLine("kept\n");
    return before + readNow(stream);
  });
  EXPECT_THAT(text, testing::MatchesRegex("x+kept\n"));
}

TEST(LogOutputToATerminal, doesNotBlockOnATerminalOnHold) {
  const VirtualMac mac({.startTime = 1772352930});
  const std::string text = withOutputTo("Terminal", [](Stream& stream) {
    ::tcflow(STDOUT_FILENO, TCOOFF);
    for (int number = 0; number < 1000; ++number) log("on hold");
    ::tcflow(STDOUT_FILENO, TCOON);
    std::string read;
    while (read.find("resumed\n") == std::string::npos) {
      log("resumed");
      read += readNow(stream);
    }
    return read;
  });
  EXPECT_THAT(text, StartsWith("2026-03-01T08:15:30Z  resumed\n"));
  EXPECT_THAT(mac.logLines().size(), Gt(1000U));
}

TEST(LogOutputToAFile, dropsNothing) {
  const auto ended = inChild([] {
    for (int number = 0; number < farTooMany; ++number) offerLogLine(numbered(number));
  });
  EXPECT_EQ(numbersIn(ended.output), firstNumbers(farTooMany));
}

}  // namespace
}  // namespace brisko::log_output_test
