#include "service/control_service.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/options.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "platform/run_loop.h"
#include "policy/evaluation.h"
#include "records/history.h"
#include "records/statistics.h"
#include "sim/machine/client_requirement.h"
#include "state/charge_state_record.h"
#include "state/tick_state.h"
#include "support/child.h"
#include "support/files.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::control_service_test {
namespace {

using namespace test;

constexpr const char* dataFolder = "/Library/Application Support/Brisko";
constexpr const char* logFolder = "/Library/Logs/Brisko";

// The replies to one request.
struct Replies {
  int count = 0;
  bool done = false;
  std::optional<std::string> error;

  platform::Reply take() {
    return [this](bool wasDone, std::optional<std::string> text) {
      ++count;
      done = wasDone;
      error = std::move(text);
    };
  }
};

std::vector<std::uint8_t> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

std::string settingsText(const std::string& changed = "") {
  // Keys in byte order, one of them replaced.
  std::string text =
      R"({"blinkSeconds":2.0,"calDrain":15,"calSoakMinutes":60,"calibrate":false,"discharge":false,)"
      R"("enabled":true,"history":true,"historyDays":365,"hysteresis":5,"led":true,"limit":80,)"
      R"("resetStats":false,"thermal":false,"thermalLimit":40,"topUp":false,"topUpHours":0})";
  if (changed.empty()) return text;
  const std::string key = changed.substr(0, changed.find(':') + 1);
  const std::size_t at = text.find(key);
  return text.replace(at, text.find_first_of(",}", at) - at, changed);
}

// Sends requests to the service on a Mac with a gate of keys.
class Service : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    takeGate();
    test::makeFolder(mac.path(dataFolder));  // as start-up does
  }

  // Runs the main thread for so long, at least until no work is waiting.
  static void run(double seconds = 0) {
    platform::postMainAfter(seconds, platform::stopMain);
    platform::runMain();
  }

  Replies apply(const std::string& settings) {
    Replies replies;
    requests.applySettings(bytesOf(settings), replies.take());
    run();
    return replies;
  }
  Replies purge() {
    Replies replies;
    requests.purgeAllData(replies.take());
    run();
    return replies;
  }
  Replies release() {
    Replies replies;
    requests.releaseCharge(replies.take());
    run();
    return replies;
  }

  std::string config() const { return mac.read(defaultConfigPath); }

  platform::ControlRequests requests = controlRequests();
};

// The same on a Mac where macOS's own limit is the gate.
class NativeService : public Service {
 protected:
  void SetUp() override {
    Service::SetUp();
    gGate = ChargeGate{.charge = ChargeKeys::macOSLimit, .cut = AdapterCutKey::none};
  }
};

// --- admission

TEST(ClientCodeRequirement, namesTheAppAndTheTeamThatSignedTheDaemon) {
  test::VirtualMac mac;
  mac.change({.kind = ChangeKind::daemonTeam, .text = virtual_mac::shortText("T")});
  EXPECT_EQ(clientCodeRequirement(),
            "anchor apple generic and identifier \"com.brisko.Brisko\" and certificate leaf[subject.OU] = "
            "\"T\"");
}

TEST(ClientCodeRequirement, isMissingWithoutATeam) {
  test::VirtualMac mac;
  EXPECT_TRUE(clientCodeRequirement().has_value());
  mac.number(ChangeKind::daemonSignature, 0);
  EXPECT_EQ(clientCodeRequirement(), std::nullopt);
  mac.change({.kind = ChangeKind::daemonTeam});
  EXPECT_EQ(clientCodeRequirement(), std::nullopt);
}

TEST(ClientCodeRequirement, isMetByTheAppOnly) {
  const test::VirtualMac mac;
  for (const auto& client : virtual_mac::knownClients()) {
    EXPECT_EQ(virtual_mac::meets(client.signature, *clientCodeRequirement()), client.name == "app");
  }
}

