#include "base/options.h"

#include <limits>

#include "support/testing.h"

namespace brisko::options_test {
namespace {

using namespace test;

void scan(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "/usr/local/libexec/brisko-daemon");
  scanArguments(arguments);
}

TEST(IntegerParsing, acceptsOneSignAndDigits) {
  const std::pair<const char*, std::int64_t> cases[] = {
      {"0", 0},
      {"80", 80},
      {"+75", 75},
      {"-5", -5},
      {"-0", 0},
      {"+0", 0},
      {"007", 7},
      {"-007", -7},
      {"0000000000000000000000080", 80},
      {"+0000000000000000000000080", 80},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"+9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"-0000009223372036854775808", std::numeric_limits<std::int64_t>::min()}};
  for (const auto& [text, value] : cases) EXPECT_THAT(parseInteger(text), Optional(value)) << text;
}

TEST(IntegerParsing, rejectsEverythingElse) {
  using namespace std::string_view_literals;
  const std::string digits(1000, '9');
  const std::string_view cases[] = {"",
                                    "+",
                                    "-",
                                    "+-5",
                                    "-+5",
                                    "++5",
                                    "--5",
                                    " 80",
                                    "80 ",
                                    "8 0",
                                    "\t80",
                                    "80\n",
                                    "+ 5",
                                    "- 5",
                                    "5-",
                                    "5+",
                                    "80.0",
                                    "80,0",
                                    "8e1",
                                    "1_000",
                                    "1'000",
                                    "0x50",
                                    "0b1",
                                    "abc",
                                    "80%",
                                    "−5",
                                    "٨٠",
                                    "８０",
                                    "80\0"sv,
                                    "\0"
                                    "80"sv,
                                    "9223372036854775808",
                                    "+9223372036854775808",
                                    "-9223372036854775809",
                                    "18446744073709551615",
                                    "9999999999999999999",
                                    digits};
  for (const auto text : cases) EXPECT_EQ(parseInteger(text), std::nullopt) << testing::PrintToString(text);
}

TEST(Arguments, haveDefaults) {
  scan({});
  EXPECT_EQ(gCliLimit, 80);
  EXPECT_EQ(gCliLower, -1);
  EXPECT_EQ(gConfigPath, "/Library/Application Support/Brisko/config.json");
  EXPECT_EQ(gAppPath, std::nullopt);
  EXPECT_FALSE(gProbeOnly || gProbeJSON || gSelfTest || gPrintVersion || gFwTest);
}

TEST(Arguments, mayAllBeMissing) {
  scanArguments({});
  EXPECT_EQ(gCliLimit, 80);
}

TEST(Arguments, setTheBounds) {
  scan({"--limit", "85", "--lower", "60"});
  EXPECT_EQ(gCliLimit, 85);
  EXPECT_EQ(gCliLower, 60);
}

TEST(Arguments, areNotValidated) {
  scan({"--limit", "-5", "--lower", "+400"});
  EXPECT_EQ(gCliLimit, -5);
  EXPECT_EQ(gCliLower, 400);
}

TEST(Arguments, keepTheEarlierValueWhenALaterOneIsMalformed) {
  scan({"--limit", "85", "--limit", "x", "--lower", "70", "--lower", ""});
  EXPECT_EQ(gCliLimit, 85);
  EXPECT_EQ(gCliLower, 70);
}

TEST(Arguments, keepTheDefaultWhenANumberIsBeyond64Bits) {
  scan({"--limit", "9999999999999999999"});
  EXPECT_EQ(gCliLimit, 80);
}

TEST(Arguments, areOverwrittenByLaterOnes) {
  scan({"--limit", "70", "--limit", "90", "--config", "/a", "--config", "/b", "--app", "/c", "--app", "/d"});
  EXPECT_EQ(gCliLimit, 90);
  EXPECT_EQ(gConfigPath, "/b");
  EXPECT_EQ(gAppPath, "/d");
}

TEST(Arguments, consumeAValueThatLooksLikeAnOption) {
  scan({"--limit", "--probe", "--config", "--selftest", "--app", "--config", "--lower", "--lower", "50"});
  EXPECT_EQ(gCliLimit, 80);
  EXPECT_FALSE(gProbeOnly);
  EXPECT_EQ(gConfigPath, "--selftest");
  EXPECT_FALSE(gSelfTest);
  EXPECT_EQ(gAppPath, "--config");
  EXPECT_EQ(gCliLower, -1);
}

TEST(Arguments, ignoreAnOptionThatLacksItsValue) {
  scan({"--version", "--limit"});
  EXPECT_EQ(gCliLimit, 80);
  EXPECT_TRUE(gPrintVersion);
}

TEST(Arguments, ignoreEveryOptionThatIsLastAndLacksItsValue) {
  for (const char* option : {"--limit", "--lower", "--config", "--app"}) scan({option});
  EXPECT_EQ(gCliLimit, 80);
  EXPECT_EQ(gCliLower, -1);
  EXPECT_EQ(gConfigPath, defaultConfigPath);
  EXPECT_EQ(gAppPath, std::nullopt);
}

TEST(Arguments, treatAnEmptyPathAsGiven) {
  scan({"--app", "", "--config", ""});
  EXPECT_THAT(gAppPath, Optional(std::string()));
  EXPECT_EQ(gConfigPath, "");
}

TEST(Arguments, setTheModes) {
  scan({"--probe", "--json", "--selftest", "--version", "--fwtest"});
  EXPECT_TRUE(gProbeOnly && gProbeJSON && gSelfTest && gPrintVersion && gFwTest);
}

TEST(Arguments, setEachModeAlone) {
  const std::pair<const char*, bool*> cases[] = {{"--probe", &gProbeOnly},
                                                 {"--json", &gProbeJSON},
                                                 {"--selftest", &gSelfTest},
                                                 {"--version", &gPrintVersion},
                                                 {"--fwtest", &gFwTest}};
  int set = 0;
  for (const auto& [option, flag] : cases) {
    scan({option});
    EXPECT_TRUE(*flag) << option;
    ++set;
    EXPECT_EQ(gProbeOnly + gProbeJSON + gSelfTest + gPrintVersion + gFwTest, set) << option;
  }
}

TEST(Arguments, areIgnoredWhenUnknown) {
  scan({"--limit=70", "-limit", "--LIMIT", "--limits", "-l", "70", "--Probe", "--probe ", "", "-", "--",
        "--help", "probe"});
  EXPECT_EQ(gCliLimit, 80);
  EXPECT_FALSE(gProbeOnly || gProbeJSON || gSelfTest || gPrintVersion || gFwTest);
}

TEST(Arguments, includeThePathOfTheExecutable) {
  // The first argument is parsed like the others.
  scanArguments({"--limit", "75"});
  EXPECT_EQ(gCliLimit, 75);
}

}  // namespace
}  // namespace brisko::options_test
