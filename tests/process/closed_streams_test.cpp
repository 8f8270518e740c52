// Standard output and standard error are closed pipes; the exit status stays the same.

#include <csignal>
#include <optional>

#include <fcntl.h>
#include <unistd.h>

#include "process/live_mac.h"
#include "process/program.h"
#include "support/child.h"
#include "support/testing.h"

namespace brisko::closed_streams_test {
namespace {

using namespace test;

// As in a shell pipeline whose reader has ended.
void closeTheReaders() {
  int ends[2];
  if (::pipe(ends) != 0) ::_exit(98);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) ::dup2(ends[1], stream);
  ::close(ends[0]);
  ::close(ends[1]);
  std::signal(SIGPIPE, SIG_DFL);
}

void closeTheReadersOfNobody() {
  closeTheReaders();
  test::becomeNobody();
}

void expectStatus(const Ended& ended, int status) {
  EXPECT_EQ(ended.signal, std::nullopt);
  EXPECT_EQ(ended.status, status);
}

TEST(WithoutReaders, startWithoutRootExitsWithOne) {
  expectStatus(test::runPrepared({}, {}, closeTheReadersOfNobody), 1);
  expectStatus(test::runPrepared({"--fwtest"}, {}, closeTheReadersOfNobody), 1);
}

TEST(WithoutReaders, versionExitsWithZero) {
  expectStatus(test::runPrepared({"--version"}, {}, closeTheReadersOfNobody), 0);
}

TEST(WithoutReaders, startWithoutAControllerExitsWithOne) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  expectStatus(test::runPrepared({}, {}, closeTheReaders), 1);
}

TEST(WithoutReaders, startWithoutAnyChargeKeyExitsWithTwo) {
  const LiveMac mac({"--gate", "none"});
  expectStatus(test::runPrepared({}, {{"BRISKO_VIRTUAL_MAC", mac.folder()}}, closeTheReaders), 2);
}

TEST(WithoutReaders, otherModesExitWithTheirUsualStatus) {
  const LiveMac mac;
  const test::Environment machine{{"BRISKO_VIRTUAL_MAC", mac.folder()}};
  for (const Words& mode :
       {Words{"--probe"}, Words{"--probe", "--json"}, Words{"--selftest"}, Words{"--fwtest"}}) {
    expectStatus(test::runPrepared(mode, machine, closeTheReaders), 0);
  }
}

}  // namespace
}  // namespace brisko::closed_streams_test
