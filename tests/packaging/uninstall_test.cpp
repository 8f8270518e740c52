#include <algorithm>
#include <string>

#include "packaging/scratch_mac.h"
#include "support/testing.h"

namespace brisko::test::uninstall_test {
namespace {

const std::string runsOnce = "brisko-daemon --limit 100 --config /tmp/SCRATCH/no-settings.json";

// A Mac on which the service runs.
class Uninstall : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(mac.install().status, 0);
    put(mac.at(dataFolder + "/config.json"), R"({"limit":70})");
    mac.forgetJournal();
  }

  void expectNothingLeft() const {
    EXPECT_THAT(mac.added(), IsEmpty());
    EXPECT_FALSE(mac.job());
  }

  ScratchMac mac;
};

TEST_F(Uninstall, stopsTheServiceAndLeavesNothing) {
  mac.put("/Library/Logs/Brisko/daemon.log.1", "older");
  mac.put("/Library/Logs/Brisko/daemon.err.log.0", "older");

  const Finished run = mac.uninstall();

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  expectNothingLeft();
  EXPECT_THAT(mac.journal("launchctl"), ElementsAre("launchctl print system/com.brisko.daemon",
                                                    "launchctl bootout system/com.brisko.daemon",
                                                    "launchctl print system/com.brisko.daemon"));
  // The daemon had said good-bye in its log.
  EXPECT_THAT(mac.journal("brisko-daemon"), IsEmpty());
}

TEST_F(Uninstall, reportsWhatItDid) {
  const Finished run = mac.uninstall();

  EXPECT_THAT(run.output, HasSubstr("Stopped the service com.brisko.daemon.\n"));
  EXPECT_THAT(run.output, HasSubstr("The daemon had given the charge back.\n"));
  for (const std::string& path :
       {jobPath, programFile, std::string("/Library/Brisko/brisko"),
        std::string("/Library/Brisko/brisko-lab"), std::string("/Library/Brisko/share"), dataFolder,
        std::string("/Library/Logs/Brisko"), std::string("/Library/Brisko/uninstall-service.sh"),
        std::string("/Library/Brisko"), std::string("/etc/newsyslog.d/com.brisko.daemon.conf")}) {
    EXPECT_THAT(run.output, HasSubstr("Removed " + mac.at(path) + "\n"));
  }
}

TEST_F(Uninstall, worksAsTheCopyThatWasInstalled) {
  const Finished run = mac.runScript(mac.at("/Library/Brisko/uninstall-service.sh"), {});

  EXPECT_EQ(run.status, 0) << run.errors;
  expectNothingLeft();
}

TEST_F(Uninstall, worksInTheShellOfAMac) {
  mac.useBash();
  mac.put(dataFolder + "/stats.json", R"({"protectedSeconds":1e300})");
  mac.crash();

  const Finished run = mac.uninstall();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  EXPECT_THAT(mac.journal(), Contains("charge given back, the job there"));
  expectNothingLeft();
}

TEST_F(Uninstall, findsNothingToDoTheSecondTime) {
  ASSERT_EQ(mac.uninstall().status, 0);
  mac.forgetJournal();

  const Finished run = mac.uninstall();

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "There was nothing to remove.\n");
  EXPECT_THAT(mac.journal("launchctl"), ElementsAre("launchctl print system/com.brisko.daemon"));
  expectNothingLeft();
}

TEST_F(Uninstall, leavesTheDataWhenToldTo) {
  const Finished run = mac.uninstall({"--keep-data"});

  EXPECT_EQ(run.status, 0);
  EXPECT_FALSE(mac.job());
  EXPECT_THAT(mac.added(),
              ElementsAre("/Library/Application Support/Brisko 755",
                          "/Library/Application Support/Brisko/config.json 644",
                          "/Library/Application Support/Brisko/history 755",
                          "/Library/Application Support/Brisko/stats.json 644",
                          "/Library/Application Support/Brisko/status.json 644", "/Library/Logs/Brisko 755",
                          "/Library/Logs/Brisko/daemon.err.log 644", "/Library/Logs/Brisko/daemon.log 644"));
  EXPECT_THAT(run.output, HasSubstr("Kept " + mac.at(dataFolder) + "\n"));

  EXPECT_EQ(mac.uninstall().status, 0);
  expectNothingLeft();
}

TEST_F(Uninstall, givesTheChargeBackItselfAfterADaemonThatWasCutOff) {
  mac.crash();

  const Finished run = mac.uninstall();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("Ran the program once to give the charge back.\n"));
  EXPECT_THAT(mac.journal("brisko-daemon"), ElementsAre(runsOnce));
  EXPECT_THAT(mac.journal(), Contains("charge given back, the job there"));
  expectNothingLeft();
}

