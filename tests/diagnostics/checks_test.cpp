#include "diagnostics/checks.h"

#include "support/testing.h"

namespace brisko::checks_test {
namespace {

using namespace test;

TEST(Checks, areCountedAndReportNothingWhenTheyPass) {
  expect(true, "a");
  expectEqual(1, 1, "b");
  expectEqual(std::optional<std::int64_t>(), std::nullopt, "c");
  expectEqual("x", "x", "d");
  expectEqual(SleepPlan::carryOn(80), SleepPlan::carryOn(80), "e");
  expectEqual(Settings{}, Settings{}, "f");
  expectEqualDates(1.5, 1.5, "g");
  EXPECT_EQ(checks, 7);
  EXPECT_THAT(failures, IsEmpty());
  EXPECT_EQ(summaryOfChecks(), "✓ 7 vérifications, aucune erreur.\n");
}

TEST(Checks, reportTheirLabelsInOrderWhenTheyFail) {
  expect(false, "une règle");
  expect(true, "une autre");
  expect(false, "");
  EXPECT_EQ(checks, 3);
  EXPECT_THAT(failures, ElementsAre("une règle", ""));
  EXPECT_EQ(summaryOfChecks(), "✗ 2 erreur(s) sur 3 vérifications :\n  - une règle\n  - \n");
}

TEST(Checks, showBothValuesOfAnEqualityThatFails) {
  expectEqual(-3, 70, "nombre");
  expectEqual(std::nullopt, 90, "absent");
  expectEqual(std::optional<std::int64_t>(91), std::nullopt, "présent");
  expectEqual("locked", "system-locked", "texte");
  expectEqualDates(1'790'000'000, 1'790'000'060.9, "date");
  EXPECT_THAT(failures, ElementsAre("nombre: got -3, want 70", "absent: got nil, want 90",
                                    "présent: got 91, want nil", "texte: got locked, want system-locked",
                                    "date: got 2026-09-21 14:13:20 +0000, want 2026-09-21 14:14:20 +0000"));
}

TEST(Checks, showPlansByTheirNames) {
  expectEqual(SleepPlan::carryOn(75), SleepPlan::carryOn(80), "a");
  expectEqual(SleepPlan::freeze(), SleepPlan::leaveAlone(), "b");
  EXPECT_THAT(failures, ElementsAre("a: got carryOn(toward: 75), want carryOn(toward: 80)",
                                    "b: got freeze, want leaveAlone"));
}

TEST(Checks, showSettingsFieldByField) {
  expectEqual(Settings{.enabled = false, .limit = 65, .blinkSeconds = 3.5}, Settings{}, "réglages");
  EXPECT_THAT(
      failures,
      ElementsAre(
          "réglages: got Settings(enabled: false, limit: 65, discharge: false, led: true, blinkSeconds: 3.5, "
          "thermal: false, thermalLimit: 40, topUp: false, topUpHours: 0, hysteresis: 5, history: true, "
          "historyDays: 365, calibrate: false, calDrain: 15, calSoakMinutes: 60, resetStats: false), want "
          "Settings(enabled: true, limit: 80, discharge: false, led: true, blinkSeconds: 2.0, thermal: "
          "false, thermalLimit: 40, topUp: false, topUpHours: 0, hysteresis: 5, history: true, historyDays: "
          "365, calibrate: false, calDrain: 15, calSoakMinutes: 60, resetStats: false)"));
}

}  // namespace
}  // namespace brisko::checks_test
