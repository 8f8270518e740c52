#include "diagnostics/self_test.h"

#include <cstdlib>
#include <filesystem>

#include "base/log.h"
#include "base/options.h"
#include "platform/host.h"
#include "state/charge_state_record.h"
#include "support/child.h"
#include "support/daemon_process.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::self_test_test {
namespace {

using namespace test;

constexpr const char* passed = "✓ 212 vérifications, aucune erreur.\n";

class SelfTest : public ::testing::Test {
 protected:
  SelfTest() { ::setenv("TMPDIR", temporary.path().c_str(), 1); }

  // The standard output of the run, followed by its status.
  [[nodiscard]] std::string outcome() {
    DaemonProcess daemon(mac, {"--selftest"});
    daemon.run(0);
    EXPECT_EQ(daemon.errors(), "");
    return daemon.output() + std::to_string(daemon.status().value_or(-1));
  }
  [[nodiscard]] std::string temporaryPath(const std::string& end) const {
    return temporary.path("brisko-selftest-" + end);
  }
  [[nodiscard]] static std::string process() { return std::to_string(platform::processId()); }

  const ScratchFolder temporary;
  VirtualMac mac;
};

TEST_F(SelfTest, passesInOneLine) { EXPECT_EQ(outcome(), passed + std::string("0")); }

TEST_F(SelfTest, leavesNothingInTheTemporaryFolder) {
  EXPECT_EQ(outcome(), passed + std::string("0"));
  EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
}

TEST_F(SelfTest, touchesNeitherKeysNorFilesNorTheLimitOfMacOS) {
  mac.keepReads();
  mac.settings("{\"limit\":60}");
  EXPECT_EQ(outcome(), passed + std::string("0"));
  EXPECT_EQ(mac.machine().smc.exchanges, 0U);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_FALSE(mac.exists("/Library/Logs/Brisko"));
  EXPECT_EQ(mac.read("/Library/Application Support/Brisko/config.json"), "{\"limit\":60}");
  EXPECT_FALSE(mac.exists("/Library/Application Support/Brisko/status.json"));
}

TEST_F(SelfTest, needsNoController) {
  mac.number(virtual_mac::ChangeKind::smcService, static_cast<double>(virtual_mac::SmcService::absent));
  EXPECT_EQ(outcome(), passed + std::string("0"));
}

TEST_F(SelfTest, restoresWhatItChanged) {
  const auto ended = inChild([] {
    gConfigPath = "/elsewhere.json";
    gState = ChargeState::discharge;
    const std::int32_t status = runSelfTests();
    LogFile::append("a line of the daemon\n");
    tell(std::to_string(status) + gConfigPath + stateName(gState));
  });
  EXPECT_EQ(ended.output, passed + std::string("0/elsewhere.jsondischarge"));
  EXPECT_EQ(mac.read("/Library/Logs/Brisko/daemon.log"), "a line of the daemon\n");
  EXPECT_FALSE(mac.exists("/elsewhere.json"));
}

TEST_F(SelfTest, restoresTheMaximumSizeOfTheLog) {
  const auto ended = inChild([] {
    static_cast<void>(runSelfTests());
    for (int count = 0; count < 100; ++count) LogFile::append(std::string(99, '.') + "\n");
  });
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(mac.read("/Library/Logs/Brisko/daemon.log").size(), 10'000U);
}

TEST_F(SelfTest, removesWhatAnEarlierRunLeft) {
  test::put(temporaryPath(process() + ".json"), "{");
  for (const char* kind : {"log-", "perms-"}) {
    test::makeFolder(temporaryPath(kind + process()));
    test::put(temporaryPath(kind + process()) + "/daemon.log", std::string(9000, '.'));
  }
  EXPECT_EQ(outcome(), passed + std::string("0"));
  EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
}

// The temporary folder may be writable for everybody.
TEST_F(SelfTest, followsNoPlantedLink) {
  const ScratchFolder others;
  test::put(others.path("file"), "theirs");
  test::put(others.path("daemon.log"), "theirs");
  test::makeLink(temporaryPath(process() + ".json"), others.path("file"));
  test::makeLink(temporaryPath("log-" + process()), others.path());
  test::makeLink(temporaryPath("perms-" + process()), others.path());
  EXPECT_EQ(outcome(), passed + std::string("0"));
  EXPECT_EQ(test::contents(others.path("file")), "theirs");
  EXPECT_EQ(test::contents(others.path("daemon.log")), "theirs");
  EXPECT_FALSE(test::exists(others.path("daemon.log.1")));
}

TEST_F(SelfTest, reportsWhatItCouldNotCheckWithoutATemporaryFolder) {
  ::setenv("TMPDIR", temporary.path("missing").c_str(), 1);
  EXPECT_EQ(outcome(),
            "✗ 3 erreur(s) sur 199 vérifications :\n"
            "  - config illisible après écriture\n"
            "  - le journal existe après bascule\n"
            "  - le dossier du journal redevient traversable (755)\n"
            "1");
  EXPECT_FALSE(test::exists(temporary.path("missing")));
}

TEST_F(SelfTest, reportsWhatItCouldNotCheckOnADiskWithoutRoomForALog) {
  DaemonProcess daemon(mac, {"--selftest"});
  daemon.limitFileSize(5000);
  daemon.run(0);
  EXPECT_EQ(daemon.status(), 1);
  EXPECT_EQ(daemon.output(),
            "✗ 1 erreur(s) sur 212 vérifications :\n"
            "  - un journal hérité trop gros bascule dès la première ligne\n");
  EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
}

// The longest path that the system takes is too short for a folder of the log, then for one of its files.
TEST_F(SelfTest, reportsWhatItCouldNotCheckInATemporaryFolderWithALengthyPath) {
  constexpr std::size_t longest = 4095;
  for (const char* tooLong : {"/logs", "/logs/daemon.log", "/logs/daemon.err.log"}) {
    const std::string end = "/brisko-selftest-perms-" + process() + tooLong;
    std::string folder = temporary.path(std::to_string(end.size()));
    test::makeFolder(folder);
    while (const std::size_t missing = longest + 1 - end.size() - folder.size()) {
      folder += "/" + std::string(missing > 202 ? 200 : missing - 1, 'x');
      test::makeFolder(folder);
    }
    ::setenv("TMPDIR", folder.c_str(), 1);
    EXPECT_THAT(outcome(),
                AllOf(HasSubstr("  - le dossier du journal redevient traversable (755)\n"), EndsWith("\n1")))
        << tooLong;
    EXPECT_TRUE(std::filesystem::is_empty(folder)) << tooLong;
  }
}

}  // namespace
}  // namespace brisko::self_test_test
