// What brisko does where something is wrong with the files, the daemon, the clock, the terminal or the
// locale: one clear line that says what to do, the right status, and nothing changed.
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

#include "client/live_brisko.h"
#include "support/testing.h"

namespace brisko::bad_input_test {
namespace {

using namespace test;
using nlohmann::json;

// ---------------------------------------------------------------------------------------------------------
// The settings file

TEST(SettingsThatCannotBeUsed, areNotOverwrittenByWhoMayNotReadThem) {
  const test::ScratchFolder volume;
  const std::string data = volume.path() + "/Library/Application Support/Brisko";
  std::filesystem::create_directories(data);
  ASSERT_EQ(::chmod(volume.path().c_str(), 0755), 0);
  const std::string path = data + "/config.json";
  test::put(path, "{\"limit\":70}");
  ASSERT_EQ(::chmod(path.c_str(), 0000), 0);
  const test::Ended ended = test::runAsNobody({"limit", "60", "--volume", volume.path()}, {}, 022, "brisko");
  EXPECT_EQ(ended.status, 4);
  EXPECT_EQ(ended.errors, "brisko: You may not read " + path + "; run: sudo brisko limit 60 --volume " +
                              volume.path() + "\n");
  ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
  EXPECT_EQ(test::contents(path), "{\"limit\":70}");
}

// Nobody may replace a file in a folder that is not theirs, although they may read it.
TEST(SettingsThatCannotBeUsed, areNotOverwrittenByWhoMayOnlyReadThem) {
  const test::ScratchFolder volume;
  const std::string data = volume.path() + "/Library/Application Support/Brisko";
  std::filesystem::create_directories(data);
  ASSERT_EQ(::chmod(volume.path().c_str(), 0755), 0);
  test::put(data + "/config.json", "{\"limit\":70}");
  if (::geteuid() != 0) GTEST_SKIP() << "only root owns what nobody else may write";
  const test::Ended ended = test::runAsNobody({"limit", "60", "--volume", volume.path()}, {}, 022, "brisko");
  EXPECT_EQ(ended.status, 4) << ended.errors;
  EXPECT_THAT(ended.errors, HasSubstr("run: sudo brisko limit 60"));
  EXPECT_EQ(countOf(ended.errors, "\n"), 1U) << ended.errors;
  EXPECT_EQ(test::contents(data + "/config.json"), "{\"limit\":70}");
}

// Such a number ends every daemon that reads it, so none runs that could be asked.
TEST(SettingsThatCannotBeUsed, areReplacedWhenForcedAlsoIfTheyEndTheDaemon) {
  LiveBrisko mac;
  mac.boot();
  mac.end();
  const std::string fatal = "{\"hysteresis\":18446744073709551616,\"limit\":60}";
  test::put(mac.configPath(), fatal);
  expectRefused(mac.brisko({"limit", "80"}), 1, "hysteresis is too large for any number");
  EXPECT_EQ(mac.config(), fatal);
  expectRefused(mac.brisko({"limit", "80", "--force"}), 3, "no daemon runs");
  EXPECT_EQ(json::parse(mac.config())["limit"], 80);
  EXPECT_EQ(json::parse(mac.config())["hysteresis"], 5);
}

// ---------------------------------------------------------------------------------------------------------
// The daemon and its status

TEST(StatusThatCannotBeUsed, isReportedInOneLine) {
  LiveBrisko mac;
  mac.boot();
  mac.pause();
  const std::string whole = test::contents(mac.statusPath());
  json future = json::parse(whole);
  future["state"] = "boost";
  for (const std::string& bytes : {std::string(), whole.substr(0, whole.size() / 2), std::string("[]"),
                                   std::string("\x01\x02"), future.dump()}) {
    test::put(mac.statusPath(), bytes);
    const Finished finished = mac.brisko({});
    EXPECT_EQ(finished.status, 3) << bytes;
    EXPECT_EQ(finished.errors,
              "brisko: the daemon's status is not usable; restart the daemon (brisko restart)\n");
    EXPECT_THAT(finished.output, StartsWith("The daemon does not report: it has written no status."));
  }
  mac.daemon->signal(SIGCONT);
}

TEST(StatusOfANewerVersion, isReadAsFarAsItIsKnown) {
  LiveBrisko mac;
  mac.boot();
  mac.pause();
  json status = json::parse(test::contents(mac.statusPath()));
  status["daemonVersion"] = "12.0";
  status["mood"] = {{"cheerful", true}};
  status["chargeMode"] = "CHZZ";
  status["cal"]["phase"] = "warm";
  test::put(mac.statusPath(), status.dump());
  EXPECT_THAT(said(mac.brisko({})), HasSubstr("12.0, through CHZZ"));
  EXPECT_THAT(said(mac.brisko({"why"})), StartsWith("Charging from 70 % to the limit of 80 %."));
  mac.daemon->signal(SIGCONT);
}

// A second daemon, started later, that reads its settings elsewhere: it replaces each status of the first one
// a little later.
class SecondDaemon {
 public:
  explicit SecondDaemon(const LiveBrisko& mac) : path_(mac.statusPath()) {
    own_ = json::parse(test::contents(path_));
    first_ = own_["startedAt"];
    own_["startedAt"] = first_ + 1;
    thread_ = std::thread([this] {
      while (!over_) writeAfterTheFirst();
    });
  }
  ~SecondDaemon() {
    over_ = true;
    thread_.join();
  }
  SecondDaemon(const SecondDaemon&) = delete;
  SecondDaemon& operator=(const SecondDaemon&) = delete;

