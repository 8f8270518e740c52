// Reading a bug report, which a stranger sent: whole, or refused with one sentence.

#include "sim/replay/reported_days.h"

#include "sim/replay/sample_report.h"
#include "support/testing.h"

namespace brisko::lab::reported_days_test {
namespace {

using test::archiveOf;
using test::sampleMembers;

std::string errorOf(const std::map<std::string, std::string>& members) {
  const ReportReading reading = readReport(archiveOf(members));
  EXPECT_EQ(reading.days.has_value(), reading.error.empty());
  return reading.error;
}

TEST(ReportedDays, hasTheMacItsDaemonAndItsDays) {
  const ReportReading reading = readReport(archiveOf(sampleMembers()));
  ASSERT_TRUE(reading.days) << reading.error;
  const ReportedDays& days = *reading.days;
  EXPECT_EQ(days.trace.sightings.size(), 6U) << "four samples and two summaries";
  EXPECT_EQ(days.begin(), 1772352001);
  EXPECT_EQ(days.end(), 1772352800);
  EXPECT_EQ(days.options.macOS, 26);
  EXPECT_EQ(days.options.gate, virtual_mac::GateKind::ch0b0c);
  EXPECT_EQ(days.options.cut, virtual_mac::CutKind::ch0i);
  EXPECT_EQ(days.options.magSafeLight, false);
  EXPECT_THAT(days.arguments, ::testing::ElementsAre("--app", "/Applications/Brisko.app", "--guard", "night"))
      << "no mode of the daemon that ends at once";
  EXPECT_TRUE(days.assumptions.empty());
}

TEST(ReportedDays, saysWhatItAssumesWhereTheReportLacksIt) {
  auto members = sampleMembers();
  for (const char* missing : {"manifest.json", "job.json", "daemon.log", "config.json"})
    members.erase(missing);
  const ReportReading reading = readReport(archiveOf(members));
  ASSERT_TRUE(reading.days) << reading.error;
  EXPECT_EQ(reading.days->assumptions.size(), 4U);
  EXPECT_FALSE(reading.days->config);
}

// The log reaches further back than the history, or was rotated since the start.
TEST(ReportedDays, takesTheKeysFromAnEarlierStartOrFromTheStatus) {
  auto members = sampleMembers();
  std::string& log = members["daemon.log"];
  const std::size_t end = log.find('\n') + 1;
  const std::string start = log.substr(0, end);
  log.replace(0, end,
              "2026-02-20T08:00:00Z  brisko-daemon started (event-driven) — config /c. charging via CHTE, "
              "discharge CHIE, LED OK, history /h, state=allow\n2026-02-21" +
                  start.substr(10));
  const ReportReading earlier = readReport(archiveOf(members));
  ASSERT_TRUE(earlier.days) << earlier.error;
  EXPECT_EQ(earlier.days->options.gate, virtual_mac::GateKind::ch0b0c) << "of the last of two starts";
  EXPECT_EQ(earlier.days->options.cut, virtual_mac::CutKind::ch0i);
  EXPECT_EQ(earlier.days->trace.earlier.size(), 2U);
  EXPECT_TRUE(earlier.days->assumptions.empty());

  members["daemon.log"] = "2026-03-01T08:00:01Z  cap 80%  batt 70%  30.0°C  ac  state=allow  LED=orange\n";
  members["status.json"] = R"({"chargeMode": "CH0B+CH0C", "smcKeys": ["CH0J", "CH0B", "CH0C", "ACLC"]})";
  const ReportReading rotated = readReport(archiveOf(members));
  ASSERT_TRUE(rotated.days) << rotated.error;
  EXPECT_EQ(rotated.days->options.gate, virtual_mac::GateKind::ch0b0c);
  EXPECT_EQ(rotated.days->options.cut, virtual_mac::CutKind::ch0j);
  EXPECT_EQ(rotated.days->options.magSafeLight, true);
  EXPECT_TRUE(rotated.days->assumptions.empty());
  members["status.json"] = R"({"chargeMode": 7, "smcKeys": "CH0J"})";
  EXPECT_EQ(readReport(archiveOf(members)).days->assumptions.size(), 1U);
}

TEST(ReportedDays, refusesWhatCannotBeReplayedWithOneSentence) {
  struct Case {
    const char* what;
    const char* member;
    const char* contents;  // null: removed
    const char* error;
  };
  const Case cases[] = {
      {"no history", "history/2026-03-01.jsonl", nullptr, "contains no history"},
      {"an empty history", "history/2026-03-01.jsonl", "\n\n", "contains no history"},
      {"nonsense for a history", "history/2026-03-01.jsonl", "x\ny\nz\n",
       "3 of 3 lines of its history are broken"},
      {"absurd numbers", "history/2026-03-01.jsonl",
       "{\"g\":true,\"p\":1e9,\"s\":\"allow\",\"t\":1}\n{\"g\":true,\"p\":70,\"s\":\"allow\",\"t\":-1e300}\n",
       "2 of 2 lines of its history are broken"},
      {"dates out of order", "history/2026-03-01.jsonl",
       "{\"g\":true,\"p\":70,\"s\":\"allow\",\"t\":1772352800}\n"
       "{\"g\":true,\"p\":70,\"s\":\"allow\",\"t\":1772340000}\n",
       "not in the order of time"},
      {"days that are months apart", "history/2026-06-02.jsonl",
       "{\"g\":true,\"p\":70,\"s\":\"allow\",\"t\":1780400000}\n", "more than 60 days"},
      {"another century", "history/0001-01-01.jsonl", "x\n", "of the year 1"},
      {"no battery", "battery.json", nullptr, "the battery's registry entry"},
      {"a battery of another kind", "battery.json", "{\"CurrentCapacity\": 4000, \"MaxCapacity\": 5000}",
       "the battery's registry entry"},
      {"an absurd battery", "battery.json",
       "{\"CurrentCapacity\": 70, \"MaxCapacity\": 100, \"AppleRawMaxCapacity\": 1e12}",
       "the battery's registry entry"},
  };
  for (const Case& each : cases) {
    auto members = sampleMembers();
    members.erase(each.member);
    if (each.contents != nullptr) members[each.member] = each.contents;
    EXPECT_THAT(errorOf(members), ::testing::HasSubstr(each.error)) << each.what;
  }
}

TEST(ReportedDays, refusesAnArchiveThatIsTornOrHasAName) {
  const std::string whole = archiveOf(sampleMembers());
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{700}, whole.size() / 2})
    EXPECT_NE(readReport(whole.substr(0, size)).error, "") << size;
  EXPECT_NE(readReport(std::string((std::size_t{64} << 20U) + 1, '\0')).error, "") << "too large";
  // The name is in the first bytes of the header.
  std::string upward = whole;
  upward.replace(0, 14, "../../brisko-r");
  EXPECT_NE(readReport(upward).error, "");
}

