// Edits of the configuration in whole processes of the daemon. Ticks are counted by their reads of the
// temperature.

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <unistd.h>

#include "base/options.h"
#include "support/daemon_process.h"
#include "support/files.h"
#include "support/testing.h"

namespace brisko::config_watch_process_test {
namespace {

using namespace test;

// A daemon that has just made a tick, a second into its heartbeat.
class Edit : public ::testing::Test {
 protected:
  void begin() {
    mac.keepReads();
    process.run(1);
    mac.forgetJournal();
    static_cast<void>(newLines());
  }

  // The ticks that it makes at once, and those until its next heartbeat.
  long ticksAtOnce() { return ticksIn(0); }
  long ticksUntilHeartbeat() {
    const double sinceHeartbeat = std::fmod(mac.machine().now - started, 12);
    return ticksIn(11.9 - sinceHeartbeat);
  }
  long ticksIn(double seconds) {
    process.run(seconds);
    return ticksSinceTheLastCheck();
  }
  long ticksSinceTheLastCheck() {
    const auto exchanges = mac.writes();
    mac.forgetJournal();
    return std::count(exchanges.begin(), exchanges.end(), "read TB0T");
  }

  std::vector<std::string> newLines() { return mac.newLogLines(); }

  void replace(const std::string& json) {
    test::put(config + ".new", json);
    ASSERT_EQ(std::rename((config + ".new").c_str(), config.c_str()), 0);
  }

  VirtualMac mac;
  std::string config = mac.path(defaultConfigPath);
  double started = mac.machine().now;
  DaemonProcess process{mac};
};

TEST_F(Edit, takesEffectAtOnceAndOnceWhenMadeInPlace) {
  mac.settings("{\"limit\":80}");
  begin();
  mac.settings("{\"limit\":60}");
  EXPECT_EQ(ticksAtOnce(), 1);
  EXPECT_THAT(newLines(), Contains("→ state: hold"));
  EXPECT_EQ(ticksUntilHeartbeat(), 0);
  EXPECT_EQ(ticksIn(0.2), 1) << "the heartbeat keeps its grid";
}

TEST_F(Edit, ticksForPermissionsAlone) {
  mac.settings("{}");
  begin();
  test::setMode(config, 0600);
  EXPECT_EQ(ticksAtOnce(), 1);
  EXPECT_EQ(ticksUntilHeartbeat(), 0);
}

TEST_F(Edit, takesEffectAtOnceEachTimeWhenMadeByRename) {
  mac.settings("{\"limit\":80}");
  begin();
  for (const int limit : {60, 65, 70}) {
    replace("{\"limit\":" + std::to_string(limit) + "}");
    EXPECT_EQ(ticksAtOnce(), 1);
    EXPECT_THAT(newLines(), Contains(StartsWith("cap " + std::to_string(limit) + "%")));
  }
  mac.settings("{\"limit\":75}");
  EXPECT_EQ(ticksAtOnce(), 1) << "the last file is the watched one";
}

TEST_F(Edit, restoresTheDefaultsWhenTheFileIsDeletedAndLeavesANewFileToTheHeartbeat) {
  mac.settings("{\"limit\":60}");
  begin();
  ASSERT_EQ(::unlink(config.c_str()), 0);
  EXPECT_EQ(ticksAtOnce(), 1);
  EXPECT_THAT(newLines(), Contains(StartsWith("cap 80%")));
  mac.settings("{\"limit\":65}");
  EXPECT_EQ(ticksUntilHeartbeat(), 0);
  EXPECT_EQ(ticksIn(0.2), 1);
  EXPECT_THAT(newLines(), Contains(StartsWith("cap 65%")));
  mac.settings("{\"limit\":70}");
  EXPECT_EQ(ticksUntilHeartbeat(), 0) << "until it ends";
  EXPECT_EQ(ticksIn(0.2), 1);
}

TEST_F(Edit, waitsForTheHeartbeatIfTheFileWasMissingAtTheStart) {
  begin();
  mac.settings("{\"limit\":60}");
  EXPECT_EQ(ticksUntilHeartbeat(), 0);
  EXPECT_EQ(ticksIn(0.2), 1);
  EXPECT_THAT(newLines(), Contains(StartsWith("cap 60%")));
  mac.settings("{\"limit\":65}");
  EXPECT_EQ(ticksUntilHeartbeat(), 0);
}

TEST_F(Edit, isServedInTwoTicksIfItIsARequest) {
  mac.settings("{\"limit\":80}");
  begin();
  mac.settings("{\"resetStats\":true}");
  EXPECT_EQ(ticksAtOnce(), 2);
  EXPECT_THAT(newLines(), ElementsAre("stats reset"));
  EXPECT_EQ(ticksUntilHeartbeat(), 0);
}

TEST_F(Edit, isServedInTwoTicksAlsoIfMadeBeforeTheStart) {
  mac.settings("{\"resetStats\":true}");
  mac.keepReads();
  // Start-up also reads the temperature, to find out whether the key exists.
  EXPECT_EQ(ticksAtOnce(), 1 + 2);
  EXPECT_THAT(newLines(), Contains("stats reset").Times(1));
}

TEST_F(Edit, isNoEventForAProcessThatStartsLater) {
  mac.settings("{\"limit\":60}");
  begin();
  process.kill();
  mac.settings("{\"limit\":65}");
  DaemonProcess next(mac);
  next.run(0);
  EXPECT_EQ(ticksSinceTheLastCheck(), 1 + 1) << "the read at start-up and one tick";
  EXPECT_THAT(newLines(), Contains(StartsWith("cap 65%")));
  mac.settings("{\"limit\":70}");
  next.run(0);
  EXPECT_EQ(ticksSinceTheLastCheck(), 1);
}

TEST_F(Edit, restoresTheDefaultsAndKeepsTheWatchIfTheFileBecomesUnreadable) {
  mac.settings("{\"limit\":60}");
  begin();
  mac.settings("{\"limit\":");
  EXPECT_EQ(ticksAtOnce(), 1);
  EXPECT_THAT(newLines(), Contains(StartsWith("cap 80%")));
  mac.settings("{\"limit\":65}");
  EXPECT_EQ(ticksAtOnce(), 1);
}

TEST_F(Edit, isSeenInTheSameIterationsInEveryRun) {
  std::string first;
  for (int time = 0; time < 2; ++time) {
    VirtualMac another;
    another.settings("{\"limit\":80}");
    DaemonProcess daemon(another);
    for (int round = 0; round < 50; ++round) {
      daemon.run(7.3);
      another.settings("{\"limit\":" + std::to_string(60 + round % 30) + ",\"resetStats\":true}");
      const std::string path = another.path(defaultConfigPath);
      test::put(path + ".new", "{\"limit\":90}");
      if (round % 3 == 1) {
        ASSERT_EQ(std::rename((path + ".new").c_str(), path.c_str()), 0);
      }
    }
    const std::string log = another.read("/Library/Logs/Brisko/daemon.log");
    EXPECT_GT(log.size(), 1000U);
    if (time == 0) first = log;
    EXPECT_EQ(log, first);
  }
}

}  // namespace
}  // namespace brisko::config_watch_process_test
