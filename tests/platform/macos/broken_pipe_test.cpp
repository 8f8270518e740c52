// A write to a closed pipe on a Mac, where the signal is sent to the process and any thread may handle it.

#include <csignal>
#include <cstdlib>

#include <dispatch/dispatch.h>
#include <unistd.h>

#include "daemon/entry.h"
#include "sim/seam/simulated/driver.h"
#include "support/child.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::broken_pipe_test {
namespace {

using namespace test;

void closeTheReaderOf(int stream) {
  int ends[2];
  if (::pipe(ends) != 0) ::_exit(1);
  ::dup2(ends[1], stream);
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(BrokenPipe, doesNotEndTheDaemon) {
  VirtualMac mac;
  const double end = mac.machine().now + 600;
  const auto ended = inChild([end] {
    closeTheReaderOf(STDOUT_FILENO);
    closeTheReaderOf(STDERR_FILENO);
    virtual_mac::setHorizon(end, []() -> double { ::_exit(7); });
    std::exit(enter({"brisko-daemon"}));
  });
  EXPECT_EQ(ended.signal, std::nullopt);
  EXPECT_EQ(ended.status, 7) << "it ran to the end";
  EXPECT_THAT(mac.logLines(), Contains(StartsWith("cap 80%")));
}

// The fake itself.
TEST(BrokenPipe, endsAProcessWithDispatchEvenIfItsThreadBlocksTheSignal) {
  for (const bool withDispatch : {false, true}) {
    const auto ended = inChild([withDispatch] {
      if (withDispatch) {
        dispatch_resume(
            dispatch_source_create(DISPATCH_SOURCE_TYPE_DATA_OR, 0, 0, dispatch_get_main_queue()));
      }
      sigset_t brokenPipe;
      sigemptyset(&brokenPipe);
      sigaddset(&brokenPipe, SIGPIPE);
      ::pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
      closeTheReaderOf(STDOUT_FILENO);
      if (::write(STDOUT_FILENO, "x", 1) >= 0) ::_exit(1);
    });
    EXPECT_EQ(ended.signal, withDispatch ? std::optional(SIGPIPE) : std::nullopt);
  }
}

}  // namespace
}  // namespace brisko::broken_pipe_test
