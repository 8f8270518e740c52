#include "client/command_line.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/launchd_text.h"
#include "client/local_time.h"
#include "client/output.h"
#include "client/setting_keys.h"
#include "client/state_reader.h"
#include "process/program.h"
#include "support/files.h"

namespace brisko::client::command_line_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string errorOf(const std::vector<std::string>& arguments) { return parseCommandLine(arguments).error; }

TEST(CommandLine, showsTheStatusWithoutACommand) {
  EXPECT_EQ(parseCommandLine({}).invocation->command, "status");
  EXPECT_EQ(parseCommandLine({"--json"}).invocation->command, "status");
  EXPECT_TRUE(parseCommandLine({"--watch"}).invocation->has("--watch"));
}

TEST(CommandLine, acceptsCommonOptionsBeforeAndAfterACommand) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--json", "--wait", "9", "limit", "70"},
        {"limit", "70", "--json", "--wait", "9"}}) {
    const auto invocation = parseCommandLine(arguments).invocation;
    ASSERT_TRUE(invocation);
    EXPECT_EQ(invocation->command, "limit");
    EXPECT_THAT(invocation->words, ElementsAre("70"));
    EXPECT_TRUE(invocation->has("--json"));
    EXPECT_EQ(invocation->value("--wait"), "9");
  }
}

TEST(CommandLine, namesTheNearestCommand) {
  EXPECT_EQ(errorOf({"statsu"}), "unknown command \"statsu\"; did you mean \"status\"?");
  EXPECT_EQ(errorOf({"dischrge", "on"}), "unknown command \"dischrge\"; did you mean \"discharge\"?");
  EXPECT_EQ(errorOf({"xylophone"}), "unknown command \"xylophone\"; try \"brisko help\"");
}

TEST(CommandLine, refusesArgumentsThatACommandDoesNotAccept) {
  EXPECT_THAT(errorOf({"limit", "70", "80"}), HasSubstr("takes only one word"));
  EXPECT_THAT(errorOf({"why", "not"}), HasSubstr("takes no words"));
  EXPECT_THAT(errorOf({"set"}), HasSubstr("needs more"));
  EXPECT_THAT(errorOf({"limit", "--for", "4h"}), HasSubstr("brisko help limit"));
  EXPECT_THAT(errorOf({"full", "--for"}), HasSubstr("--for"));
}

TEST(CommandLine, explainsEveryCommand) {
  const std::string overview = helpText(nullptr);
  for (const CommandDefinition& command : commandDefinitions()) {
    EXPECT_THAT(overview, HasSubstr("  " + std::string(command.name) + " "));
    const std::string help = helpText(&command);
    ASSERT_FALSE(command.examples.empty()) << command.name;
    EXPECT_TRUE(help.starts_with(std::string(command.examples.front()))) << command.name;
    for (const OptionDefinition& option : command.options)
      EXPECT_THAT(help, HasSubstr(std::string(option.name)));
    EXPECT_TRUE(parseCommandLine({std::string(command.name), "--help"}).invocation) << command.name;
  }
}

// The manual is written by hand; this test checks that it is complete.
TEST(CommandLine, isDescribedInTheManual) {
  const std::string manual = test::contents(BRISKO_MANUALS "/brisko.1");
  for (const CommandDefinition& command : commandDefinitions()) {
    EXPECT_THAT(manual, HasSubstr(".It Cm " + std::string(command.name))) << command.name;
    for (const OptionDefinition& option : command.options)
      EXPECT_THAT(manual, HasSubstr("Fl -" + std::string(option.name.substr(2)))) << command.name;
  }
  for (const OptionDefinition& option : commonOptions())
    EXPECT_THAT(manual, HasSubstr(".It Fl -" + std::string(option.name.substr(2)))) << option.name;
}

TEST(CommandLine, isDescribedWithEverySetting) {
  const std::string manual = test::contents(BRISKO_MANUALS "/brisko-config.5");
  for (const SettingKey& key : settingKeys())
    EXPECT_THAT(manual, HasSubstr(".It Li " + std::string(key.name)));
}

TEST(Manuals, passTheLintOfMandoc) {
  for (const char* manual : {"/brisko.1", "/brisko-config.5"}) {
    const test::Finished lint =
        test::run("/usr/bin/mandoc", {"-T", "lint", "-W", "warning", std::string(BRISKO_MANUALS) + manual});
    EXPECT_EQ(lint.status, 0) << lint.output;
    EXPECT_EQ(lint.output, "");
  }
}

TEST(SettingKeys, areTheKeysOfTheFile) {
  const Json defaults = configObject(Settings{});
  ASSERT_EQ(settingKeys().size(), defaults.size());
  for (const SettingKey& key : settingKeys()) {
    ASSERT_TRUE(defaults.contains(key.name)) << key.name;
    EXPECT_TRUE(settingValue(key, valueText(defaults.at(key.name)))) << key.name;
  }
}

