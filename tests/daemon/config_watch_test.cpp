// The watch on the configuration file. Ticks are counted by their reads of the temperature.

#include "daemon/config_watch.h"

#include <algorithm>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include "base/options.h"
#include "platform/run_loop.h"
#include "policy/evaluation.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::config_watch_test {
namespace {

using namespace test;

void afterIterations(int count) {
  if (count == 0) return platform::stopMain();
  platform::postMain([count] { afterIterations(count - 1); });
}

class ConfigWatch : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    takeGate();
    mac.keepReads();
  }

  // Enough iterations for everything that a change can cause; no time passes.
  void run() {
    platform::postMain([] { afterIterations(20); });
    platform::runMain();
  }

  // The ticks since the last call.
  long ticks() {
    run();
    const auto exchanges = mac.writes();
    mac.forgetJournal();
    return std::count(exchanges.begin(), exchanges.end(), "read TB0T");
  }

  // Replaces the configuration by another file, as most editors do.
  void replace(const std::string& json) {
    test::put(config + ".new", json);
    ASSERT_EQ(std::rename((config + ".new").c_str(), config.c_str()), 0);
  }
  void remove() const { ASSERT_EQ(::unlink(config.c_str()), 0); }

  std::string config = mac.path(defaultConfigPath);
};

TEST_F(ConfigWatch, isNotArmedWithoutAFileAndDoesNotTryAgain) {
  watchConfig();
  EXPECT_FALSE(gConfigSource.has_value());
  mac.settings("{}");
  EXPECT_EQ(ticks(), 0);
  EXPECT_FALSE(gConfigSource.has_value());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ConfigWatch, doesNotTickByItself) {
  mac.settings("{}");
  watchConfig();
  EXPECT_TRUE(gConfigSource.has_value());
  EXPECT_EQ(ticks(), 0);
}

TEST_F(ConfigWatch, ticksOnceForAFileWrittenInPlaceAndKeepsItsSource) {
  mac.settings("{\"limit\":60}");
  watchConfig();
  const auto source = gConfigSource;
  mac.settings("{\"limit\":65}");
  EXPECT_EQ(ticks(), 1);
  EXPECT_THAT(newLines().back(), StartsWith("cap 65%"));
  EXPECT_EQ(gConfigSource, source);
  mac.settings("{\"limit\":66}");
  EXPECT_EQ(ticks(), 1);
  EXPECT_EQ(gConfigSource, source);
}

TEST_F(ConfigWatch, ticksOnceForEveryBatch) {
  mac.settings("{\"limit\":60}");
  watchConfig();
  mac.settings("{\"limit\":61}");
  mac.settings("{\"limit\":62}");
  EXPECT_EQ(ticks(), 1);
  mac.settings("{\"limit\":62}");  // writing the same text is a change too
  EXPECT_EQ(ticks(), 1);
}

TEST_F(ConfigWatch, ticksForAChangeOfPermissionsAlone) {
  mac.settings("{}");
  watchConfig();
  const auto source = gConfigSource;
  test::setMode(config, 0600);
  EXPECT_EQ(ticks(), 1);
  EXPECT_EQ(gConfigSource, source);
}

TEST_F(ConfigWatch, ticksWithTheContentOfAReplacingFileAndWatchesThatFile) {
  mac.settings("{\"limit\":60}");
  watchConfig();
  const auto source = gConfigSource;
  replace("{\"limit\":70}");
  EXPECT_EQ(ticks(), 1);
  EXPECT_THAT(newLines().back(), StartsWith("cap 70%"));
  ASSERT_TRUE(gConfigSource.has_value());
  EXPECT_NE(gConfigSource, source);
  mac.settings("{\"limit\":71}");
  EXPECT_EQ(ticks(), 1);
  EXPECT_THAT(newLines().back(), StartsWith("cap 71%"));
}

TEST_F(ConfigWatch, ticksWithTheDefaultsAfterADeletionAndIsNoLongerArmed) {
  gCliLimit = 55;
  mac.settings("{\"limit\":60}");
  watchConfig();
  remove();
  EXPECT_EQ(ticks(), 1);
  EXPECT_THAT(newLines().back(), StartsWith("cap 55%"));
  EXPECT_FALSE(gConfigSource.has_value());
  mac.settings("{\"limit\":65}");
  EXPECT_EQ(ticks(), 0);
  EXPECT_FALSE(gConfigSource.has_value());
}

TEST_F(ConfigWatch, treatsAFileRenamedAwayAsDeleted) {
  mac.settings("{\"limit\":60}");
  watchConfig();
  ASSERT_EQ(std::rename(config.c_str(), (config + ".old").c_str()), 0);
  EXPECT_EQ(ticks(), 1);
  EXPECT_THAT(newLines().back(), StartsWith("cap 80%"));
  EXPECT_FALSE(gConfigSource.has_value());
  test::put(config + ".old", "{}");
  EXPECT_EQ(ticks(), 0);
}

