#include "base/standard_output.h"

#include <array>
#include <csignal>
#include <string>

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/files.h"
#include "support/child.h"
#include "support/testing.h"

namespace brisko::standard_output_test {
namespace {

using namespace test;

std::array<int, 2> gPipe{};
std::size_t gTaken = 0;
int gSignals = 0;

void takeFromPipe() {
  std::array<char, 4096> bytes{};
  for (ssize_t size = 0; (size = ::read(gPipe[0], bytes.data(), bytes.size())) > 0;) {
    gTaken += static_cast<std::size_t>(size);
  }
}

// Makes room only now and then, so that some writes return without having written anything.
void takeFromPipeNowAndThen(int) {
  if (++gSignals % 4 == 0) takeFromPipe();
}

// None of its bytes is lost to a signal whose handler ends the system's wait.
TEST(StandardOutput, continuesAfterAnInterruptingSignal) {
  constexpr std::size_t size = 1U << 20U;  // more than a pipe holds
  const auto ended = inChild([] {
    const int results = ::dup(STDOUT_FILENO);
    if (::pipe(gPipe.data()) != 0 || ::fcntl(gPipe[0], F_SETFL, O_NONBLOCK) != 0) ::_exit(1);
    ::dup2(gPipe[1], STDOUT_FILENO);
    struct sigaction action {};
    action.sa_handler = takeFromPipeNowAndThen;  // without SA_RESTART
    ::sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 1000}, {0, 1000}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    writeStandardOutput(std::string(size, 'x'));
    const itimerval never{};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    takeFromPipe();
    static_cast<void>(writeAll(results, std::to_string(gTaken)));
  });
  EXPECT_EQ(ended.output, std::to_string(size));
}

}  // namespace
}  // namespace brisko::standard_output_test
