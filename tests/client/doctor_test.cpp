// The checks of the doctor: each with the evidence of its failure, and all with that of a healthy Mac.
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/doctor/diagnosis.h"
#include "client/doctor_cases.h"
#include "support/files.h"

namespace brisko::client::doctor_test {
namespace {

using ::testing::HasSubstr;

void expectCase(const Case& each) {
  SCOPED_TRACE(std::string(each.id) + ": " + each.name);
  Evidence evidence = healthy();
  each.change(evidence);
  const CheckResult result = findCheck(each.id)->run(evidence);
  if (each.text == nothing) {
    EXPECT_EQ(result.outcome, Outcome::clear) << result.text;
  } else {
    EXPECT_EQ(result.outcome, Outcome::found);
    EXPECT_THAT(result.text, HasSubstr(each.text));
    EXPECT_TRUE(result.text.ends_with('.')) << result.text;
  }
}

TEST(DoctorChecks, findWhatIsWrongAndNothingElse) {
  std::set<std::string> failing;
  for (const Case& each : allCases()) {
    expectCase(each);
    if (each.text != nothing) failing.insert(each.id);
  }
  for (const Check& check : checks()) EXPECT_TRUE(failing.contains(check.id)) << check.id;
}

TEST(DoctorChecks, findNothingOnAHealthyMac) {
  const Diagnosis diagnosis = diagnose(healthy());
  for (const CheckedResult& each : diagnosis.findings) ADD_FAILURE() << each.check->id << each.result.text;
  for (const CheckedResult& each : diagnosis.notLookedAt) ADD_FAILURE() << each.check->id << each.result.text;
  EXPECT_EQ(diagnosis.clear, 41U);
}

// Evidence of nothing is no evidence of a failure.
TEST(DoctorChecks, findNothingInWhatWasNotGathered) {
  Evidence evidence;
  evidence.state.now = now;
  const Diagnosis diagnosis = diagnose(evidence);
  for (const CheckedResult& each : diagnosis.findings) ADD_FAILURE() << each.check->id << each.result.text;
  EXPECT_GT(diagnosis.notLookedAt.size(), 20U);
  for (const CheckedResult& each : diagnosis.notLookedAt) EXPECT_NE(each.result.text, "") << each.check->id;
}

TEST(DoctorChecks, areNumberedWithoutGaps) {
  int number = 0;
  for (const Check& check : checks()) {
    ++number;
    EXPECT_EQ(check.id, (number < 10 ? "D0" : "D") + std::to_string(number));
    EXPECT_EQ(findCheck(check.id), &check);
  }
  EXPECT_EQ(number, 41);
  EXPECT_EQ(findCheck("D42"), nullptr);
}

TEST(Diagnosis, putsTheWorstFirst) {
  Evidence evidence = healthy();
  evidence.configCreatedAt = gathered(now - 19 * hour);
  evidence.state.status->dischargeFailed = true;
  evidence.quarantined = gathered(true);
  evidence.jobDisabled = notGathered<bool>("timed out");
  evidence.backgroundAllowed = notGathered<bool>(needsRoot);
  const std::string text = textOf(diagnose(evidence), {.width = 200});
  EXPECT_EQ(text,
            "⛔️ D10  The program is in quarantine, so macOS refuses to start it.\n"
            "     → Run the installer again\n"
            "⚠️ D34  The daemon gave up discharging, because the battery did not run down.\n"
            "     → Unplug the Mac once, and use another port\n"
            "· D23  The settings were created after the daemon started, so a change may take up to 12 s.\n"
            "     → Harmless. To end it: brisko restart\n"
            "36 checks found nothing.\n"
            "Not looked at: D05 (needs root); D04 (timed out).\n");
}

// What --fix writes.
TEST(RepairedSettings, areWhatWasProbablyMeant) {
  const auto repaired = [](const Json& settings) {
    Evidence evidence = healthy();
    setSettings(evidence, settings);
    return repairedSettings(evidence);
  };
  EXPECT_EQ(repaired({{"Limit", 65}}), Json({{"limit", 65}}));
  EXPECT_EQ(repaired({{"Limit", 65}, {"limit", 70}}), Json({{"limit", 70}}));
  EXPECT_EQ(repaired({{"limit", "65"}, {"led", "off"}}), Json({{"led", false}, {"limit", 65}}));
  EXPECT_EQ(repaired({{"limit", "much"}}), Json({{"limit", 80}}));
  EXPECT_EQ(repaired({{"limit", 150}, {"hysteresis", 0}}), Json({{"hysteresis", 1}, {"limit", 100}}));
  EXPECT_EQ(repaired({{"blinkSeconds", 0.1}}), Json({{"blinkSeconds", 0.3}}));
  EXPECT_EQ(repaired({{"wallpaper", 1}}), Json({{"limit", 80}}));
  // A request is not repeated because somebody wrote it wrongly.
  EXPECT_EQ(repaired({{"calibrate", "true"}}), Json({{"limit", 80}}));
  Evidence unreadable;
  unreadable.state.job.limit = 85;
  EXPECT_EQ(repairedSettings(unreadable), Json({{"limit", 85}}));
}

TEST(Troubleshooting, isMadeFromTheChecks) {
  EXPECT_EQ(test::contents(BRISKO_DOCUMENTS "/troubleshooting.md"), troubleshootingPage())
      << "run scripts/troubleshooting.sh";
}

}  // namespace
}  // namespace brisko::client::doctor_test