TEST_F(ConfigWatch, findsAFileThatReturnsBeforeTheNextWatch) {
  mac.settings("{\"limit\":60}");
  watchConfig();
  remove();
  mac.settings("{\"limit\":65}");
  EXPECT_EQ(ticks(), 1);
  EXPECT_THAT(newLines().back(), StartsWith("cap 65%"));
  EXPECT_TRUE(gConfigSource.has_value());
  mac.settings("{\"limit\":66}");
  EXPECT_EQ(ticks(), 1);
}

// The tick, the end of the old watch and the start of the next one are separate iterations. The next watch is
// set on the file that is then at the path.
TEST_F(ConfigWatch, watchesTheFileThatIsAtThePathWhenTheOldWatchHasEnded) {
  mac.settings("{\"limit\":60}");
  watchConfig();
  remove();
  // The first piece of work runs before the delivery, the second after it and before the end of the watch.
  platform::postMain([&] {
    platform::postMain([&] {
      EXPECT_EQ(mac.logLines().size(), 1U) << "the tick has run";
      mac.settings("{\"limit\":65}");
    });
  });
  EXPECT_EQ(ticks(), 1);
  EXPECT_TRUE(gConfigSource.has_value());
}

TEST_F(ConfigWatch, ticksOnceMoreForWhatTheTickItselfWrites) {
  mac.settings("{\"resetStats\":false}");
  watchConfig();
  mac.settings("{\"resetStats\":true}");
  EXPECT_EQ(ticks(), 2);
  EXPECT_THAT(newLines(), ElementsAre("stats reset", StartsWith("cap 80%")));
  EXPECT_EQ(ticks(), 0);
}

TEST_F(ConfigWatch, logsNothingOfItsOwn) {
  mac.settings("{}");
  watchConfig();
  mac.settings("{ }");
  EXPECT_EQ(ticks(), 1);
  static_cast<void>(newLines());
  for (const char* json : {"{ }", "{  }"}) {
    replace(json);
    EXPECT_EQ(ticks(), 1);
  }
  remove();
  EXPECT_EQ(ticks(), 1);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ConfigWatch, watchesAFileThatTheCommandLineNames) {
  gConfigPath = "/etc/brisko.json";
  mac.write(gConfigPath, "{\"limit\":60}");
  mac.settings("{}");
  watchConfig();
  mac.settings("{ }");
  EXPECT_EQ(ticks(), 0);
  mac.write(gConfigPath, "{\"limit\":65}");
  EXPECT_EQ(ticks(), 1);
}

// These files used to be watched again and again without end, each time with a tick.
TEST_F(ConfigWatch, watchesAFileWhoseNameEndsLikeTheMarkOfADeletedOne) {
  gConfigPath = "/etc/brisko.json (deleted)";
  mac.write(gConfigPath, "{\"limit\":60}");
  watchConfig();
  const auto source = gConfigSource;
  ASSERT_TRUE(source.has_value());
  EXPECT_EQ(ticks(), 0);
  EXPECT_EQ(gConfigSource, source);
  mac.write(gConfigPath, "{\"limit\":65}");
  EXPECT_EQ(ticks(), 1);
  EXPECT_EQ(gConfigSource, source);
}

TEST_F(ConfigWatch, leavesARemovedFileThatIsStillOpenToTheHeartbeat) {
  if (!test::exists("/proc/self/fd")) GTEST_SKIP() << "this system has no such paths";
  mac.settings("{\"limit\":60}");
  const int holder = ::open(config.c_str(), O_RDONLY | O_CLOEXEC);
  remove();
  test::makeLink(config, "/proc/self/fd/" + std::to_string(holder));
  watchConfig();
  EXPECT_EQ(ticks(), 0);
  EXPECT_FALSE(gConfigSource.has_value());
  evaluate();
  EXPECT_THAT(newLines().back(), StartsWith("cap 60%")) << "but it is read";
  ::close(holder);
}

TEST_F(ConfigWatch, isNoLongerArmedOnceTheFileHasLostItsName) {
  if (!test::exists("/proc/self/fd")) GTEST_SKIP() << "this system has no such paths";
  mac.settings("{\"limit\":60}");
  const int holder = ::open(config.c_str(), O_RDONLY | O_CLOEXEC);
  gConfigPath = "/Library/by number.json";
  test::makeLink(mac.path(gConfigPath), "/proc/self/fd/" + std::to_string(holder));
  watchConfig();
  EXPECT_TRUE(gConfigSource.has_value());
  remove();
  EXPECT_EQ(ticks(), 1);
  EXPECT_FALSE(gConfigSource.has_value());
  ::close(holder);
}

TEST_F(ConfigWatch, leavesNothingBehindOverAThousandReplacements) {
  mac.settings("{}");
  watchConfig();
  replace("{ }");
  EXPECT_EQ(ticks(), 1);
  const std::size_t before = test::openDescriptors();
  for (int time = 0; time < 1000; ++time) {
    replace(time % 2 == 0 ? "{}" : "{ }");
    ASSERT_EQ(ticks(), 1) << time;
  }
  EXPECT_EQ(test::openDescriptors(), before);
  EXPECT_TRUE(gConfigSource.has_value());
}

}  // namespace
}  // namespace brisko::config_watch_test
