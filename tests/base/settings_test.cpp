#include "base/settings.h"

#include <csignal>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include "base/options.h"
#include "base/process_flags.h"
#include "base/volume_path.h"
#include "support/child.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::settings_test {
namespace {

using namespace test;

constexpr const char* integerKeys[] = {"limit",       "thermalLimit", "topUpHours",    "hysteresis",
                                       "historyDays", "calDrain",     "calSoakMinutes"};

constexpr double infinity = std::numeric_limits<double>::infinity();

Settings parse(const std::string& text) { return parseConfig(parseJson(text).value()); }

// No field has its default.
Settings everythingChanged() {
  return {.enabled = false,
          .limit = 65,
          .discharge = true,
          .led = false,
          .blinkSeconds = 3.5,
          .thermal = true,
          .thermalLimit = 37,
          .topUp = true,
          .topUpHours = 6,
          .hysteresis = 12,
          .history = false,
          .historyDays = 90,
          .calibrate = true,
          .calDrain = 22,
          .calSoakMinutes = 45,
          .resetStats = true};
}

constexpr const char* everythingChangedText =
    R"({"blinkSeconds":3.5,"calDrain":22,"calSoakMinutes":45,"calibrate":true,"discharge":true,"enabled":false,)"
    R"("history":false,"historyDays":90,"hysteresis":12,"led":false,"limit":65,"resetStats":true,"thermal":true,)"
    R"("thermalLimit":37,"topUp":true,"topUpHours":6})";

constexpr const char* defaultsText =
    R"({"blinkSeconds":2.0,"calDrain":15,"calSoakMinutes":60,"calibrate":false,"discharge":false,"enabled":true,)"
    R"("history":true,"historyDays":365,"hysteresis":5,"led":true,"limit":80,"resetStats":false,"thermal":false,)"
    R"("thermalLimit":40,"topUp":false,"topUpHours":0})";

// ---- parsing

TEST(ConfigurationParsing, usesTheDefaultsForAnEmptyObject) {
  const Settings settings = parse("{}");
  EXPECT_TRUE(settings.enabled);
  EXPECT_EQ(settings.limit, 80);
  EXPECT_FALSE(settings.discharge);
  EXPECT_TRUE(settings.led);
  EXPECT_EQ(settings.blinkSeconds, 2.0);
  EXPECT_FALSE(settings.thermal);
  EXPECT_EQ(settings.thermalLimit, 40);
  EXPECT_FALSE(settings.topUp);
  EXPECT_EQ(settings.topUpHours, 0);
  EXPECT_EQ(settings.hysteresis, 5);
  EXPECT_TRUE(settings.history);
  EXPECT_EQ(settings.historyDays, 365);
  EXPECT_FALSE(settings.calibrate);
  EXPECT_EQ(settings.calDrain, 15);
  EXPECT_EQ(settings.calSoakMinutes, 60);
  EXPECT_FALSE(settings.resetStats);
}

TEST(ConfigurationParsing, doesNotUseTheLimitOfTheCommandLine) {
  gCliLimit = 60;
  EXPECT_EQ(parse("{}").limit, 80);
}

TEST(ConfigurationParsing, readsEveryKey) { EXPECT_EQ(parse(everythingChangedText), everythingChanged()); }

TEST(ConfigurationParsing, readsEachKeyOnItsOwn) {
  const Json changed = *parseJson(everythingChangedText);
  ASSERT_EQ(changed.size(), 16U);
  for (const auto& [key, value] : changed.items()) {
    const Settings settings = parseConfig(Json{{key, value}});
    EXPECT_NE(settings, Settings{}) << key;
    Json back = *parseJson(defaultsText);
    back[key] = value;
    EXPECT_EQ(settings, parseConfig(back)) << key;
  }
}

TEST(ConfigurationParsing, usesTheDefaultForAWrongTypeAndReadsTheOthers) {
  const Json changed = *parseJson(everythingChangedText);
  for (const auto& [key, value] : changed.items()) {
    for (const char* wrong : {"\"90\"", "\"true\"", "null", "[]", "[80]", "{}", "\"\""}) {
      Json object = changed;
      object[key] = *parseJson(wrong);
      Json without = changed;
      without.erase(key);
      EXPECT_EQ(parseConfig(object), parseConfig(without)) << key << " " << wrong;
    }
  }
}

TEST(ConfigurationParsing, keepsGoodKeysBesideBadOnes) {
  const Settings settings = parse(R"({"limit":"90","led":"no","thermal":true})");
  EXPECT_EQ(settings.limit, 80);
  EXPECT_TRUE(settings.led);
  EXPECT_TRUE(settings.thermal);
}

TEST(ConfigurationParsing, neverReadsABooleanAsANumber) {
  for (const char* key : integerKeys) {
    EXPECT_EQ(parseConfig(Json{{key, true}}), Settings{}) << key;
    EXPECT_EQ(parseConfig(Json{{key, false}}), Settings{}) << key;
  }
  EXPECT_EQ(parse(R"({"blinkSeconds":true})").blinkSeconds, 2.0);
}

TEST(ConfigurationParsing, neverReadsANumberAsABoolean) {
  for (const char* key :
       {"enabled", "discharge", "led", "thermal", "topUp", "history", "calibrate", "resetStats"}) {
    EXPECT_EQ(parseConfig(Json{{key, 0}}), Settings{}) << key;
    EXPECT_EQ(parseConfig(Json{{key, 1}}), Settings{}) << key;
    EXPECT_EQ(parseConfig(Json{{key, 0.0}}), Settings{}) << key;
    EXPECT_EQ(parseConfig(Json{{key, 1.0}}), Settings{}) << key;
  }
}

TEST(ConfigurationParsing, truncatesAFractionTowardZero) {
  EXPECT_EQ(parse(R"({"limit":70.0})").limit, 70);
  EXPECT_EQ(parse(R"({"limit":70.9})").limit, 70);
  EXPECT_EQ(parse(R"({"limit":-3.7})").limit, -3);
  EXPECT_EQ(parse(R"({"limit":-0.9})").limit, 0);
  EXPECT_EQ(parse(R"({"limit":7e1})").limit, 70);
  for (const char* key : integerKeys) {
    EXPECT_EQ(parseConfig(Json{{key, 33.9}}), parseConfig(Json{{key, 33}})) << key;
  }
}

TEST(ConfigurationParsing, readsTheBlinkTimeFromEitherTypeOfNumber) {
  EXPECT_EQ(parse(R"({"blinkSeconds":3})").blinkSeconds, 3.0);
  EXPECT_EQ(parse(R"({"blinkSeconds":0.25})").blinkSeconds, 0.25);
  EXPECT_EQ(parse(R"({"blinkSeconds":-1})").blinkSeconds, -1.0);
  EXPECT_EQ(parse(R"({"blinkSeconds":1e300})").blinkSeconds, 1e300);
  EXPECT_EQ(parse(R"({"blinkSeconds":1e999})").blinkSeconds, infinity);
  EXPECT_EQ(parse(R"({"blinkSeconds":-1e999})").blinkSeconds, -infinity);
  EXPECT_EQ(parse(R"({"blinkSeconds":18446744073709551615})").blinkSeconds, 18446744073709551616.0);
  EXPECT_EQ(parse(R"({"blinkSeconds":"3"})").blinkSeconds, 2.0);
}

TEST(ConfigurationParsing, acceptsAnyNumber) {
  const Settings settings =
      parse(R"({"limit":150,"hysteresis":-5,"thermalLimit":-300,"topUpHours":9223372036854775807,)"
            R"("historyDays":0,"calDrain":-9223372036854775808,"calSoakMinutes":153722867280912931})");
  EXPECT_EQ(settings.limit, 150);
  EXPECT_EQ(settings.hysteresis, -5);
  EXPECT_EQ(settings.thermalLimit, -300);
  EXPECT_EQ(settings.topUpHours, std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(settings.historyDays, 0);
  EXPECT_EQ(settings.calDrain, std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(settings.calSoakMinutes, 153722867280912931);
}

TEST(ConfigurationParsing, ignoresUnknownKeysAndOtherSpellings) {
  EXPECT_EQ(parse(R"({"x":1,"Limit":70,"limit ":70,"":1,"version":1e300,"LED":false})"), Settings{});
}

TEST(ConfigurationParsing, acceptsTheWholeRangeOf64Bits) {
  EXPECT_EQ(parse(R"({"limit":9223372036854775807})").limit, std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(parse(R"({"limit":-9223372036854775808})").limit, std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(parse(R"({"limit":-9223372036854775808.0})").limit, std::numeric_limits<std::int64_t>::min());
  // As a double this is also -2^63.
  EXPECT_EQ(parse(R"({"limit":-9223372036854775809})").limit, std::numeric_limits<std::int64_t>::min());
}

TEST(ConfigurationParsing, endsTheProcessForANumberBeyond64Bits) {
  for (const char* number :
       {"9223372036854775808", "18446744073709551615", "18446744073709551616", "9223372036854775807.0",
        "9.3e18", "-9.3e18", "1e300", "-1e300", "1e999", "-1e999"}) {
    const std::string text = std::string(R"({"limit":)") + number + "}";
    EXPECT_EXIT(static_cast<void>(parse(text)), KilledBySignal(SIGABRT), "^brisko-daemon: .*\n$") << number;
  }
}

TEST(ConfigurationParsing, endsTheProcessForEachIntegerKey) {
  for (const char* key : integerKeys) {
    EXPECT_EXIT(static_cast<void>(parseConfig(Json{{key, 1e300}})), KilledBySignal(SIGABRT), "") << key;
    EXPECT_EXIT(static_cast<void>(parse("{\"" + std::string(key) + "\":1e999}")), KilledBySignal(SIGABRT), "")
        << key;
  }
}

TEST(ConfigurationParsing, toleratesAHugeNumberUnderAKeyThatIsNoInteger) {
  EXPECT_EQ(parse(R"({"enabled":1e300,"x":18446744073709551615})"), Settings{});
  EXPECT_EQ(parse(R"({"enabled":1e999,"x":-1e999})"), Settings{});
}

// ---- reading

TEST(ConfigurationReading, readsTheFileOnTheVolume) {
  VirtualMac mac;
  mac.write(defaultConfigPath, R"({"limit":70})");
  const auto settings = readConfig(defaultConfigPath);
  ASSERT_TRUE(settings.has_value());
  EXPECT_EQ(settings->limit, 70);
}

TEST(ConfigurationReading, readsARelativePathAsItIs) {
  const ScratchFolder folder;
  const VirtualMac mac;
  ASSERT_EQ(::chdir(folder.path().c_str()), 0);
  put("--probe", R"({"limit":70})");
  ASSERT_TRUE(readConfig("--probe").has_value());
  EXPECT_EQ(readConfig("--probe")->limit, 70);
}

TEST(ConfigurationReading, acceptsAnEmptyObjectAsSettings) {
  const ScratchFolder folder;
  put(folder.path("config.json"), "{}");
  EXPECT_THAT(readConfig(folder.path("config.json")), Optional(Settings{}));
}

TEST(ConfigurationReading, returnsNothingForOtherThanAnObject) {
  using namespace std::string_view_literals;
  const ScratchFolder folder;
  const std::string path = folder.path("config.json");
  std::string deep = "{\"a\":";
  deep.append(600, '[');
  for (const auto bytes :
       {""sv, " "sv, "{"sv, "{\"limit\":8"sv, "[]"sv, "80"sv, "\"limit\""sv, "null"sv, "true"sv,
        "{\"limit\":70}x"sv, "{\"limit\":70}\0"sv, "{} // c"sv, "{\"limit\":70,}"sv, "{\"\xff\":1}"sv,
        "{\0\"\0l\0\"\0:\0001\0}\0"sv, std::string_view(deep)}) {
    put(path, bytes);
    EXPECT_EQ(readConfig(path), std::nullopt) << testing::PrintToString(bytes.substr(0, 40));
  }
}

TEST(ConfigurationReading, returnsNothingWithoutAReadableFile) {
  const ScratchFolder folder;
  makePipe(folder.path("pipe"));
  makeFolder(folder.path("folder"));
  test::makeLink(folder.path("link"), folder.path("nothing"));
  for (const auto& path : {folder.path("pipe"), folder.path("folder"), folder.path("link"),
                           folder.path("missing"), std::string("/dev/zero"), std::string()}) {
    EXPECT_EQ(readConfig(path), std::nullopt) << path;
  }
}

TEST(ConfigurationReading, returnsNothingForAHugeFile) {
  const ScratchFolder folder;
  const std::string path = folder.path("config.json");
  constexpr std::size_t largest = 16U << 20U;
  std::string bytes = R"({"limit":70})";
  bytes.resize(largest, ' ');
  put(path, bytes);
  EXPECT_EQ(readConfig(path).value_or(Settings{}).limit, 70);
  put(path, bytes + " ");
  EXPECT_EQ(readConfig(path), std::nullopt);
}

TEST(ConfigurationReading, seesEveryChange) {
  const ScratchFolder folder;
  const std::string path = folder.path("config.json");
  const auto limit = [&path] { return readConfig(path).value_or(Settings{.limit = -1}).limit; };
  put(path, R"({"limit":70})");
  const auto time = std::filesystem::last_write_time(path);
  EXPECT_EQ(limit(), 70);
  EXPECT_EQ(limit(), 70);

  // Same length, same inode, same time of change.
  put(path, R"({"limit":71})");
  std::filesystem::last_write_time(path, time);
  EXPECT_EQ(limit(), 71);

  put(path, R"({"limit":72)");
  EXPECT_EQ(limit(), -1);
  EXPECT_EQ(limit(), -1);
  put(path, R"({"limit":72})");
  EXPECT_EQ(limit(), 72);

  ASSERT_EQ(::unlink(path.c_str()), 0);
  EXPECT_EQ(limit(), -1);
  put(path, R"({"limit":72})");
  EXPECT_EQ(limit(), 72);
}

TEST(ConfigurationReading, distinguishesPaths) {
  const ScratchFolder folder;
  put(folder.path("a"), R"({"limit":70})");
  put(folder.path("b"), R"({"limit":90})");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(readConfig(folder.path("a"))->limit, 70);
    EXPECT_EQ(readConfig(folder.path("b"))->limit, 90);
    EXPECT_EQ(readConfig(folder.path("missing")), std::nullopt);
  }
}

TEST(ConfigurationReading, endsTheProcessForANumberBeyond64Bits) {
  const ScratchFolder folder;
  for (const char* text : {R"({"limit":1e300})", R"({"limit":1e999})"}) {
    put(folder.path("config.json"), text);
    EXPECT_EXIT(static_cast<void>(readConfig(folder.path("config.json"))), KilledBySignal(SIGABRT),
                "^brisko-daemon: .*\n$")
        << text;
  }
}

TEST(ConfigurationReading, readsTheOtherKeysBesideANumberBeyondADouble) {
  const ScratchFolder folder;
  put(folder.path("config.json"), R"({"limit":70,"foo":1e999})");
  EXPECT_THAT(readConfig(folder.path("config.json")), Optional(Settings{.limit = 70}));
}

// ---- writing

class ConfigurationWriting : public testing::Test {
 protected:
  ConfigurationWriting() { gConfigPath = path; }

  ScratchFolder folder;
  const std::string path = folder.path("config.json");
};

void write(const Settings& settings) { writeConfig(settings, std::nullopt, std::nullopt, std::nullopt); }

TEST_F(ConfigurationWriting, writesAllSixteenKeysInByteOrder) {
  write(Settings{});
  EXPECT_EQ(contents(path), defaultsText);
  write(everythingChanged());
  EXPECT_EQ(contents(path), everythingChangedText);
}

TEST_F(ConfigurationWriting, writesWhatIsReadBackEqual) {
  for (const double blink : {3.5, 2.0, 0.0, 0.1, 1e-9, 1e300, -1.0}) {
    Settings settings = everythingChanged();
    settings.blinkSeconds = blink;
    settings.calDrain = std::numeric_limits<std::int64_t>::min();
    settings.topUpHours = std::numeric_limits<std::int64_t>::max();
    write(settings);
    EXPECT_THAT(readConfig(gConfigPath), Optional(settings));
  }
}

TEST_F(ConfigurationWriting, leavesTheFileUnchangedForANumberThatIsNotFinite) {
  for (const double blink : {infinity, -infinity, std::numeric_limits<double>::quiet_NaN()}) {
    write(Settings{.blinkSeconds = blink});
    EXPECT_FALSE(exists(path));
  }
  const std::string before = R"({"blinkSeconds":1e999, "topUp":true})";
  put(path, before);
  writeConfig(readConfig(path).value(), false, std::nullopt, std::nullopt);
  EXPECT_EQ(contents(path), before);
}

TEST_F(ConfigurationWriting, keepsTheRequestsThatAreNotGiven) {
  writeConfig(everythingChanged(), false, std::nullopt, std::nullopt);
  Settings expected = everythingChanged();
  expected.topUp = false;
  EXPECT_THAT(readConfig(path), Optional(expected));

  writeConfig(everythingChanged(), std::nullopt, false, std::nullopt);
  expected = everythingChanged();
  expected.resetStats = false;
  EXPECT_THAT(readConfig(path), Optional(expected));

  writeConfig(everythingChanged(), std::nullopt, std::nullopt, false);
  expected = everythingChanged();
  expected.calibrate = false;
  EXPECT_THAT(readConfig(path), Optional(expected));
}

TEST_F(ConfigurationWriting, canAlsoSetTheRequests) {
  writeConfig(Settings{}, true, true, true);
  EXPECT_THAT(readConfig(path), Optional(Settings{.topUp = true, .calibrate = true, .resetStats = true}));
}

TEST_F(ConfigurationWriting, dropsUnknownKeys) {
  put(path, R"({"limit":70,"x":1})");
  writeConfig(readConfig(path).value(), false, std::nullopt, std::nullopt);
  const auto object = readJsonObject(path);
  ASSERT_TRUE(object.has_value());
  EXPECT_EQ(object->size(), 16U);
  EXPECT_FALSE(object->contains("x"));
  EXPECT_EQ(object->at("limit"), 70);
}

TEST_F(ConfigurationWriting, writesInPlace) {
  put(path, std::string(1000, ' '));
  setMode(path, 0640);
  const ino_t inode = inodeOf(path);
  write(Settings{});
  EXPECT_EQ(contents(path), defaultsText);
  EXPECT_EQ(modeOf(path), 0640U);
  EXPECT_EQ(inodeOf(path), inode);
}

TEST_F(ConfigurationWriting, createsTheFileWithTheModeThatTheUmaskAllows) {
  ::umask(0022);
  write(Settings{});
  EXPECT_EQ(modeOf(path), 0644U);
  ASSERT_EQ(::unlink(path.c_str()), 0);
  ::umask(0077);
  write(Settings{});
  EXPECT_EQ(modeOf(path), 0600U);
}

TEST_F(ConfigurationWriting, writesNothingAfterAPurge) {
  gPurged = true;
  write(Settings{});
  EXPECT_FALSE(exists(path));
}

TEST_F(ConfigurationWriting, leavesAFileAloneAfterAPurge) {
  put(path, "{}");
  gPurged = true;
  write(Settings{});
  EXPECT_EQ(contents(path), "{}");
}

TEST_F(ConfigurationWriting, failsSilently) {
  makeFolder(folder.path("folder"));
  makePipe(folder.path("pipe"));
  for (const auto& elsewhere :
       {folder.path("folder"), folder.path("pipe"), folder.path("missing/config.json"),
        std::string("/dev/full"), std::string()}) {
    gConfigPath = elsewhere;
    write(Settings{});
  }
  EXPECT_FALSE(exists(folder.path("missing")));
}

TEST_F(ConfigurationWriting, failsSilentlyWithoutPermission) {
  put(path, "{}");
  setMode(path, 0444);
  setMode(folder.path(), 0755);
  const auto ended = test::inChild([] {
    test::becomeNobody();
    write(Settings{});
    tell("continued");
  });
  EXPECT_EQ(ended.output, "continued");
  EXPECT_EQ(ended.errors, "");
  EXPECT_EQ(contents(path), "{}");
}

TEST(ConfigurationWritingOnVolume, writesTheMappedPath) {
  VirtualMac mac;
  mac.write(defaultConfigPath, "{}");
  write(Settings{});
  EXPECT_EQ(mac.read(defaultConfigPath), defaultsText);
}

}  // namespace
}  // namespace brisko::settings_test
