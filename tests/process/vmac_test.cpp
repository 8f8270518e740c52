// The program that makes and operates a virtual Mac.

#include <csignal>
#include <cstdlib>

#include "process/live_mac.h"
#include "process/program.h"
#include "support/testing.h"

namespace brisko::vmac_test {
namespace {

using namespace test;

void expectError(const Finished& finished, int status, const std::string& text) {
  EXPECT_EQ(finished.status, status);
  EXPECT_EQ(finished.output, "");
  EXPECT_THAT(finished.errors, HasSubstr(text));
}

TEST(Vmac, makesAMachineAndShowsIt) {
  const LiveMac mac({"--model", "pro16", "--charge", "42", "--unplugged", "--macos", "15"});
  const std::string shown = mac.vmac("show");
  EXPECT_THAT(shown, HasSubstr("MacBook Pro 16"));
  EXPECT_THAT(shown, HasSubstr("macOS 15"));
  EXPECT_THAT(shown, HasSubstr("charge       42"));
  EXPECT_THAT(shown, HasSubstr("adapter      unplugged"));
}

TEST(Vmac, offersEveryGateAndCutKey) {
  struct Case {
    const char* gate;
    const char* cut;
    const char* label;
  };
  for (const Case& wish :
       {Case{"chte", "chie", "CHTE, discharge CHIE"}, Case{"ch0b0c", "ch0i", "CH0B+CH0C, discharge CH0I"},
        Case{"firmware-band", "ch0j", "bfD0/bfE0/bfF0, discharge CH0J"},
        Case{"chte", "none", "CHTE, discharge off"}}) {
    const LiveMac mac({"--gate", wish.gate, "--cut", wish.cut});
    const auto daemon = mac.daemon();
    EXPECT_TRUE(mac.logs(std::string("charging via ") + wish.label + ", LED"))
        << wish.gate << ' ' << wish.cut;
  }
  const LiveMac mac({"--gate", "none"});
  const auto daemon = mac.daemon();
  ASSERT_TRUE(daemon->ends());
  EXPECT_EQ(daemon->status(), 2);
}

TEST(Vmac, makesAMacWithoutTheLight) {
  const LiveMac mac({"--no-light"});
  const auto daemon = mac.daemon();
  EXPECT_TRUE(mac.logs(", LED off, history"));
}

TEST(Vmac, makesAMacWhoseKeysAreClosed) {
  const LiveMac mac({"--macos", "27", "--no-limit"});
  const auto daemon = mac.daemon();
  EXPECT_TRUE(mac.logs("charging via nothing: macOS 27 closed the keys Brisko writes, observing only"));
}

TEST(Vmac, canStartTheDaemonAsAnotherUserThanRoot) {
  const LiveMac mac;
  mac.vmac("set", {"user=501"});
  const auto refused = mac.daemon();
  ASSERT_TRUE(refused->ends());
  EXPECT_EQ(refused->status(), 1);
  EXPECT_EQ(refused->errors(), "⛔️ brisko-daemon has to run as root (sudo).\n");
  mac.vmac("set", {"user=0"});
  const auto daemon = mac.daemon();
  EXPECT_TRUE(mac.logs("brisko-daemon started"));
}

TEST(Vmac, refusesAFolderThatIsNotEmpty) {
  const LiveMac mac;
  const std::string before = test::contents(mac.folder() + "/machine");
  expectError(run("brisko-vmac", {"new", mac.folder()}), 1, "brisko-vmac: ");
  EXPECT_EQ(test::contents(mac.folder() + "/machine"), before);
}

TEST(Vmac, reportsMissingAndInvalidArguments) {
  expectError(run("brisko-vmac", {}), 2, "");
  expectError(run("brisko-vmac", {"dance"}), 2, "");
  expectError(run("brisko-vmac", {"show"}), 2, "folder");
  const test::ScratchFolder scratch;
  expectError(run("brisko-vmac", {"new", scratch.path() + "/a", "--model", "toaster"}), 2, "toaster");
  expectError(run("brisko-vmac", {"new", scratch.path() + "/a", "--charge", "101"}), 2, "101");
  expectError(run("brisko-vmac", {"new", scratch.path() + "/a", "--gate", "door"}), 2, "door");
  EXPECT_FALSE(test::exists(scratch.path() + "/a"));
}

TEST(Vmac, reportsAFolderThatIsNotAMachine) {
  const test::ScratchFolder scratch;
  for (const char* verb : {"show", "plug", "unplug", "sleep", "wake", "boot", "shutdown", "watch"}) {
    const Finished finished = run("brisko-vmac", {verb, scratch.path()});
    EXPECT_EQ(finished.status, 1) << verb;
    EXPECT_THAT(finished.errors, StartsWith("brisko-vmac: ")) << verb;
    EXPECT_EQ(countOf(finished.errors, "\n"), 1U) << verb;
  }
}

TEST(Vmac, helpsWithEveryVerb) {
  for (const char* verb : {"new", "show", "watch", "plug", "unplug", "set", "speed", "sleep", "wake", "key",
                           "fault", "faults", "app", "boot", "shutdown"}) {
    const Finished finished = run("brisko-vmac", {verb, "--help"});
    EXPECT_EQ(finished.status, 0) << verb;
    EXPECT_THAT(finished.output, HasSubstr("Usage: brisko-vmac")) << verb;
  }
}

TEST(Vmac, plugsAndUnplugs) {
  const LiveMac mac;
  static_cast<void>(mac.vmac("unplug"));
  EXPECT_THAT(mac.vmac("show"), HasSubstr("adapter      unplugged"));
  static_cast<void>(mac.vmac("plug", {"--watts", "30"}));
  EXPECT_THAT(mac.vmac("show"), HasSubstr("adapter      30 W, connected"));
}

TEST(Vmac, setsValuesByName) {
  const LiveMac mac({"--unplugged"});
  static_cast<void>(mac.vmac("set", {"charge=33", "load=20", "temperature=41.5"}));
  EXPECT_NEAR(mac.charge(), 33, 0.5);
  EXPECT_THAT(mac.vmac("show"), HasSubstr("temperature  41."));
}

TEST(Vmac, changesNothingIfOneOfSeveralArgumentsIsInvalid) {
  const LiveMac mac({"--charge", "70"});
  for (const Words& words :
       {Words{"charge=20", "chrage=30"}, Words{"charge=20", "load=heavy"}, Words{"charge=20", "charge=101"},
        Words{"charge=20", "load"}, Words{"charge= 20"}}) {
    Words all{"set", mac.folder()};
    all.insert(all.end(), words.begin(), words.end());
    expectError(run("brisko-vmac", all), 2, "brisko-vmac: ");
  }
  EXPECT_NEAR(mac.charge(), 70, 0.6);
}

TEST(Vmac, writesKeysAsAnotherProgramWould) {
  const LiveMac mac;
  static_cast<void>(mac.vmac("key", {"CHTE=01000000", "ACLC=03"}));
  EXPECT_EQ(mac.key("CHTE"), "01000000");
  EXPECT_EQ(mac.key("ACLC"), "03");
  for (const char* bad : {"CHTE", "CHTE=1", "CHTE=xx", "TOOLONG=01", "CHT=01000000"}) {
    expectError(run("brisko-vmac", {"key", mac.folder(), bad}), 2, "KEY=HEX");
  }
}

TEST(Vmac, reportsTheJournalOfWrites) {
  const LiveMac mac({"--charge", "90"});
  const auto daemon = mac.daemon();
  ASSERT_TRUE(mac.logs("→ state: hold"));
  const std::string shown = mac.vmac("show", {"--journal", "10"});
  EXPECT_LT(shown.find("write CHIE 00"), shown.find("write CHTE 01000000"));
  EXPECT_NE(shown.find("write CHTE 01000000"), std::string::npos);
}

TEST(Vmac, injectsFaults) {
  const LiveMac mac;
  const Finished list = run("brisko-vmac", {"faults"});
  EXPECT_EQ(list.status, 0);
  EXPECT_THAT(list.output, HasSubstr("key-ignores-write"));
  static_cast<void>(mac.vmac("fault", {"key-ignores-write", "--key", "CHTE"}));
  EXPECT_THAT(mac.vmac("show"), HasSubstr("CHTE 00000000, ignores writes"));
  expectError(run("brisko-vmac", {"fault", mac.folder(), "gremlins"}), 2, "gremlins");
  expectError(run("brisko-vmac", {"fault", mac.folder(), "trickle", "--number", "many"}), 2, "many");
}

TEST(Vmac, makesAMacWithItsOwnLimitAndMovesItsSlider) {
  const LiveMac mac({"--macos", "27", "--speed", "100"});
  EXPECT_THAT(mac.vmac("show"), HasSubstr("limit        none, asked for none\n"));
  static_cast<void>(mac.vmac("set", {"limit=85"}));
  EXPECT_TRUE(eventually([&] {
    return mac.vmac("show").find("limit        85 %, asked for 85 %\n") != std::string::npos;
  })) << mac.vmac("show");
  static_cast<void>(mac.vmac("set", {"limit=off"}));
  EXPECT_TRUE(eventually([&] {
    return mac.vmac("show").find("limit        none, asked for none\n") != std::string::npos;
  })) << mac.vmac("show");
  expectError(run("brisko-vmac", {"set", mac.folder(), "limit=75"}), 2,
              "limit takes a number from 80 to 100");
  expectError(run("brisko-vmac", {"set", mac.folder(), "load=off"}), 2, "\"off\"");
}

TEST(Vmac, showsARequestedLimitBeforeItIsApplied) {
  const LiveMac mac({"--macos", "27"});
  static_cast<void>(mac.vmac("set", {"limit-delay=600", "limit=85", "charge-to-full=3600"}));
  EXPECT_THAT(mac.vmac("show"), HasSubstr("limit        none, asked for 85 %, to full until 20"));
  EXPECT_THAT(mac.vmac("show"), HasSubstr(" UTC, taken in "));
}

TEST(Vmac, makesAMacWithoutALimitOfItsOwn) {
  const std::string without = "limit        this macOS has none\n";
  EXPECT_THAT(LiveMac({"--macos", "27", "--no-limit"}).vmac("show"), HasSubstr(without));
  EXPECT_THAT(LiveMac({"--macos", "25"}).vmac("show"), HasSubstr(without));
}

TEST(Vmac, changesTheSpeedWithoutAJumpInTime) {
  const LiveMac mac({"--speed", "100", "--charge", "50"});
  static_cast<void>(mac.vmac("speed", {"1"}));
  const double charge = mac.charge();
  EXPECT_LT(charge, 60);
  EXPECT_NEAR(mac.charge(), charge, 0.5);
}

TEST(Boot, runsTheDaemonUntilShutdownAndTurnsTheMachineOff) {
  const LiveMac mac({"--charge", "90", "--speed", "50"});
  Program boot("brisko-vmac", {"boot", mac.folder()});
  ASSERT_TRUE(mac.logs("→ state: hold"));
  static_cast<void>(mac.vmac("shutdown"));
  ASSERT_TRUE(boot.ends());
  EXPECT_EQ(boot.status(), 0);
  EXPECT_TRUE(mac.logs("Signal 15: charging, adapter and LED restored, exiting."));
  EXPECT_EQ(mac.key("CHTE"), "00000000");
  EXPECT_THAT(mac.vmac("show"), HasSubstr(", off)"));
}

TEST(Boot, endsTheDaemonOnCtrlCToo) {
  const LiveMac mac({"--charge", "90"});
  Program boot("brisko-vmac", {"boot", mac.folder()});
  ASSERT_TRUE(mac.logs("→ state: hold"));
  boot.signal(SIGINT);
  ASSERT_TRUE(boot.ends());
  EXPECT_EQ(mac.key("CHTE"), "00000000");
}

TEST(Boot, startsTheDaemonAgainWithADelayWhenItEnds) {
  const LiveMac mac({"--charge", "90", "--speed", "10", "--gate", "none"});
  // Without a gate the daemon ends at once, every time.
  Program boot("brisko-vmac", {"boot", mac.folder()});
  const std::string errorLog = mac.folder() + "/volume/Library/Logs/Brisko/daemon.err.log";
  EXPECT_TRUE(eventually([&] { return countOf(test::contents(errorLog), "⛔️") >= 3; }));
  const std::size_t starts = countOf(test::contents(errorLog), "⛔️");
  const timespec real{1, 0};  // ten seconds of machine time: at most one more start, and one under way
  static_cast<void>(::nanosleep(&real, nullptr));
  EXPECT_LE(countOf(test::contents(errorLog), "⛔️"), starts + 2);
  static_cast<void>(mac.vmac("shutdown"));
  EXPECT_TRUE(boot.ends());
}

TEST(Boot, bootsAMachineOnce) {
  const LiveMac mac;
  Program boot("brisko-vmac", {"boot", mac.folder()});
  ASSERT_TRUE(mac.logs("batt 70%"));
  expectError(run("brisko-vmac", {"boot", mac.folder()}), 1, "booted already");
  static_cast<void>(mac.vmac("shutdown"));
  EXPECT_TRUE(boot.ends());
}

TEST(Boot, resetsTheUptime) {
  const LiveMac mac({"--uptime", "100000", "--speed", "1"});
  Program boot("brisko-vmac", {"boot", mac.folder()});
  ASSERT_TRUE(mac.logs("batt 70%"));
  const std::string shown = mac.vmac("show");
  const std::size_t up = shown.find("up ");
  ASSERT_NE(up, std::string::npos);
  EXPECT_LT(std::strtod(shown.c_str() + up + 3, nullptr), 1000);
}

TEST(Boot, leavesNoLockBehindWhenItIsKilled) {
  const LiveMac mac;
  {
    Program boot("brisko-vmac", {"boot", mac.folder()});
    ASSERT_TRUE(mac.logs("batt 70%"));
    boot.signal(SIGKILL);
    ASSERT_TRUE(boot.ends());
  }
  static_cast<void>(mac.vmac("shutdown"));
  Program boot("brisko-vmac", {"boot", mac.folder()});
  EXPECT_TRUE(eventually([&] { return countOf(mac.log(), "brisko-daemon started") == 2; }));
}

TEST(Boot, reportsADaemonThatCannotBeStarted) {
  const LiveMac mac;
  expectError(run("brisko-vmac", {"boot", mac.folder(), "--daemon", "/nowhere/brisko-daemon"}), 1,
              "/nowhere/brisko-daemon");
}

TEST(Boot, passesArgumentsToTheDaemon) {
  const LiveMac mac;
  Program boot("brisko-vmac", {"boot", mac.folder(), "--", "--limit", "66"});
  EXPECT_TRUE(mac.logs("cap 66%"));
}

}  // namespace
}  // namespace brisko::vmac_test
