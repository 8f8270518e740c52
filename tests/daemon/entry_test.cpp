#include "daemon/entry.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/options.h"
#include "base/plain_files.h"
#include "base/process_flags.h"
#include "platform/host.h"
#include "support/child.h"
#include "support/daemon_process.h"
#include "support/descriptors.h"
#include "support/scratch_folder.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::entry_test {
namespace {

using namespace test;

constexpr const char* noController = "⛔️ Could not open AppleSMC.\n";

// How a process with these arguments ends before its first wait.
struct Outcome {
  std::optional<int> status;
  std::string output;
  std::string errors;
};

Outcome run(VirtualMac& mac, const std::vector<std::string>& arguments) {
  DaemonProcess daemon(mac, arguments);
  daemon.run(0);
  return {daemon.status(), daemon.output(), daemon.errors()};
}

void expectEnd(const Outcome& outcome, int status, const std::string& output, const std::string& errors) {
  EXPECT_EQ(outcome.status, status);
  EXPECT_EQ(outcome.output, output);
  EXPECT_EQ(outcome.errors, errors);
}

// A Mac without a controller: its error message shows that the service was started.
class EntryTest : public testing::Test {
 protected:
  EntryTest() { mac.number(ChangeKind::smcService, static_cast<double>(virtual_mac::SmcService::absent)); }

  VirtualMac mac;
};

TEST_F(EntryTest, startsTheDaemonWithoutAMode) {
  expectEnd(run(mac, {}), 1, "", noController);
  expectEnd(run(mac, {"--json"}), 1, "", noController);
  expectEnd(run(mac, {"--config", "--probe"}), 1, "", noController);
  expectEnd(run(mac, {"--limit", "--version"}), 1, "", noController);
  expectEnd(run(mac, {"--help"}), 1, "", noController);
}

TEST_F(EntryTest, refusesADaemonThatIsNotRoot) {
  mac.number(ChangeKind::userId, 501);
  expectEnd(run(mac, {}), 1, "", "⛔️ brisko-daemon has to run as root (sudo).\n");
}

TEST_F(EntryTest, printsTheVersion) {
  expectEnd(run(mac, {"--version"}), 0, "0.9.9\n", "");
  expectEnd(run(mac, {"--probe", "--json", "--version"}), 0, "0.9.9\n", "");
}

TEST_F(EntryTest, printsTheVersionWithoutRoot) {
  mac.number(ChangeKind::userId, 501);
  expectEnd(run(mac, {"--version"}), 0, "0.9.9\n", "");
}

TEST_F(EntryTest, runsTheFirmwareTestBeforeAnythingElse) {
  // Its message goes to standard output, that of the daemon to standard error.
  expectEnd(run(mac, {"--probe", "--version", "--selftest", "--fwtest"}), 1, "Could not open AppleSMC.\n",
            "");
}

TEST_F(EntryTest, prefersTheSelfTestToTheVersion) {
  const Outcome outcome = run(mac, {"--version", "--selftest", "--probe"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, StartsWith("✓ "));
  EXPECT_EQ(outcome.errors, "");
}

TEST_F(EntryTest, probesWithAndWithoutJson) {
  expectEnd(run(mac, {"--probe"}), 1, "Could not open AppleSMC.\n", "");
  expectEnd(run(mac, {"--json", "--probe"}), 1, "Could not open AppleSMC.\n", "");
}

TEST_F(EntryTest, needsRootForTheFirmwareTestAndNoOtherMode) {
  mac.number(ChangeKind::userId, 501);
  expectEnd(run(mac, {"--fwtest"}), 1, "", "⛔️ --fwtest has to run as root (sudo).\n");
  expectEnd(run(mac, {"--version", "--selftest", "--probe", "--fwtest"}), 1, "",
            "⛔️ --fwtest has to run as root (sudo).\n");
  EXPECT_EQ(run(mac, {"--selftest"}).status, 0);
  EXPECT_EQ(run(mac, {"--probe"}).errors, "");
}

TEST_F(EntryTest, reportsWhenTheControllerRefuses) {
  mac.number(ChangeKind::smcService, static_cast<double>(virtual_mac::SmcService::refusesToOpen));
  expectEnd(run(mac, {}), 1, "", noController);
}

TEST_F(EntryTest, writesNoFileInTheseModes) {
  static_cast<void>(run(mac, {}));
  for (const char* mode : {"--fwtest", "--selftest", "--probe", "--version"})
    static_cast<void>(run(mac, {mode}));
  EXPECT_FALSE(mac.exists("/Library/Logs/Brisko"));
  EXPECT_FALSE(mac.exists("/Library/Application Support/Brisko"));
}

TEST(EntryWithoutRoot, touchesNoHardware) {
  VirtualMac mac;
  mac.keepReads();
  mac.number(ChangeKind::userId, 501);
  EXPECT_EQ(run(mac, {}).status, 1);
  EXPECT_EQ(mac.machine().system.processes, 0U);
  EXPECT_TRUE(mac.journal().empty());
}

TEST(EntryMode, opensNoControllerWithoutNeed) {
  VirtualMac mac;
  for (const char* mode : {"--selftest", "--version"}) static_cast<void>(run(mac, {mode}));
  EXPECT_EQ(mac.machine().system.processes, 0U);
}

TEST(EntryMode, recordsItsStartItsPathAndItsOptions) {
  const VirtualMac mac({.startTime = 1772352930.5});
  ASSERT_EQ(enter({"brisko-daemon", "--version", "--limit", "75"}), 0);
  EXPECT_EQ(daemonStartedAt, 1772352930.5);
  EXPECT_EQ(gDaemonPath, platform::executablePath().value_or(""));
  EXPECT_EQ(gCliLimit, 75);
}

TEST(EntryMode, opensTheNullDeviceForClosedStandardStreams) {
  const VirtualMac mac;
  const auto ended = inChild([] {
    const int kept = ::dup(STDOUT_FILENO);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
    const int status = enter({"brisko-daemon", "--version"});
    struct stat null {};
    struct stat stream {};
    bool all = ::stat("/dev/null", &null) == 0;
    for (int number = 0; number < 3; ++number) {
      all = all && ::fstat(number, &stream) == 0 && stream.st_rdev == null.st_rdev;
    }
    ::dup2(kept, STDOUT_FILENO);
    tell(std::to_string(status) + (all ? " all" : " not all"));
  });
  EXPECT_EQ(ended.output, "0 all");
}

// The signal would end a daemon that holds the charge.
TEST(EntryMode, outlivesALimitForTheSizeOfItsFiles) {
  const VirtualMac mac;
  const test::ScratchFolder folder;
  const auto ended = inChild([&] {
    const rlimit most{.rlim_cur = 1000, .rlim_max = 1000};
    static_cast<void>(::setrlimit(RLIMIT_FSIZE, &most));
    static_cast<void>(enter({"brisko-daemon", "--version"}));
    tell(plain::overwriteFile(folder.path("large"), std::string(2000, ' ')) ? "written" : "refused");
  });
  EXPECT_EQ(ended.signal, std::nullopt);
  EXPECT_EQ(ended.output, "0.9.9\nrefused");
}

TEST(EntryMode, keepsOpenStandardStreams) {
  const VirtualMac mac;
  const auto ended = inChild([] {
    const std::size_t before = test::openDescriptors();
    static_cast<void>(enter({"brisko-daemon", "--version"}));
    tell(test::openDescriptors() == before ? "no descriptor more\n" : "a descriptor more\n");
  });
  EXPECT_EQ(ended.output, "0.9.9\nno descriptor more\n");
}

}  // namespace
}  // namespace brisko::entry_test
