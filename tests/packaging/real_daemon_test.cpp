// The uninstaller with the real daemon on a live virtual Mac: the program must do what the uninstaller relies
// on.

#include <filesystem>
#include <string>

#include "packaging/scratch_mac.h"
#include "process/live_mac.h"
#include "support/testing.h"

namespace brisko::test {
namespace {

namespace fs = std::filesystem;

const std::string charging = "00000000";
const std::string stopped = "01000000";

class RealDaemon : public ::testing::Test {
 protected:
  // Runs a daemon that holds the charge, and ends it either in order, so that it gives the charge back, or by
  // a kill.
  void holdAndEnd(int signal) {
    mac.settings(R"({"limit":80})");
    const auto daemon = mac.daemon();
    ASSERT_TRUE(mac.logs("→ state: hold"));
    ASSERT_EQ(mac.key("CHTE"), stopped);
    daemon->signal(signal);
    ASSERT_TRUE(daemon->ends());
  }

  [[nodiscard]] std::string at(const std::string& path) const { return mac.folder() + "/volume" + path; }

  [[nodiscard]] Finished uninstall() const {
    fs::create_directories(at("/Library/Brisko"));
    fs::create_directories(at("/tmp"));
    fs::copy_file(programPath("brisko-daemon"), at("/Library/Brisko/brisko-daemon"));
    return run("/bin/sh", {std::string(BRISKO_PACKAGING) + "/uninstall-service.sh"},
               {{"BRISKO_ROOT", mac.folder() + "/volume"},
                {"BRISKO_VIRTUAL_MAC", mac.folder()},
                {"FAKE_MAC", tools.path()},
                {"FAKE_SECOND", "0.2"},
                {"PATH", std::string(BRISKO_FAKES) + ":/usr/bin:/bin"}});
  }

  void expectNothingLeft() const {
    EXPECT_FALSE(exists(at("/Library/Brisko")));
    EXPECT_FALSE(exists(at(dataFolder)));
    EXPECT_FALSE(exists(at("/Library/Logs/Brisko")));
  }

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

TEST_F(RealDaemon, isNotRunAgainAfterAnOrderlyExit) {
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

}  // namespace
}  // namespace brisko::test
