#include "calibration/calibration_record.h"

#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>

#include "base/paths.h"
#include "base/process_flags.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::calibration_record_test {
namespace {

using namespace test;
using virtual_mac::RegistryLayout;

// A record that an earlier file could have left, which distinguishes a reader that sets nothing from one that
// clears.
CalibrationState somethingElse() {
  return {.phase = CalPhase::restore,
          .startedAt = 1,
          .phaseSince = 2,
          .soakBanked = 3,
          .lastTick = 4,
          .before = GaugeReading{.raw = 5},
          .runs = {{.at = 6}},
          .lastFailure = CalFailure{"before", CalPhase::soak}};
}

class CalibrationRecord : public test::OnVirtualMac {
 protected:
  CalibrationRecord() { std::filesystem::create_directories(mac.path(historyDir)); }

  void read(std::string_view text) {
    mac.write(calibrationPath, text);
    readCalibration();
  }
  std::string written() {
    writeCalibration();
    return mac.read(calibrationPath);
  }
  void fault(std::string_view property, PropertyFault fault) { mac.property(property, fault); }
};

// --- names

TEST(CalPhase, isFoundByItsName) {
  for (const CalPhase phase : {CalPhase::idle, CalPhase::fill, CalPhase::drain, CalPhase::refill,
                               CalPhase::soak, CalPhase::restore}) {
    EXPECT_EQ(phaseNamed(phaseName(phase)), phase);
  }
}

TEST(CalPhase, isIdleForAnyOtherName) {
  for (const char* name : {"", "Fill", "fill ", " drain", "refil", "soaking", "none", "1"}) {
    EXPECT_EQ(phaseNamed(name), CalPhase::idle) << name;
  }
}

// --- the gauge

TEST_F(CalibrationRecord, readsTheCapacitiesAndTheCycles) {
  EXPECT_EQ(readCapacity(), (GaugeReading{.raw = 4427, .nominal = 4554, .design = 4563, .cycles = 37}));
}

TEST_F(CalibrationRecord, readsTheNestedLayout) {
  mac.number(ChangeKind::layout, static_cast<double>(RegistryLayout::nested));
  EXPECT_EQ(readCapacity(), (GaugeReading{.nominal = 4554, .design = 4563, .cycles = 37}));
}

TEST_F(CalibrationRecord, readsTheDesignFromTheNestedDictionaryWhenTheTopHasNone) {
  fault("DesignCapacity", PropertyFault::missing);
  EXPECT_EQ(readCapacity()->design, 4563);
  fault("BatteryData/DesignCapacity", PropertyFault::missing);
  EXPECT_EQ(readCapacity()->design, std::nullopt);
}

TEST_F(CalibrationRecord, readsTheCyclesFromTheTopOnly) {
  // "BatteryData" contains them too.
  fault("CycleCount", PropertyFault::missing);
  EXPECT_EQ(readCapacity(), (GaugeReading{.raw = 4427, .nominal = 4554, .design = 4563}));
}

TEST_F(CalibrationRecord, ignoresReadingsThatAreNoIntegers) {
  for (const PropertyFault kind : {PropertyFault::text, PropertyFault::real}) {
    for (const char* name : {"AppleRawMaxCapacity", "NominalChargeCapacity", "CycleCount"}) fault(name, kind);
    EXPECT_EQ(readCapacity(), (GaugeReading{.design = 4563}));
  }
  for (const char* name : {"AppleRawMaxCapacity", "NominalChargeCapacity", "CycleCount"})
    fault(name, PropertyFault::unsignedInteger);
  EXPECT_EQ(readCapacity(), (GaugeReading{.raw = 4427, .nominal = 4554, .design = 4563, .cycles = 37}));
}

TEST_F(CalibrationRecord, readsNothingWithoutTheBatterysEntry) {
  fault("AppleSmartBattery", PropertyFault::missing);
  EXPECT_EQ(readCapacity(), std::nullopt);
  fault("AppleSmartBattery", PropertyFault::none);
  EXPECT_TRUE(readCapacity().has_value());
}

TEST_F(CalibrationRecord, readsAnEmptyEntryAsAReading) {
  for (const char* name : {"AppleRawMaxCapacity", "NominalChargeCapacity", "DesignCapacity",
                           "BatteryData/DesignCapacity", "CycleCount"})
    fault(name, PropertyFault::missing);
  EXPECT_EQ(readCapacity(), GaugeReading{});
}

// --- writing

TEST_F(CalibrationRecord, writesAnIdleRecordWithoutItsOptionalKeys) {
  EXPECT_EQ(written(), R"({"phase":"idle","phaseSince":0.0,"runs":[],"soakBanked":0.0,"startedAt":0.0})");
}

TEST_F(CalibrationRecord, writesEverythingButTheLastTick) {
  gCal = {.phase = CalPhase::soak,
          .startedAt = 1772352000,
          .phaseSince = 1772360000.5,
          .soakBanked = 1200.25,
          .lastTick = 1772361000,
          .before = GaugeReading{.raw = 4251, .nominal = 4305, .design = 4563, .cycles = 120},
          .runs = {{.at = 1764576000,
                    .beforeRaw = 1,
                    .afterRaw = 2,
                    .beforeNominal = 3,
                    .afterNominal = 4,
                    .design = 5,
                    .cyclesBefore = 6,
                    .cyclesAfter = 7},
                   {.at = 1764576001.5}},
          .lastFailure = CalFailure{"stalled", CalPhase::drain}};
  EXPECT_EQ(written(),
            R"({"before":{"cycles":120,"design":4563,"nominal":4305,"raw":4251},)"
            R"("lastFailure":{"phase":"drain","reason":"stalled"},"phase":"soak","phaseSince":1772360000.5,)"
            R"("runs":[{"afterNominal":4,"afterRaw":2,"at":1764576000.0,"beforeNominal":3,"beforeRaw":1,)"
            R"("cyclesAfter":7,"cyclesBefore":6,"design":5},{"at":1764576001.5}],)"
            R"("soakBanked":1200.25,"startedAt":1772352000.0})");
}

TEST_F(CalibrationRecord, writesOnlyTheKeysOfAReadingThatAreKnown) {
  gCal.before = GaugeReading{.raw = 4251};
  EXPECT_THAT(written(), HasSubstr(R"({"before":{"raw":4251},"phase")"));
}

TEST_F(CalibrationRecord, writesAnEmptyReading) {
  gCal.before = GaugeReading{};
  EXPECT_THAT(written(), HasSubstr(R"({"before":{},"phase")"));
  gCal.before.reset();
  readCalibration();
  EXPECT_EQ(gCal.before, GaugeReading{});
}

TEST_F(CalibrationRecord, isNotWrittenAfterAPurge) {
  gPurged = true;
  writeCalibration();
  EXPECT_FALSE(mac.exists(calibrationPath));
}

TEST_F(CalibrationRecord, isLostSilentlyWhenItCannotBeWritten) {
  std::filesystem::create_directories(mac.path(calibrationPath));
  writeCalibration();
  EXPECT_TRUE(std::filesystem::is_directory(mac.path(calibrationPath)));
  std::filesystem::remove_all(mac.path("/Library/Application Support/Brisko"));
  writeCalibration();
  EXPECT_FALSE(mac.exists(calibrationPath));
  EXPECT_THAT(mac.logLines(), IsEmpty());
}

// --- reading

TEST_F(CalibrationRecord, isReadBackAsWrittenExceptTheLastTick) {
  CalibrationState state{.phase = CalPhase::refill,
                         .startedAt = 1772352000.125,
                         .phaseSince = 1772360000,
                         .soakBanked = 0.5,
                         .lastTick = 1772361000,
                         .before = GaugeReading{.nominal = 4305, .cycles = 0},
                         .runs = {{.at = 1, .afterRaw = -2, .cyclesAfter = 7}, {.at = 2.5, .design = 3}},
                         .lastFailure = CalFailure{"\"ü\"", CalPhase::soak}};
  gCal = state;
  writeCalibration();
  gCal = {};
  readCalibration();
  state.lastTick = 0;
  EXPECT_EQ(gCal, state);
  // An idle record clears everything in memory except the reading, which no file can remove.
  state = {};
  gCal = state;
  writeCalibration();
  gCal = somethingElse();
  readCalibration();
  state.before = somethingElse().before;
  EXPECT_EQ(gCal, state);
}

TEST_F(CalibrationRecord, staysUnchangedWithoutAnObjectToRead) {
  gCal = somethingElse();
  readCalibration();
  EXPECT_EQ(gCal, somethingElse());
  for (const char* text : {"", " ", "{", "nonsense", "[]", R"([{"phase":"fill"}])", "null", "7", "\"fill\"",
                           R"({"phase":"fill"}{)", R"({"phase":"fill"} x)", R"({"phase":"fill",})",
                           R"({'phase':'fill'})", "{\"phase\":\"\xFF\"}"}) {
    read(text);
    EXPECT_EQ(gCal, somethingElse()) << text;
  }
  std::filesystem::remove(mac.path(calibrationPath));
  std::filesystem::create_directories(mac.path(calibrationPath));
  readCalibration();
  EXPECT_EQ(gCal, somethingElse());
}

TEST_F(CalibrationRecord, readsTheOtherKeysBesideANumberBeyondADouble) {
  const std::string text =
      R"({"phase":"soak","startedAt":1e999,"phaseSince":5.0,"before":{"raw":1e999,"design":4563},)"
      R"("runs":[{"at":-1e999},{"at":7.0}]})";
  read(text);
  EXPECT_EQ(gCal.phase, CalPhase::soak);
  EXPECT_EQ(gCal.startedAt, std::numeric_limits<double>::infinity());
  EXPECT_EQ(gCal.phaseSince, 5);
  EXPECT_EQ(gCal.before, GaugeReading{.design = 4563});
  ASSERT_EQ(gCal.runs.size(), 2U);
  EXPECT_EQ(gCal.runs.front().at, -std::numeric_limits<double>::infinity());
  writeCalibration();
  EXPECT_EQ(mac.read(calibrationPath), text) << "JSON has no infinite number";
}

TEST_F(CalibrationRecord, readsMissingKeysAsEmpty) {
  gCal = somethingElse();
  read("{}");
  EXPECT_EQ(gCal, (CalibrationState{.before = somethingElse().before}));
}

TEST_F(CalibrationRecord, isIdleWithAnUnknownPhase) {
  for (const char* text :
       {R"({"phase":"calibrating"})", R"({"phase":""})", R"({"phase":"FILL"})", R"({"phase":2})",
        R"({"phase":true})", R"({"phase":null})", R"({"phase":["fill"]})", R"({"phase":{"fill":1}})"}) {
    gCal.phase = CalPhase::soak;
    read(text);
    EXPECT_EQ(gCal.phase, CalPhase::idle) << text;
  }
}

TEST_F(CalibrationRecord, readsTimesFromEitherTypeOfNumber) {
  read(R"({"startedAt":1,"phaseSince":2.5,"soakBanked":-3})");
  EXPECT_EQ(gCal.startedAt, 1);
  EXPECT_EQ(gCal.phaseSince, 2.5);
  EXPECT_EQ(gCal.soakBanked, -3);
  read(R"({"startedAt":18446744073709551615,"phaseSince":1e3,"soakBanked":0.0})");
  EXPECT_EQ(gCal.startedAt, 18446744073709551616.0);
  EXPECT_EQ(gCal.phaseSince, 1000);
  EXPECT_EQ(gCal.soakBanked, 0);
}

TEST_F(CalibrationRecord, readsATimeThatIsNoNumberAs0) {
  for (const char* value : {"true", "false", "\"5\"", "null", "[5]", "{}"}) {
    gCal = somethingElse();
    read(std::string(R"({"phase":"soak","startedAt":)") + value + R"(,"phaseSince":)" + value +
         R"(,"soakBanked":)" + value + "}");
    EXPECT_EQ(gCal.phase, CalPhase::soak) << value;
    EXPECT_EQ(gCal.startedAt, 0) << value;
    EXPECT_EQ(gCal.phaseSince, 0) << value;
    EXPECT_EQ(gCal.soakBanked, 0) << value;
  }
}

// Such a file ends the daemon when the soak is published, not when it is read.
TEST_F(CalibrationRecord, readsASoakBeyond64BitsUnchanged) {
  read(R"({"phase":"fill","soakBanked":1e300})");
  EXPECT_EQ(gCal.soakBanked, 1e300);
}

TEST_F(CalibrationRecord, neverReadsTheLastTickFromAFile) {
  gCal.lastTick = 5;
  read(R"({"lastTick":1772361000.0})");
  EXPECT_EQ(gCal.lastTick, 0);
}

TEST_F(CalibrationRecord, readsAFailureInTheOlderLayoutAsAStall) {
  for (const char* text : {"stalled", "", "cancelled by user", "fill"}) {
    read(std::string(R"({"lastFailure":")") + text + "\"}");
    EXPECT_EQ(gCal.lastFailure, (CalFailure{"stalled", CalPhase::idle})) << text;
  }
}

TEST_F(CalibrationRecord, readsAFailureWithAReason) {
  read(R"({"lastFailure":{"reason":"stalled","phase":"drain"}})");
  EXPECT_EQ(gCal.lastFailure, (CalFailure{"stalled", CalPhase::drain}));
  for (const char* phase : {"", R"(,"phase":"what")", R"(,"phase":3)", R"(,"phase":null)"}) {
    read(std::string(R"({"lastFailure":{"reason":"")") + phase + "}}");
    EXPECT_EQ(gCal.lastFailure, (CalFailure{"", CalPhase::idle})) << phase;
  }
}

TEST_F(CalibrationRecord, readsNoFailureOtherwise) {
  for (const char* failure : {"{}", R"({"phase":"drain"})", R"({"reason":7,"phase":"drain"})",
                              R"({"reason":null})", "7", "true", "null", R"(["stalled"])"}) {
    gCal = somethingElse();
    read(std::string(R"({"lastFailure":)") + failure + "}");
    EXPECT_EQ(gCal.lastFailure, std::nullopt) << failure;
  }
}

TEST_F(CalibrationRecord, dropsRunsWithoutTheTimeOfTheirEnd) {
  read(R"({"runs":[{"at":1},{"beforeRaw":5},{"at":"2"},{"at":true},{"at":null},7,"x",null,[{"at":3}],{},)"
       R"({"at":4.5}]})");
  EXPECT_THAT(gCal.runs, ElementsAre(CalRun{.at = 1}, CalRun{.at = 4.5}));
}

TEST_F(CalibrationRecord, readsOnlyIntegersIntoARun) {
  read(R"({"runs":[{"at":1,"beforeRaw":1.0,"afterRaw":"2","beforeNominal":true,"afterNominal":null,)"
       R"("design":9223372036854775808,"cyclesBefore":-6,"cyclesAfter":9223372036854775807}]})");
  EXPECT_THAT(gCal.runs,
              ElementsAre(CalRun{.at = 1, .cyclesBefore = -6, .cyclesAfter = 9223372036854775807}));
}

TEST_F(CalibrationRecord, hasNoRunsWithoutAListOfThem) {
  for (const char* runs : {"{}", R"({"at":1})", R"({"a":{"at":1}})", "7", "\"\"", "null", "true", "[]"}) {
    gCal = somethingElse();
    read(std::string(R"({"runs":)") + runs + "}");
    EXPECT_THAT(gCal.runs, IsEmpty()) << runs;
  }
}

TEST_F(CalibrationRecord, readsAllRuns) {
  for (const int count : {1, 39, 40, 41, 50}) {
    Json runs = Json::array();
    for (int run = 1; run <= count; ++run) runs.push_back({{"at", run}});
    read(Json{{"runs", runs}}.dump());
    ASSERT_THAT(gCal.runs, SizeIs(static_cast<std::size_t>(count)));
    EXPECT_EQ(gCal.runs.front().at, 1);
    EXPECT_EQ(gCal.runs.back().at, count);
  }
}

TEST_F(CalibrationRecord, readsOnlyIntegersIntoAReading) {
  read(R"({"before":{"raw":4251,"nominal":4305.0,"design":true,"cycles":"120"}})");
  EXPECT_EQ(gCal.before, (GaugeReading{.raw = 4251}));
  read(R"({"before":{"nominal":1,"design":2,"cycles":3,"other":4}})");
  EXPECT_EQ(gCal.before, (GaugeReading{.nominal = 1, .design = 2, .cycles = 3}));
}

TEST_F(CalibrationRecord, keepsTheReadingWithoutAnObjectForIt) {
  for (const char* before : {"7", "null", "[]", "\"4251\"", "true"}) {
    gCal = somethingElse();
    read(std::string(R"({"before":)") + before + "}");
    EXPECT_EQ(gCal.before, somethingElse().before) << before;
  }
}

TEST_F(CalibrationRecord, survivesEndlessBrackets) {
  gCal = somethingElse();
  read(std::string(1'000'000, '['));
  EXPECT_EQ(gCal, somethingElse());
  read(R"({"runs":)" + std::string(1'000'000, '[') + "}");
  EXPECT_EQ(gCal, somethingElse());
}

TEST_F(CalibrationRecord, usesTheLastOfDuplicateKeys) {
  read(R"({"phase":"fill","phase":"soak"})");
  EXPECT_EQ(gCal.phase, CalPhase::soak);
}

}  // namespace
}  // namespace brisko::calibration_record_test