// --- new settings

TEST_F(Service, refusesOtherThanASettingsObjectAtOnce) {
  mac.settings("{\"limit\":60}");
  const std::string deep(1'000'000, '[');
  const std::string tooDeep = "{\"x\":" + std::string(512, '[') + std::string(512, ']') + "}";
  std::string objects;
  for (int level = 0; level < 200'000; ++level) objects += "{\"a\":";
  for (const std::string& text : {std::string(),
                                  std::string(" "),
                                  std::string("[]"),
                                  std::string("[{\"limit\":70}]"),
                                  std::string("80"),
                                  std::string("\"limit\""),
                                  std::string("null"),
                                  std::string("true"),
                                  std::string("{"),
                                  std::string("{\"limit\":7"),
                                  std::string("{\"limit\":70"),
                                  std::string("{limit:70}"),
                                  std::string("{'limit':70}"),
                                  std::string("{\"limit\":70,}"),
                                  std::string("{\"limit\":70}}"),
                                  std::string("{\"limit\":70} x"),
                                  std::string("{\"limit\":70}{\"limit\":60}"),
                                  std::string("// the limit\n{\"limit\":70}"),
                                  std::string("{\"limit\":070}"),
                                  std::string("{\"limit\":NaN}"),
                                  std::string("{\"\xff\":70}"),
                                  std::string("{\"limit\":70}\0", 13),
                                  std::string("{\0\"\0}\0", 6),
                                  deep,
                                  tooDeep,
                                  objects}) {
    SCOPED_TRACE(text.substr(0, 40));
    Replies replies;
    requests.applySettings(bytesOf(text), replies.take());
    EXPECT_EQ(replies.count, 1) << "without waiting for the main thread";
    EXPECT_FALSE(replies.done);
    EXPECT_EQ(replies.error, "Unreadable settings.");
    run();
    EXPECT_EQ(replies.count, 1);
  }
  EXPECT_EQ(config(), "{\"limit\":60}");
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Service, acceptsSettingsAsDeepAsInAFile) {
  const Replies replies = apply("{\"limit\":70,\"x\":" + std::string(511, '[') + std::string(511, ']') + "}");
  EXPECT_EQ(replies.count, 1);
  EXPECT_TRUE(replies.done);
  EXPECT_EQ(config(), settingsText("\"limit\":70"));
}

TEST_F(Service, writesAppliesAndThenReplies) {
  mac.charge(90);
  mac.settings("{}");
  evaluate();
  ASSERT_EQ(gState, ChargeState::hold);
  int count = 0;
  requests.applySettings(bytesOf("{\"limit\":100}"), [&](bool done, const std::optional<std::string>& error) {
    ++count;
    EXPECT_TRUE(done);
    EXPECT_EQ(error, std::nullopt);
    EXPECT_EQ(config(), settingsText("\"limit\":100"));
    EXPECT_EQ(gState, ChargeState::allow) << "the change is in force before the reply";
  });
  EXPECT_EQ(count, 0) << "only the main thread may touch anything";
  EXPECT_EQ(config(), "{}");
  run();
  EXPECT_EQ(count, 1);
}

TEST_F(Service, keepsWhatWasNotSent) {
  mac.settings(settingsText("\"hysteresis\":9"));
  EXPECT_TRUE(apply("{\"limit\":70}").done);
  std::string expected = settingsText("\"hysteresis\":9");
  expected.replace(expected.find("\"limit\":80"), 10, "\"limit\":70");
  EXPECT_EQ(config(), expected);
}

TEST_F(Service, acceptsAllSixteenSettings) {
  const std::string all =
      R"({"blinkSeconds":0.5,"calDrain":20,"calSoakMinutes":30,"calibrate":false,"discharge":true,)"
      R"("enabled":false,"history":false,"historyDays":30,"hysteresis":7,"led":false,"limit":65,)"
      R"("resetStats":false,"thermal":true,"thermalLimit":35,"topUp":false,"topUpHours":6})";
  EXPECT_TRUE(apply(all).done);
  EXPECT_EQ(config(), all);
}

TEST_F(Service, writesTheFileInItsCanonicalForm) {
  mac.settings(" { \"limit\" : 70.9, \"unknown\" : 1 , \"blinkSeconds\":3}\n");
  EXPECT_TRUE(apply("{}").done);
  std::string expected = settingsText("\"limit\":70");
  expected.replace(expected.find("2.0"), 3, "3.0");
  EXPECT_EQ(config(), expected);
}

TEST_F(Service, dropsUnknownSettings) {
  EXPECT_TRUE(apply("{\"limit\":70,\"colour\":\"red\",\"nested\":{\"limit\":20}}").done);
  EXPECT_EQ(config(), settingsText("\"limit\":70"));
}

TEST_F(Service, usesTheLastOfDuplicateSettings) {
  EXPECT_TRUE(apply("{\"limit\":60,\"limit\":70}").done);
  EXPECT_EQ(config(), settingsText("\"limit\":70"));
}

TEST_F(Service, usesTheDefaultForASettingOfTheWrongType) {
  mac.settings(settingsText("\"limit\":60"));
  EXPECT_TRUE(apply("{\"limit\":\"70\"}").done);
  EXPECT_EQ(config(), settingsText());
  mac.settings(settingsText("\"limit\":60"));
  EXPECT_TRUE(apply("{\"limit\":true,\"led\":0,\"thermal\":null}").done);
  EXPECT_EQ(config(), settingsText());
}

TEST_F(Service, startsFromTheDefaultsWithoutAReadableFile) {
  gCliLimit = 60;  // the default limit elsewhere, but not here
  for (const std::string& before : {std::string("{\"limit\":"), std::string("[]"), std::string("null"),
                                    std::string(), std::string("{\"limit\":70} x")}) {
    mac.settings(before);
    EXPECT_TRUE(apply("{\"hysteresis\":3}").done);
    EXPECT_EQ(config(), settingsText("\"hysteresis\":3")) << before;
  }
  ASSERT_EQ(std::remove(mac.path(defaultConfigPath).c_str()), 0);
  EXPECT_TRUE(apply("{}").done);
  EXPECT_EQ(config(), settingsText());
}

TEST_F(Service, leavesRequestsInTheSettingsToTheTick) {
  EXPECT_TRUE(apply("{\"resetStats\":true}").done);
  EXPECT_THAT(newLines(), ElementsAre("stats reset", HasSubstr("cap 80%")));
  EXPECT_EQ(config(), settingsText()) << "done, and put back";
  EXPECT_TRUE(apply("{\"topUp\":true,\"topUpHours\":2}").done);
  EXPECT_THAT(config(), HasSubstr("\"topUp\":true"));
  EXPECT_GT(gTopUpSince, 0);
}

TEST_F(Service, repliesAlsoWhereTheFileCannotBeWritten) {
  test::makeFolder(mac.path(std::string(dataFolder) + "/config.json"));
  const Replies replies = apply("{\"limit\":70}");
  EXPECT_EQ(replies.count, 1);
  EXPECT_TRUE(replies.done);
}

TEST_F(Service, abortsOnALimitBeyond64BitsBeforeAnythingIsWritten) {
  mac.settings("{\"limit\":60}");
  for (const char* sent : {"{\"limit\":1e300}", "{\"limit\":1e999}", "{\"led\":false,\"calDrain\":-1e999}"}) {
    const auto ended = test::inChild([&] {
      requests.applySettings(bytesOf(sent),
                             [](bool, const std::optional<std::string>&) { test::tell("replied"); });
      run();
    });
    EXPECT_EQ(ended.signal, SIGABRT) << sent;
    EXPECT_THAT(ended.output, Not(HasSubstr("replied"))) << sent;
    EXPECT_EQ(config(), "{\"limit\":60}") << sent;
  }
}

TEST_F(Service, readsTheOtherSettingsBesideANumberBeyondADouble) {
  EXPECT_TRUE(apply("{\"limit\":70,\"foo\":1e999}").done);
  EXPECT_EQ(config(), settingsText("\"limit\":70"));
}

TEST_F(Service, keepsWhatWasNotSentBesideANumberBeyondADouble) {
  mac.settings("{\"limit\":70,\"foo\":1e999}");
  EXPECT_TRUE(apply("{}").done);
  EXPECT_EQ(config(), settingsText("\"limit\":70"));
}

TEST_F(Service, leavesTheFileUnchangedForAnInfiniteBlinkTimeAndReplies) {
  const std::string before = "{\"limit\":70}";
  mac.settings(before);
  const Replies replies = apply("{\"blinkSeconds\":1e999,\"limit\":60}");
  EXPECT_EQ(replies.count, 1);
  EXPECT_TRUE(replies.done);
  EXPECT_EQ(config(), before);
}

// --- erasing all data

TEST_F(Service, erasesBothFoldersAndReportsItOnStandardOutputAlone) {
  mac.settings("{}");
  evaluate();
  recordSample({}, {});
  ASSERT_TRUE(mac.exists(std::string(dataFolder) + "/history"));
  ASSERT_TRUE(mac.exists(std::string(logFolder) + "/daemon.log"));
  const auto ended = test::inChild([&] {
    requests.purgeAllData([](bool done, const std::optional<std::string>& error) {
      test::tell(done && !error ? "replied done\n" : "replied otherwise\n");
    });
    test::tell("not yet\n");
    run();
    test::tell(gReleased ? "released\n" : "not released\n");
  });
  EXPECT_THAT(ended.output, ::testing::MatchesRegex("not yet\n[0-9TZ:-]+  data purge requested: OK\n"
                                                    "replied done\nnot released\n"));
  EXPECT_FALSE(mac.exists(dataFolder));
  EXPECT_FALSE(mac.exists(logFolder));
  EXPECT_TRUE(mac.exists("/Library/Application Support")) << "only our own files";
  EXPECT_TRUE(mac.exists("/Library/Logs"));
}

TEST_F(Service, succeedsIfThereIsNothingToErase) {
  ASSERT_EQ(std::remove(mac.path(dataFolder).c_str()), 0);
  const Replies replies = purge();
  EXPECT_EQ(replies.count, 1);
  EXPECT_TRUE(replies.done);
  EXPECT_EQ(replies.error, std::nullopt);
  EXPECT_FALSE(mac.exists(logFolder));
}

TEST_F(Service, erasesOtherThingsInThePlaceOfAFolder) {
  ASSERT_EQ(std::remove(mac.path(dataFolder).c_str()), 0);
  test::put(mac.path(dataFolder), "a file");
  mac.write(std::string(logFolder) + "/deep/deeper/file", "x");
  EXPECT_TRUE(purge().done);
  EXPECT_FALSE(mac.exists(dataFolder));
  EXPECT_FALSE(mac.exists(logFolder));
}

TEST_F(Service, erasesALinkAndNotItsTarget) {
  mac.write("/elsewhere/file", "somebody's");
  ASSERT_EQ(std::remove(mac.path(dataFolder).c_str()), 0);
  test::makeLink(mac.path(dataFolder), mac.path("/elsewhere"));
  EXPECT_TRUE(purge().done);
  EXPECT_FALSE(mac.exists(dataFolder));
  EXPECT_EQ(mac.read("/elsewhere/file"), "somebody's");
}

// The client is told the first folder that could not be removed; the log names both.
class Undeletable : public Service {
 protected:
  void SetUp() override {
    Service::SetUp();
    mac.settings("{}");
    mac.write(std::string(logFolder) + "/daemon.log", "line\n");
    test::setMode(mac.path("/"), 0755);
  }
  // In a process without root, so that permissions apply.
  std::string purged() {
    return test::inChild([&] {
             test::becomeNobody();
             requests.purgeAllData([](bool done, const std::optional<std::string>& error) {
               test::tell((done ? "done: " : "not done: ") + error.value_or("-") + "\n");
             });
             run();
           })
        .output;
  }
  void open(const std::string& folder) {
    test::setMode(mac.path(folder), 0777);
    test::setMode(mac.path(folder.substr(0, folder.rfind('/'))), 0777);
  }
};

TEST_F(Undeletable, foldersAreBothLoggedAndTheFirstIsReportedToTheApp) {
  const std::string first = std::string(dataFolder) + ": Permission denied";
  const std::string second = std::string(logFolder) + ": Permission denied";
  EXPECT_THAT(purged(), ::testing::MatchesRegex("[0-9TZ:-]+  data purge requested: " + first + "; " + second +
                                                "\nnot done: " + first + "\n"));
  EXPECT_EQ(config(), "{}");
}

TEST_F(Undeletable, dataDoNotPreventTheErasureOfTheLog) {
  open(logFolder);
  const std::string failure = std::string(dataFolder) + ": Permission denied";
  EXPECT_THAT(purged(), ::testing::MatchesRegex("[0-9TZ:-]+  data purge requested: " + failure +
                                                "\nnot done: " + failure + "\n"));
  EXPECT_TRUE(mac.exists(dataFolder));
  EXPECT_FALSE(mac.exists(logFolder));
}

TEST_F(Undeletable, logsAreReportedToTheAppIfTheDataAreErased) {
  open(dataFolder);
  const std::string failure = std::string(logFolder) + ": Permission denied";
  EXPECT_THAT(purged(), ::testing::MatchesRegex("[0-9TZ:-]+  data purge requested: " + failure +
                                                "\nnot done: " + failure + "\n"));
  EXPECT_FALSE(mac.exists(dataFolder));
  EXPECT_EQ(mac.read(std::string(logFolder) + "/daemon.log"), "line\n") << "nothing more is logged there";
}

TEST_F(Service, writesNoFileAfterAllDataWasErased) {
  mac.settings("{}");
  evaluate();
  ASSERT_TRUE(purge().done);
  EXPECT_TRUE(gPurged);
  const Replies replies = apply("{\"limit\":60}");
  EXPECT_EQ(replies.count, 1);
  EXPECT_TRUE(replies.done);
  mac.unplug();
  ticks(20);
  writeStats();
  log("another line");
  EXPECT_TRUE(purge().done) << "twice";
  EXPECT_FALSE(mac.exists(dataFolder));
  EXPECT_FALSE(mac.exists(logFolder));
}

// --- releasing the charge

TEST_F(Service, leavesAGateOfKeysToTheExitThatFollows) {
  mac.charge(90);
  evaluate();
  mac.forgetJournal();
  static_cast<void>(newLines());
  Replies replies;
  requests.releaseCharge(replies.take());
  EXPECT_EQ(replies.count, 1) << "without waiting for the main thread";
  EXPECT_TRUE(replies.done);
  EXPECT_EQ(replies.error, std::nullopt);
  run(60);
  EXPECT_EQ(replies.count, 1);
  EXPECT_FALSE(gReleased);
  EXPECT_EQ(gReleaseToken, 0);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Service, answersAReleaseAtOnceWithoutAnyGate) {
  gGate.reset();
  Replies replies;
  requests.releaseCharge(replies.take());
  EXPECT_EQ(replies.count, 1);
  EXPECT_TRUE(replies.done);
  run(60);
  EXPECT_FALSE(gReleased);
}

constexpr const char* releasedLine = "charge released by the app — the service is about to be removed";
constexpr const char* takenAgainLine =
    "still running 30 s after the release — the removal didn't happen, Brisko takes the charge again";

TEST_F(NativeService, releasesOnTheMainThread) {
  gState = ChargeState::hold;
  Replies replies;
  requests.releaseCharge([&](bool done, std::optional<std::string> error) {
    EXPECT_TRUE(gReleased);
    EXPECT_EQ(gState, ChargeState::allow);
    replies.take()(done, std::move(error));
  });
  EXPECT_EQ(replies.count, 0);
  EXPECT_FALSE(gReleased);
  run();
  EXPECT_EQ(replies.count, 1);
  EXPECT_TRUE(replies.done);
  EXPECT_EQ(replies.error, std::nullopt);
  EXPECT_EQ(gReleaseToken, 1);
  EXPECT_THAT(newLines(), ElementsAre(releasedLine));
}

TEST_F(NativeService, takesTheChargeAgainAfterThirtySecondsWithoutARemoval) {
  ASSERT_TRUE(release().done);
  static_cast<void>(newLines());
  run(29.95);
  EXPECT_TRUE(gReleased);
  EXPECT_THAT(newLines(), IsEmpty());
  run(0.05);
  EXPECT_FALSE(gReleased);
  const auto lines = newLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), takenAgainLine);
  EXPECT_GT(gLastPct, 0) << "a tick follows at once";
  run(60);
  EXPECT_THAT(newLines(), Not(::testing::Contains(takenAgainLine)));
}

