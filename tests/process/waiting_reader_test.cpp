// The real daemon with a standard output that accepts nothing: a full pipe, or a terminal on hold. The log
// drops its lines; a mode that prints an answer waits.

#include <csignal>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "base/files.h"
#include "process/live_mac.h"
#include "process/program.h"
#include "support/testing.h"

namespace brisko::waiting_reader_test {
namespace {

using namespace test;

// Reads what is available without blocking.
std::string readNow(const Descriptor& end) {
  std::string text;
  std::string part(4096, '\0');
  for (ssize_t got = 0; (got = ::read(end.number(), part.data(), part.size())) > 0;) {
    text.append(part, 0, static_cast<std::size_t>(got));
  }
  return text;
}

class FullPipe {
 public:
  FullPipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    reading = Descriptor(ends[0]);
    writing = Descriptor(ends[1]);
    filler = std::string(static_cast<std::size_t>(::fcntl(ends[1], F_GETPIPE_SZ)), '.');
    EXPECT_TRUE(writeAll(ends[1], filler));
    EXPECT_FALSE(writeAll(ends[1], "."));
    makeWritingWait(true);
  }

  void makeWritingWait(bool waits) const { ::fcntl(writing.number(), F_SETFL, waits ? 0 : O_NONBLOCK); }

  std::string filler;
  Descriptor reading;  // non-blocking
  Descriptor writing;
};

// A terminal with its keyboard and its screen.
class Terminal {
 public:
  Terminal() : keyboard(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    EXPECT_EQ(::grantpt(keyboard.number()), 0);
    EXPECT_EQ(::unlockpt(keyboard.number()), 0);
    output = Descriptor(::open(::ptsname(keyboard.number()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios modes{};
    EXPECT_EQ(::tcgetattr(output.number(), &modes), 0);
    modes.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    EXPECT_EQ(::tcsetattr(output.number(), TCSANOW, &modes), 0);
  }

  void hold() { type("\x13", false); }   // Ctrl-S
  void resume() { type("\x11", true); }  // Ctrl-Q

  Descriptor keyboard;  // and the screen; non-blocking
  Descriptor output;

 private:
  void type(std::string_view key, bool takesMore) const {
    ASSERT_TRUE(writeAll(keyboard.number(), key));
    ASSERT_TRUE(eventually([&] {
      pollfd terminal{.fd = output.number(), .events = POLLOUT, .revents = 0};
      return (::poll(&terminal, 1, 0) == 1) == takesMore;
    }));
  }
};

// On a Mac above its limit: the daemon holds the charge, notices a change of the adapter, and gives the
// charge back. The log file contains all of this.
void expectToDoItsWork(const LiveMac& mac, Program& daemon) {
  ASSERT_TRUE(mac.logs("→ state: hold"));
  EXPECT_EQ(mac.key("CHTE"), "01000000");
  static_cast<void>(mac.vmac("unplug"));
  ASSERT_TRUE(mac.logs("  battery  state=allow"));
  static_cast<void>(mac.vmac("plug"));
  ASSERT_TRUE(eventually([&] { return test::countOf(mac.log(), "  ac  state=hold") == 2; }));
  daemon.signal(SIGTERM);
  ASSERT_TRUE(daemon.ends());
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.key("CHTE"), "00000000");
  EXPECT_THAT(mac.log(), MatchesRegex("[0-9TZ:-]+  brisko-daemon started .*\n"));
  EXPECT_THAT(mac.log(), EndsWith("  Signal 15: charging, adapter and LED restored, exiting.\n"));
}

test::Environment on(const LiveMac& mac) { return {{"BRISKO_VIRTUAL_MAC", mac.folder()}}; }

TEST(LogWithWaitingReader, doesNotKeepTheDaemonFromItsWork) {
  const LiveMac mac({"--charge", "90"});
  const FullPipe pipe;
  Program daemon("brisko-daemon", {}, on(mac), pipe.writing.number());
  expectToDoItsWork(mac, daemon);
  EXPECT_EQ(readNow(pipe.reading), pipe.filler);
}

TEST(LogWithWaitingReader, resumesWithWholeLinesOnceItIsRead) {
  const LiveMac mac({"--charge", "90"});
  const FullPipe pipe;
  Program daemon("brisko-daemon", {}, on(mac), pipe.writing.number());
  ASSERT_TRUE(mac.logs("state=hold"));
  EXPECT_EQ(readNow(pipe.reading), pipe.filler);
  static_cast<void>(mac.vmac("unplug"));
  ASSERT_TRUE(mac.logs("  battery  state=allow"));
  daemon.signal(SIGTERM);
  ASSERT_TRUE(daemon.ends());
  const std::string text = readNow(pipe.reading);
  EXPECT_THAT(text, HasSubstr("→ state: allow\n"));
  EXPECT_THAT(mac.log(), EndsWith("\n" + text));
}

TEST(LogOnPausedTerminal, doesNotKeepTheDaemonFromItsWork) {
  const LiveMac mac({"--charge", "90"});
  Terminal terminal;
  terminal.hold();
  Program daemon("brisko-daemon", {}, on(mac), terminal.output.number());
  expectToDoItsWork(mac, daemon);
  terminal.resume();
  EXPECT_EQ(readNow(terminal.keyboard), "");
}

TEST(LogOnPausedTerminal, resumesWithWholeLinesOnceItIsReleased) {
  const LiveMac mac({"--charge", "90"});
  Terminal terminal;
  Program daemon("brisko-daemon", {}, on(mac), terminal.output.number());
  std::string shown;
  const auto shows = [&](const std::string& text) {
    return eventually([&] { return (shown += readNow(terminal.keyboard)).find(text) != std::string::npos; });
  };
  ASSERT_TRUE(shows("  ac  state=hold"));
  terminal.hold();
  static_cast<void>(mac.vmac("unplug"));
  ASSERT_TRUE(mac.logs("  battery  state=allow"));
  terminal.resume();
  static_cast<void>(mac.vmac("plug"));
  ASSERT_TRUE(eventually([&] { return test::countOf(mac.log(), "  ac  state=hold") == 2; }));
  daemon.signal(SIGTERM);
  ASSERT_TRUE(shows("exiting.\n"));
  EXPECT_THAT(shown, StartsWith(mac.log().substr(0, mac.log().find("→ state: allow") - 22)));
  EXPECT_EQ(shown.find("→ state: allow"), std::string::npos);
  EXPECT_EQ(test::countOf(shown, "  ac  state=hold"), 2U);
  EXPECT_THAT(mac.log(), EndsWith(shown.substr(shown.rfind("→ state: hold"))));
}

// The whole output of the program, which is read only after the program has blocked.
std::string answer(const Words& arguments, const test::Environment& environment, bool nonBlocking) {
  const FullPipe pipe;
  pipe.makeWritingWait(!nonBlocking);
  Program program("brisko-daemon", arguments, environment, pipe.writing.number());
  const std::string status = "/proc/" + std::to_string(program.pid()) + "/status";
  EXPECT_TRUE(eventually(
      [&] { return program.ends(0) || test::contents(status).find("\nState:\tS") != std::string::npos; }));
  std::string text;
  EXPECT_TRUE(eventually([&] {
    const bool ended = program.ends(0);
    text += readNow(pipe.reading);
    return ended;
  }));
  EXPECT_EQ(program.status(), 0);
  EXPECT_EQ(program.errors(), "");
  EXPECT_THAT(text, StartsWith(pipe.filler));
  return text.substr(std::min(text.size(), pipe.filler.size()));
}

class WaitingReader : public ::testing::TestWithParam<bool> {};  // whether the pipe is non-blocking

TEST_P(WaitingReader, losesNoOutput) {
  const LiveMac mac({"--model", "pro16", "--charge", "57", "--speed", "100"});
  for (const Words& arguments :
       {Words{"--version"}, Words{"--selftest"}, Words{"--probe"}, Words{"--probe", "--json"}}) {
    const auto straight = mac.daemon(arguments);
    ASSERT_TRUE(straight->ends());
    EXPECT_EQ(answer(arguments, on(mac), GetParam()), straight->output()) << arguments.front();
  }
  EXPECT_THAT(answer({"--fwtest"}, on(mac), GetParam()),
              MatchesRegex("firmware mode detected .*\narming band .*\n(  B0AC=.*\n){5}disarmed\\. .*\n"));
}

INSTANTIATE_TEST_SUITE_P(Through, WaitingReader, ::testing::Bool(),
                         [](const auto& each) { return each.param ? "ANonBlockingPipe" : "APipe"; });

}  // namespace
}  // namespace brisko::waiting_reader_test
