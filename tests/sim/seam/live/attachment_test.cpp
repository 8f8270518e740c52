// Which machine a program uses, and its errors without one.

#include <cstdlib>
#include <fstream>

#include <unistd.h>

#include "platform/clock.h"
#include "platform/host.h"
#include "platform/run_loop.h"
#include "platform/smc_service.h"
#include "sim/seam/live/live_folder.h"
#include "support/testing.h"

namespace brisko::attachment_test {
namespace {

using namespace test;

void useMachineIn(const std::string& folder) {
  ::setenv("BRISKO_VIRTUAL_MAC", folder.c_str(), 1);
  (void)platform::wallNow();
  std::fputs("continued\n", stderr);
}

TEST(LiveMachineDeathTest, endsWithOneLineAndStatus1WhenItsFolderIsMissing) {
  EXPECT_EXIT(useMachineIn("/no such folder"), ::testing::ExitedWithCode(1),
              "^brisko-daemon: the folder /no such folder does not exist\n$");
}

TEST(LiveMachineDeathTest, endsWithOneLineAndStatus1WhenTheFolderIsNotAMachine) {
  const ScratchFolder scratch;
  std::ofstream(scratch.path() + "/machine") << "not ours";
  EXPECT_EXIT(useMachineIn(scratch.path()), ::testing::ExitedWithCode(1),
              "^brisko-daemon: the file " + scratch.path() + "/machine is not a virtual Mac\n$");
}

TEST(LiveMachine, isNamedRelativeToTheWorkingDirectoryAtTheStart) {
  const LiveFolder folder;
  const std::string parent = folder.path().substr(0, folder.path().rfind('/'));
  ASSERT_EQ(::chdir(parent.c_str()), 0);
  ::setenv("BRISKO_VIRTUAL_MAC", "machine of ours", 1);
  EXPECT_EQ(platform::volumeRoot(), folder.path() + "/volume");
}

TEST(LiveMachine, isMissingIfTheVariableIsEmpty) {
  ::setenv("BRISKO_VIRTUAL_MAC", "", 1);
  EXPECT_EQ(platform::openSmc().status, platform::kernelNotFound);
}

TEST(LiveMachine, isReplacedByTheRealComputerIfMissing) {
  EXPECT_EQ(platform::effectiveUserId(), ::geteuid());
  EXPECT_EQ(platform::osMajor(), 0);
  EXPECT_EQ(platform::processId(), ::getpid());
}

TEST(LiveMachine, continuesWhileNoProcessRuns) {
  LiveFolder folder(test::machineFromNow({}, 1));
  // As if no process had used it for a day.
  folder.store().update().machine().realAnchor -= 86'400;
  folder.name();
  const double before = folder.store().view().machine().now;
  EXPECT_GE(platform::uptime(), virtual_mac::MachineOptions{}.uptime + 86'400);
  EXPECT_GE(folder.store().view().machine().now, before + 86'400) << "opening the machine advances it";
}

TEST(LiveMachine, isNotAdvancedTwiceWithinASecond) {
  LiveFolder folder(test::machineFromNow({}, 0.001));
  folder.name();
  const double before = folder.store().view().machine().now;
  (void)platform::wallNow();
  (void)platform::osMajor();
  EXPECT_EQ(folder.store().view().machine().now, before);
}

TEST(LiveMachine, neverGoesBackWhenTheRealClockDoes) {
  LiveFolder folder(test::machineFromNow({}, 1));
  folder.name();
  folder.store().update().machine().realAnchor -= 3600;
  const double uptimeBefore = platform::uptime();
  const double wallBefore = platform::wallNow();
  folder.store().update().machine().realAnchor += 7200;
  EXPECT_GE(platform::uptime(), uptimeBefore);
  // The wall clock continues from the last update of the machine, which may be a second old.
  EXPECT_GT(platform::wallNow(), wallBefore - 1);
}

TEST(LiveMachine, followsItsSpeed) {
  LiveFolder folder(test::machineFromNow({}, 100'000));
  folder.name();
  const double before = platform::uptime();
  platform::pause(3600);  // 36 ms
  EXPECT_GE(platform::uptime(), before + 3600);
}

TEST(LiveMachine, isPausedAtSpeed0) {
  LiveFolder folder(test::machineFromNow({}, 0));
  folder.name();
  EXPECT_EQ(platform::uptime(), platform::uptime());
  platform::postMain([] { platform::stopMain(); });
  platform::runMain();
}

}  // namespace
}  // namespace brisko::attachment_test