TEST_F(NativeService, countsTheThirtySecondsFromTheLatestRelease) {
  ASSERT_TRUE(release().done);
  run(10);
  ASSERT_TRUE(release().done);
  EXPECT_EQ(gReleaseToken, 2);
  static_cast<void>(newLines());
  run(25);  // 35 s after the first
  EXPECT_TRUE(gReleased);
  EXPECT_THAT(newLines(), IsEmpty());
  run(4.5);
  EXPECT_TRUE(gReleased);
  run(0.5);
  EXPECT_FALSE(gReleased);
  EXPECT_EQ(newLines().front(), takenAgainLine);
}

TEST_F(NativeService, doesNotTakeTheChargeAgainIfSomethingElseDid) {
  ASSERT_TRUE(release().done);
  gReleased = false;
  static_cast<void>(newLines());
  run(31);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(NativeService, driveNothingWhileReleased) {
  ASSERT_TRUE(release().done);
  evaluate();
  EXPECT_EQ(gLastPct, 0);
}

TEST_F(NativeService, leavesTheLimitToMacOSAfterAPurge) {
  ASSERT_TRUE(purge().done);
  EXPECT_TRUE(gReleased);
  EXPECT_TRUE(gPurged);
  run(60);
  EXPECT_TRUE(gReleased) << "nothing changes it again";
  evaluate();
  EXPECT_EQ(gLastPct, 0);
}

TEST_F(NativeService, isNotDrivenAgainWhenAPurgeFollowsARelease) {
  ASSERT_TRUE(release().done);
  ASSERT_TRUE(purge().done);
  run(31);
  evaluate();
  EXPECT_EQ(gLastPct, 0);
  EXPECT_FALSE(mac.exists(dataFolder));
  EXPECT_FALSE(mac.exists(logFolder));
}

// --- restarting

TEST_F(Service, repliesToARestartAndExitsAfterwards) {
  const auto ended = test::inChild([&] {
    requests.restart([](bool done, const std::optional<std::string>& error) {
      test::tell(done && !error ? "replied done\n" : "replied otherwise\n");
    });
    test::tell("at once\n");
    run(0.25);
    test::tell("still there\n");
    run(0.1);
    test::tell("never here\n");
  });
  EXPECT_THAT(ended.output,
              ::testing::MatchesRegex("replied done\nat once\nstill there\n[0-9TZ:-]+  restart requested by "
                                      "the app — exiting so launchd loads the current binary\n"));
  EXPECT_EQ(ended.status, 0);
}

}  // namespace
}  // namespace brisko::control_service_test