TEST(ReportedDays, believesNoNumberInTheOtherFiles) {
  auto members = sampleMembers();
  members["config.json"] = R"({"limit": 1e300, "hysteresis": -5e17, "thermalLimit": "hot"})";
  members["stats.json"] = R"({"nativeBefore": 1e99, "topUpSince": {}})";
  members["manifest.json"] = std::string(100000, '[');
  members["job.json"] = R"({"ProgramArguments": [1, {}, null, "--limit"]})";
  EXPECT_EQ(errorOf(members), "");
}

TEST(ReportedDays, readsTheLogOfMacOSInItsTimeZone) {
  const auto events = readPowerLog(
      "2026-03-01 09:15:30 +0100 Sleep               \tEntering Sleep state due to 'Clamshell Sleep'\n"
      "2026-03-01 08:20:00 +0000 DarkWake            \tDarkWake from Deep Idle\n"
      "2026-03-01 08:21:00 +0000 Wake                \tWake from Deep Idle\n"
      "2026-03-01 08:22:00 +0000 Assertions          \tPID 1\n"
      "2026-03-01 08:23:00 nonsense\n2026-99-01 08:23:00 +0000 Wake\nSleep\n");
  ASSERT_EQ(events.size(), 3U);
  EXPECT_EQ(events[0].time, 1772352930);
  EXPECT_EQ(events[0].kind, PowerEventKind::sleep);
  EXPECT_EQ(events[1].kind, PowerEventKind::darkWake);
  EXPECT_EQ(events[2].kind, PowerEventKind::wake);
}

}  // namespace
}  // namespace brisko::lab::reported_days_test