TEST(SettingKeys, acceptValuesInRangeAndNothingElse) {
  const SettingKey& limit = *findSetting("limit");
  for (const char* text : {"20", "80", "100", "+80"}) EXPECT_TRUE(settingValue(limit, text)) << text;
  for (const char* text :
       {"19", "101", "eighty", "80%", "", " 80", "80.5", "0x50", "-80", "99999999999999999999"})
    EXPECT_FALSE(settingValue(limit, text)) << text;
  const SettingKey& blink = *findSetting("blinkSeconds");
  for (const char* text : {"0.3", "2", "60"}) EXPECT_TRUE(settingValue(blink, text)) << text;
  for (const char* text : {"0.2", "60.1", "inf", "nan", "1e1", "2s", ".", ""})
    EXPECT_FALSE(settingValue(blink, text)) << text;
  const SettingKey& led = *findSetting("led");
  EXPECT_EQ(settingValue(led, "off"), Json(false));
  for (const char* text : {"1", "ON", ""}) EXPECT_FALSE(settingValue(led, text)) << text;
}

TEST(SettingKeys, recogniseNumbersThatEndTheDaemon) {
  EXPECT_FALSE(whyFatal(*parseJson("{\"limit\":9223372036854775807}")));
  EXPECT_TRUE(whyFatal(*parseJson("{\"limit\":9223372036854775808}")));
  EXPECT_TRUE(whyFatal(*parseJson("{\"historyDays\":1e999}")));
  EXPECT_FALSE(whyFatal(*parseJson("{\"blinkSeconds\":1e999,\"limit\":\"80\",\"other\":1e999}")));
}

TEST(JobArguments, areReadAsTheDaemonReadsThem) {
  const JobArguments job =
      jobArgumentsIn({"/Library/Brisko/brisko-daemon", "--limit", "85", "--limit", "x", "--app", "--lower",
                      "--lower", "60", "--config", "/tmp/c.json", "--limit"});
  EXPECT_EQ(job.limit, 85);
  EXPECT_EQ(job.lower, 60);
  EXPECT_EQ(job.config, "/tmp/c.json");
  EXPECT_FALSE(jobArgumentsIn({"d", "--lower", "-1"}).lower.has_value());
}

TEST(LaunchdText, yieldsThePidAndTheArgumentsOfTheJob) {
  const Job job = jobIn(
      "system/com.brisko.daemon = {\n\tactive count = 4\n\tpath = "
      "/Library/LaunchDaemons/com.brisko.daemon.plist\n"
      "\tstate = running\n\n\tprogram = /Library/Brisko/brisko-daemon\n\targuments = {\n"
      "\t\t/Library/Brisko/brisko-daemon\n\t\t--app\n\t\t/Applications/Brisko.app\n\t}\n\n"
      "\tdomain = system\n\tpid = 312\n\timmediate reason = speculative\n}\n");
  EXPECT_TRUE(job.installed);
  EXPECT_EQ(job.processId, 312);
  EXPECT_THAT(job.arguments,
              ElementsAre("/Library/Brisko/brisko-daemon", "--app", "/Applications/Brisko.app"));
}

TEST(LaunchdText, yieldsNoJobIfEmptyAndNoProcessWhileTheJobWaits) {
  EXPECT_FALSE(jobIn("").installed);
  const Job job = jobIn("system/com.brisko.daemon = {\n\tstate = not running\n\tlast exit code = 0\n}\n");
  EXPECT_TRUE(job.installed);
  EXPECT_FALSE(job.processId.has_value());
}

TEST(Texts, areWrittenInAsciiWithoutALocale) {
  EXPECT_EQ(inAscii("75–80 % at 31.5 °C — ⚠️ réveil → x 日"),
            "75-80 % at 31.5 C - ! reveil -> x ?");
}

TEST(Texts, areWrappedBetweenWords) {
  EXPECT_EQ(wrapped("one two three", 8), "one two\nthree");
  EXPECT_EQ(wrapped("Label   one two three", 14, 8), "Label   one\n        two\n        three");
  EXPECT_EQ(wrapped("a-word-that-is-longer-than-any-line", 8), "a-word-that-is-longer-than-any-line");
}

TEST(Texts, writeDurationsForPeople) {
  EXPECT_EQ(durationText(6.4), "6 s");
  EXPECT_EQ(durationText(59.6), "1 min");
  EXPECT_EQ(durationText(4 * 3600 + 600), "4 h 10 min");
  EXPECT_EQ(durationText(3 * 86'400 + 4 * 3600), "3 d 4 h");
  EXPECT_EQ(durationText(-5), "0 s");
  // Of a damaged file.
  EXPECT_EQ(durationText(1e300), durationText(1e15));
  EXPECT_EQ(durationText(std::numeric_limits<double>::quiet_NaN()), "0 s");
}

}  // namespace
}  // namespace brisko::client::command_line_test