 private:
  void writeAfterTheFirst() {
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    const json status = json::parse(test::contents(path_), nullptr, false);
    if (!status.is_object() || status.value("startedAt", 0.0) != first_) return;
    own_["ts"] = status["ts"];
    test::put(path_, own_.dump());
  }

  std::string path_;
  json own_;
  double first_ = 0;
  std::atomic<bool> over_{false};
  std::thread thread_;
};

TEST(TwoDaemons, areReported) {
  LiveBrisko mac({"--charge", "70", "--speed", "60"});
  mac.mac.settings("{\"limit\":80}");
  static_cast<void>(mac.mac.vmac("fault", {"daemon-other-team"}));
  mac.boot();
  const SecondDaemon second(mac);
  // A change that shows at once is confirmed before the second one writes.
  int limit = 50;
  Finished finished;
  EXPECT_TRUE(eventually([&] {
    limit = limit == 50 ? 60 : 50;
    finished = mac.brisko({"limit", std::to_string(limit), "--wait", "10"});
    return finished.status != 0;
  }));
  expectRefused(finished, 5, "Two daemons write the status. End the one that launchd did not start.");
}

// ---------------------------------------------------------------------------------------------------------
// The clock

TEST(ClockThatIsSetBack, preventsNeitherAChangeNorAnAnswer) {
  LiveBrisko mac({"--charge", "70", "--speed", "60"});
  mac.mac.settings("{\"limit\":80}");
  mac.boot();
  static_cast<void>(mac.mac.vmac("fault", {"clock-step", "--number=-3600"}));
  EXPECT_EQ(said(mac.brisko({"limit", "75", "--wait", "60"})), "The limit is 75 %.\n");
  EXPECT_EQ(json::parse(mac.config())["limit"], 75);
  EXPECT_TRUE(eventually([&] { return mac.brisko({"why"}).status == 0; }));
  EXPECT_THAT(said(mac.brisko({"why"})), HasSubstr("to the limit of 75 %"));
}

// ---------------------------------------------------------------------------------------------------------
// Terminals, pipes and locales

TEST(NarrowTerminal, getsNoLineThatIsTooLong) {
  LiveBrisko mac;
  mac.boot();
  static_cast<void>(said(mac.brisko({"calibrate", "start", "--yes"})));
  for (const Words& words : {Words{}, Words{"why"}, Words{"calibrate", "status"}}) {
    const std::string text = said(mac.brisko(words, {{"COLUMNS", "40"}, {"LC_ALL", "C"}}));
    for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = text.find('\n', begin);
      EXPECT_LE(end - begin, 40U) << text.substr(begin, end - begin);
      begin = end + 1;
    }
  }
}

TEST(MissingLocale, getsPlainLetters) {
  LiveBrisko mac;
  mac.boot();
  for (const test::Environment& locale :
       {test::Environment{{"LC_ALL", ""}, {"LC_CTYPE", ""}, {"LANG", ""}},
        test::Environment{{"LC_ALL", "POSIX"}}, test::Environment{{"LC_ALL", "xx_YY"}}}) {
    for (const Words& words : {Words{}, Words{"why"}, Words{"log"}, Words{"help"}}) {
      for (const char byte : said(mac.brisko(words, locale))) EXPECT_GE(byte, 0);
    }
  }
}

TEST(ClosedPipe, endsNoCommandBeforeItsWorkIsDone) {
  LiveBrisko mac;
  mac.mac.settings("{\"limit\":80}");
  mac.boot();
  const std::string program = test::programPath("brisko");
  for (const std::string command : {"limit 70", "status", "status --json", "log --all", "help"}) {
    const Finished finished =
        test::run("/bin/sh", {"-c", "{ sleep 0.2; '" + program + "' " + command + "; echo $? >&2; } | true"},
                  {{"BRISKO_VIRTUAL_MAC", mac.mac.folder()}, {"LC_ALL", "C.UTF-8"}});
    EXPECT_EQ(finished.errors, "0\n") << command;
  }
  EXPECT_EQ(json::parse(mac.config())["limit"], 70);
}

}  // namespace
}  // namespace brisko::bad_input_test