TEST_F(Uninstall, givesTheChargeBackItselfWhenNoLogReportsIt) {
  ASSERT_EQ(std::remove(mac.at("/Library/Logs/Brisko/daemon.log").c_str()), 0);
  mac.crash();

  EXPECT_EQ(mac.uninstall().status, 0);

  EXPECT_THAT(mac.journal("brisko-daemon"), ElementsAre(runsOnce));
  expectNothingLeft();
}

TEST_F(Uninstall, readsTheGoodByeAlsoInTheOlderLog) {
  mac.put("/Library/Logs/Brisko/daemon.log.1",
          "2026-03-01T08:00:00Z  brisko-daemon started (event-driven)\n"
          "2026-03-01T09:00:00Z  Signal 15: handing the macOS limit back, exiting.\n");
  mac.put("/Library/Logs/Brisko/daemon.log", "");
  mac.crash();

  EXPECT_EQ(mac.uninstall().status, 0);

  EXPECT_THAT(mac.journal("brisko-daemon"), IsEmpty());
}

TEST_F(Uninstall, doesNotNeedTheSettings) {
  mac.put(dataFolder + "/config.json", R"({"limit":1e300})");
  mac.crash();

  const Finished run = mac.uninstall({"--keep-data"});

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(mac.journal("brisko-daemon"), ElementsAre(runsOnce));
  EXPECT_THAT(mac.journal("mv"), IsEmpty());
  EXPECT_EQ(contents(mac.at(dataFolder + "/config.json")), R"({"limit":1e300})");
}

TEST_F(Uninstall, givesTheChargeBackWithoutTheDataThatEndsEveryStart) {
  mac.put(dataFolder + "/stats.json", R"({"protectedSeconds":1e300})");
  mac.crash();

  const Finished run = mac.uninstall();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("Ran the program once, without its data, to give the charge back."));
  EXPECT_THAT(mac.journal("brisko-daemon"), ElementsAre(runsOnce, runsOnce));
  EXPECT_THAT(mac.journal(), Contains("charge given back, the job there"));
  expectNothingLeft();
}

TEST_F(Uninstall, putsTheDataBackThatIsToBeKept) {
  mac.put(dataFolder + "/stats.json", R"({"protectedSeconds":1e300})");
  mac.crash();

  EXPECT_EQ(mac.uninstall({"--keep-data"}).status, 0);

  EXPECT_EQ(contents(mac.at(dataFolder + "/stats.json")), R"({"protectedSeconds":1e300})");
  EXPECT_EQ(contents(mac.at(dataFolder + "/config.json")), R"({"limit":70})");
  EXPECT_FALSE(exists(mac.at(dataFolder + ".aside")));
}

