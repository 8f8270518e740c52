// The scripts with the real daemon on a live virtual Mac: what they expect of the program must be what the
// program does.

#include <filesystem>
#include <string>

#include "packaging/scratch_mac.h"
#include "process/live_mac.h"
#include "support/testing.h"

namespace brisko::test::real_daemon_test {
namespace {

namespace fs = std::filesystem;

const std::string charging = "00000000";
const std::string stopped = "01000000";

class RealDaemon : public ::testing::Test {
 protected:
  // A daemon that holds the charge and then ends in a way that gives it the time to give it back, or not.
  void holdAndEnd(int signal) {
    mac.settings(R"({"limit":80})");
    const auto daemon = mac.daemon();
    ASSERT_TRUE(mac.logs("→ state: hold"));
    ASSERT_EQ(mac.key("CHTE"), stopped);
    daemon->signal(signal);
    ASSERT_TRUE(daemon->ends());
  }

  [[nodiscard]] std::string at(const std::string& path) const { return mac.folder() + "/volume" + path; }

  void putProgram() const {
    fs::create_directories(at("/Library/Brisko"));
    fs::copy_file(programPath("brisko-daemon"), at("/Library/Brisko/brisko-daemon"));
  }

  [[nodiscard]] Finished runScript(const std::string& name, const Words& arguments = {},
                                   Environment environment = {}) const {
    for (const char* path : {"/tmp", "/Library/LaunchDaemons", "/Library/Logs",
                             "/Library/Application Support", "/etc/newsyslog.d", "/usr/local"}) {
      fs::create_directories(at(path));
    }
    environment.merge(Environment{{"BRISKO_ROOT", mac.folder() + "/volume"},
                                  {"BRISKO_VIRTUAL_MAC", mac.folder()},
                                  {"FAKE_MAC", tools.path()},
                                  {"FAKES", BRISKO_FAKES},
                                  {"FAKE_SECOND", "0.2"},
                                  {"PATH", BRISKO_FAKES}});
    Words words{std::string(BRISKO_PACKAGING) + "/" + name};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run("/bin/sh", words, environment);
  }

  [[nodiscard]] Finished uninstall() const {
    if (!exists(at("/Library/Brisko/brisko-daemon"))) putProgram();
    return runScript("uninstall-service.sh");
  }

  [[nodiscard]] Finished install(const Environment& environment = {}) const {
    return runScript("install-service.sh", {"--program", programPath("brisko-daemon")}, environment);
  }

  void expectNothingLeft() const {
    EXPECT_FALSE(exists(at("/Library/Brisko")));
    EXPECT_FALSE(exists(at(dataFolder)));
    EXPECT_FALSE(exists(at("/Library/Logs/Brisko")));
  }

  // What the programs find after an upgrade of macOS to a version that closes the keys.
  const Environment closed{{"BRISKO_PRETEND_MACOS", "27"}, {"BRISKO_PRETEND_NO_NATIVE", "1"}};
  const Environment closedWithLimit{{"BRISKO_PRETEND_MACOS", "27"}};

  LiveMac mac{{"--charge", "85"}};
  ScratchFolder tools;
};

TEST_F(RealDaemon, givesTheChargeBackWhenTheUninstallerRunsIt) {
  holdAndEnd(SIGKILL);
  ASSERT_EQ(mac.key("CHTE"), stopped);

  const Finished run = uninstall();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("Ran the program once to give the charge back.\n"));
  EXPECT_EQ(mac.key("CHTE"), charging);
  expectNothingLeft();
}

TEST_F(RealDaemon, needNotRunAgainAfterItsOrderlyExit) {
  holdAndEnd(SIGTERM);

  const Finished run = uninstall();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("The daemon had given the charge back.\n"));
  EXPECT_THAT(run.output, Not(HasSubstr("Ran the program")));
  EXPECT_EQ(mac.key("CHTE"), charging);
  expectNothingLeft();
}

TEST_F(RealDaemon, givesTheChargeBackWithoutDataThatEndItsStarts) {
  holdAndEnd(SIGKILL);
  put(at(dataFolder + "/config.json"), R"({"limit":1e300})");
  put(at(dataFolder + "/stats.json"), R"({"protectedSeconds":1e300})");

  const Finished run = uninstall();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("Ran the program once, without its data, to give the charge back."));
  EXPECT_EQ(mac.key("CHTE"), charging);
  expectNothingLeft();
}

TEST_F(RealDaemon, isUpgradedAfterAnUpgradeOfMacOSThatClosesTheKeys) {
  holdAndEnd(SIGTERM);
  ASSERT_EQ(mac.key("CHTE"), charging);

  // No daemon is installed only to observe, but one that is there is upgraded.
  const Finished refused = install(closed);
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.errors, ::testing::EndsWith(" Nothing was installed.\n"));
  EXPECT_FALSE(exists(at("/Library/Brisko")));
  putProgram();
  const Finished upgraded = install(closed);
  EXPECT_EQ(upgraded.status, 0) << upgraded.errors;
  EXPECT_THAT(upgraded.output, HasSubstr("The installed daemon is upgraded nevertheless."));

  const auto daemon = mac.daemon({}, closed);
  ASSERT_TRUE(mac.logs("closed the keys Brisko writes, observing only"));
  daemon->signal(SIGTERM);
  ASSERT_TRUE(daemon->ends());
  EXPECT_EQ(mac.key("CHTE"), charging);
}

TEST_F(RealDaemon, isUpgradedBeforeAnUpgradeOfMacOSThatClosesTheKeys) {
  EXPECT_EQ(install().status, 0);
  holdAndEnd(SIGTERM);
  ASSERT_EQ(mac.key("CHTE"), charging);

  // Where the new macOS has a limit of its own, the probe finds it.
  const Finished again = install(closedWithLimit);
  EXPECT_EQ(again.status, 0) << again.errors;
  EXPECT_THAT(again.output, Not(HasSubstr("upgraded nevertheless")));

  const auto daemon = mac.daemon({}, closedWithLimit);
  ASSERT_TRUE(mac.logs("charging via macOS"));
  daemon->signal(SIGTERM);
  ASSERT_TRUE(daemon->ends());
  EXPECT_EQ(mac.key("CHTE"), charging);
}

}  // namespace
}  // namespace brisko::test::real_daemon_test