TEST_F(Uninstall, putsTheDataBackAndEndsTheProgramWhenItIsInterrupted) {
  mac.put(dataFolder + "/stats.json", R"({"protectedSeconds":1e300})");
  mac.crash();

  const Finished run = mac.uninstall({}, {{"FAKE_INTERRUPT", "1"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(mac.journal(), Contains("charge given back, the job there"));
  EXPECT_EQ(contents(mac.at(dataFolder + "/stats.json")), R"({"protectedSeconds":1e300})");
  EXPECT_FALSE(exists(mac.at(dataFolder + ".aside")));
  EXPECT_TRUE(exists(mac.at(programFile)));
}

TEST_F(Uninstall, removesEverythingAndReportsItWhenTheProgramDoesNotRunAtAll) {
  mac.crash();

  const Finished run = mac.uninstall({}, {{"FAKE_BROKEN", "134"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors,
              HasSubstr("so the charge may still be held. Its last message: brisko-daemon: broken"));
  expectNothingLeft();
}

TEST_F(Uninstall, endsAProgramThatDoesNotWantTo) {
  mac.crash();

  const Finished run = mac.uninstall({}, {{"FAKE_DEAF", "1"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("so the charge may still be held."));
  expectNothingLeft();
}

TEST_F(Uninstall, reportsWhenTheProgramThatCouldGiveTheChargeBackIsGone) {
  ASSERT_EQ(std::remove(mac.at(programFile).c_str()), 0);
  mac.crash();

  const Finished run = mac.uninstall();

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("its program is missing: the charge may still be held."));
  expectNothingLeft();
}

TEST_F(Uninstall, removesNothingUnderAServiceThatDoesNotStop) {
  const Words before = mac.added();

  const Finished run = mac.uninstall({}, {{"FAKE_STUBBORN", "1"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("does not stop, so nothing was removed."));
  EXPECT_EQ(mac.added(), before);
}

TEST_F(Uninstall, continuesWhenSomethingStays) {
  const Finished run = mac.uninstall({}, {{"FAKE_STAYS", mac.at(programFile)}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("Could not remove " + mac.at(programFile) + "\n"));
  EXPECT_THAT(mac.added(), ElementsAre("/Library/Brisko 755", "/Library/Brisko/brisko-daemon 755"));
}

TEST_F(Uninstall, leavesTheFilesOfOthers) {
  mac.put("/Library/Brisko/other", "");
  mac.put("/Library/LaunchDaemons/com.example.plist", "");
  mac.put("/elsewhere/file", "");
  makeLink(mac.at(dataFolder + "/elsewhere"), mac.at("/elsewhere"));

  const Finished run = mac.uninstall();

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("/Library/Brisko contains other files, so it is kept."));
  EXPECT_THAT(mac.added(), ElementsAre("/Library/Brisko 755", "/Library/Brisko/other 644",
                                       "/Library/LaunchDaemons/com.example.plist 644", "/elsewhere 755",
                                       "/elsewhere/file 644"));
}

TEST_F(Uninstall, wantsRoot) {
  const Words before = mac.added();

  const Finished run = mac.uninstall({}, {{"FAKE_USER", "501"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "This has to run as root (sudo).\n");
  EXPECT_EQ(mac.added(), before);
  EXPECT_THAT(mac.journal("launchctl"), IsEmpty());
}

TEST_F(Uninstall, refusesArgumentsThatMakeNoSense) {
  const Words before = mac.added();
  for (const Words& arguments :
       {Words{"--nonsense"}, Words{"extra"}, Words{""}, Words{"--keep-data", "now"}}) {
    const Finished run = mac.uninstall(arguments);
    EXPECT_EQ(run.status, 2) << arguments.front();
    EXPECT_THAT(run.errors, HasSubstr("Try --help.\n"));
  }
  EXPECT_EQ(mac.added(), before);
}

TEST_F(Uninstall, explainsItselfToAnyone) {
  const Finished run = mac.uninstall({"--help"}, {{"FAKE_USER", "501"}});

  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, HasSubstr("--keep-data"));
  EXPECT_THAT(mac.journal(), IsEmpty());
}

TEST_F(Uninstall, canBeFollowedByAnInstallation) {
  ASSERT_EQ(mac.uninstall({"--keep-data"}).status, 0);

  EXPECT_EQ(mac.install().status, 0);

  EXPECT_TRUE(mac.job());
  EXPECT_EQ(contents(mac.at(dataFolder + "/config.json")), R"({"limit":70})");
}

TEST_F(Uninstall, isMendedByAnInstallationWhenCutOffWithTheDataAside) {
  std::rename(mac.at(dataFolder).c_str(), mac.at(dataFolder + ".aside").c_str());

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("Restored the previous data to "));
  EXPECT_EQ(contents(mac.at(dataFolder + "/config.json")), R"({"limit":70})");
  EXPECT_FALSE(exists(mac.at(dataFolder + ".aside")));
}

TEST_F(Uninstall, removesTheDataThatACutOffRunLeftAside) {
  std::rename(mac.at(dataFolder).c_str(), mac.at(dataFolder + ".aside").c_str());

  EXPECT_EQ(mac.uninstall().status, 0);

  expectNothingLeft();
}

TEST_F(Uninstall, leavesFoldersAndLinksOfOthersInThePath) {
  mac.put("/usr/local/share/man/man1/other.1", "");
  std::remove(mac.at("/usr/local/bin/brisko").c_str());
  makeLink(mac.at("/usr/local/bin/brisko"), mac.at("/elsewhere"));

  EXPECT_EQ(mac.uninstall().status, 0);

  EXPECT_THAT(mac.added(),
              ElementsAre("/usr/local/bin 755", "/usr/local/bin/brisko -> " + mac.at("/elsewhere"),
                          "/usr/local/share 755", "/usr/local/share/man 755", "/usr/local/share/man/man1 755",
                          "/usr/local/share/man/man1/other.1 644"));
}

TEST(Uninstalled, leavesFoldersThatWereThereBefore) {
  const ScratchMac mac;
  mac.put("/usr/local/share/zsh/file", "");
  std::remove(mac.at("/usr/local/share/zsh/file").c_str());
  ASSERT_EQ(mac.install().status, 0);

  EXPECT_EQ(mac.uninstall().status, 0);

  EXPECT_THAT(mac.added(), ElementsAre("/usr/local/share 755", "/usr/local/share/zsh 755"));
}

TEST_F(Uninstall, givesTheChargeBackOrReportsThatItMayBeHeld) {
  EXPECT_TRUE(mac.isHeld());
  EXPECT_EQ(mac.uninstall().status, 0);
  EXPECT_FALSE(mac.isHeld());
}

}  // namespace
}  // namespace brisko::test::uninstall_test
