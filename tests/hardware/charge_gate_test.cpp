#include "hardware/charge_gate.h"

#include "hardware/smc.h"
#include "platform/clock.h"
#include "state/tick_state.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::charge_gate_test {
namespace {

using namespace test;

class OnMac : public test::OnVirtualMac {
 protected:
  explicit OnMac(const MachineOptions& options = {}) : OnVirtualMac(options) { gConn = 0; }
  void SetUp() override { takeGate(); }
};

MachineOptions with(GateKind gate, CutKind cut) { return {.gate = gate, .cut = cut}; }

class ChteMac : public OnMac {
 protected:
  ChteMac() : OnMac(with(GateKind::chte, CutKind::chie)) {}
};
class PairMac : public OnMac {
 protected:
  PairMac() : OnMac(with(GateKind::ch0b0c, CutKind::ch0i)) {}
};
class BandMac : public OnMac {
 protected:
  BandMac() : OnMac(with(GateKind::firmwareBand, CutKind::ch0j)) {}
};
class NoCutMac : public OnMac {
 protected:
  NoCutMac() : OnMac(with(GateKind::chte, CutKind::none)) {}
};

// Detection on a Mac whose keys each test chooses.
class Detection : public test::OnVirtualMac {
 protected:
  Detection() : OnVirtualMac(with(GateKind::chte, CutKind::chie)) {}
  void SetUp() override { openController(); }
  static std::variant<ChargeGate, GateFailure> detected() { return ChargeGate::detect(true); }
  void show(std::string_view key) {
    mac.change({.kind = virtual_mac::ChangeKind::keyPresent, .key = virtual_mac::keyCode(key), .number = 1});
  }
};

TEST_F(Detection, choosesTheFirstFamilyThatCanBeRead) {
  show("CH0B");
  show("CH0C");
  EXPECT_EQ(std::get<ChargeGate>(detected()), (ChargeGate{ChargeKeys::chte, AdapterCutKey::chie}));
  mac.removeKey("CHTE");
  EXPECT_EQ(std::get<ChargeGate>(detected()).charge, ChargeKeys::ch0b0c);
}

TEST_F(Detection, needsBothKeysOfThePair) {
  mac.removeKey("CHTE");
  show("CH0B");
  EXPECT_EQ(std::get<GateFailure>(detected()), GateFailure::noKnownKey);
  mac.removeKey("CH0B");
  show("CH0C");
  EXPECT_EQ(std::get<GateFailure>(detected()), GateFailure::noKnownKey);
}

TEST_F(Detection, needsAllThreeKeysOfTheFirmwareBand) {
  mac.removeKey("CHTE");
  const std::vector<std::string> keys{"bfF0", "bfD0", "bfE0"};
  for (const auto& key : keys) show(key);
  EXPECT_EQ(std::get<ChargeGate>(detected()).charge, ChargeKeys::firmwareBand);
  for (const auto& missing : keys) {
    mac.removeKey(missing);
    EXPECT_EQ(std::get<GateFailure>(detected()), GateFailure::noKnownKey) << "without " << missing;
    show(missing);
  }
  for (const auto& only : keys) {
    for (const auto& key : keys) mac.removeKey(key);
    show(only);
    EXPECT_EQ(std::get<GateFailure>(detected()), GateFailure::noKnownKey) << only << " alone";
  }
}

TEST_F(Detection, choosesTheFirstCutKeyThatCanBeRead) {
  show("CH0I");
  show("CH0J");
  EXPECT_EQ(std::get<ChargeGate>(detected()).cut, AdapterCutKey::chie);
  mac.removeKey("CHIE");
  EXPECT_EQ(std::get<ChargeGate>(detected()).cut, AdapterCutKey::ch0i);
  mac.removeKey("CH0I");
  EXPECT_EQ(std::get<ChargeGate>(detected()).cut, AdapterCutKey::ch0j);
  mac.removeKey("CH0J");
  EXPECT_EQ(std::get<ChargeGate>(detected()).cut, AdapterCutKey::none);
}

TEST_F(Detection, countsAKeyWithoutBytesAsReadable) {
  mac.change({.kind = virtual_mac::ChangeKind::keySize, .key = virtual_mac::keyCode("CHTE"), .number = 0});
  EXPECT_EQ(std::get<ChargeGate>(detected()).charge, ChargeKeys::chte);
}

TEST_F(Detection, writesNothing) {
  mac.forgetJournal();
  static_cast<void>(detected());
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST(DetectionOnMacOS27, failsAsLockedWithoutProbingAKey) {
  test::VirtualMac mac({.macOS = 27, .chargeLimit = false});
  ASSERT_EQ(SMCOpen(gConn), platform::kernelSuccess);
  const auto before = mac.machine().smc.exchanges;
  EXPECT_EQ(std::get<GateFailure>(ChargeGate::detect(true)), GateFailure::lockedByMacOS);
  EXPECT_EQ(mac.machine().smc.exchanges, before);
}

// A Mac whose keys are closed and that has a limit of its own, which it supports from a given uptime on.
struct Detected {
  std::variant<ChargeGate, GateFailure> result;
  std::uint64_t questions = 0;
  double seconds = 0;  // the time that it took
};

Detected detectWithLimit(double uptime, bool patient, double supportedAfter) {
  test::VirtualMac mac({.macOS = 27, .uptime = uptime});
  mac.number(virtual_mac::ChangeKind::limitSupportedAfter, supportedAfter);
  const double start = mac.machine().now;
  Detected detected{.result = ChargeGate::detect(patient)};
  detected.questions = mac.machine().limit.calls.supported;
  detected.seconds = platform::wallNow() - start;
  return detected;
}

const std::variant<ChargeGate, GateFailure> limitGate =
    ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
const std::variant<ChargeGate, GateFailure> locked = GateFailure::lockedByMacOS;
constexpr double never = 1e9;

TEST(DetectionOfTheLimit, findsItAtTheFirstQuestionWithoutAPauseAndWithoutAKey) {
  const test::VirtualMac mac({.macOS = 27});
  ASSERT_EQ(SMCOpen(gConn), platform::kernelSuccess);
  const auto before = mac.machine().smc.exchanges;
  const double start = platform::wallNow();
  EXPECT_EQ(ChargeGate::detect(true), limitGate);
  EXPECT_EQ(platform::wallNow(), start);
  EXPECT_EQ(mac.machine().limit.calls.supported, 1U);
  EXPECT_EQ(mac.machine().smc.exchanges, before);
}

TEST(DetectionOfTheLimit, asksOnceWithoutWaiting) {
  const Detected detected = detectWithLimit(10, false, never);
  EXPECT_EQ(detected.result, locked);
  EXPECT_EQ(detected.questions, 1U);
  EXPECT_EQ(detected.seconds, 0);
}

TEST(DetectionOfTheLimit, findsItWithoutWaitingToo) {
  EXPECT_EQ(detectWithLimit(10, false, 0).result, limitGate);
}

TEST(DetectionOfTheLimit, asks21TimesInAMinuteRightAfterBoot) {
  const Detected detected = detectWithLimit(299, true, never);
  EXPECT_EQ(detected.result, locked);
  EXPECT_EQ(detected.questions, 21U);
  EXPECT_EQ(detected.seconds, 60);
}

TEST(DetectionOfTheLimit, asks3TimesIn2SecondsFrom5MinutesOn) {
  const Detected detected = detectWithLimit(300, true, never);
  EXPECT_EQ(detected.result, locked);
  EXPECT_EQ(detected.questions, 3U);
  EXPECT_EQ(detected.seconds, 2);
}

TEST(DetectionOfTheLimit, waitsForAServiceThatIsStarting) {
  const Detected detected = detectWithLimit(20, true, 50);
  EXPECT_EQ(detected.result, limitGate);
  EXPECT_EQ(detected.questions, 11U);
  EXPECT_EQ(detected.seconds, 30);
}

TEST(DetectionOfTheLimit, acceptsTheLastAnswerAndAsksNoMore) {
  EXPECT_EQ(detectWithLimit(20, true, 80).result, limitGate);
}

TEST(DetectionOfTheLimit, givesUpBeforeAServiceThatStartsASecondLater) {
  EXPECT_EQ(detectWithLimit(20, true, 81).result, locked);
}

TEST(DetectionOfTheLimit, asksNobodyWithoutAClient) {
  test::VirtualMac mac({.macOS = 27});
  mac.number(virtual_mac::ChangeKind::limitClient, static_cast<double>(virtual_mac::LimitClient::noSelector));
  EXPECT_EQ(ChargeGate::detect(true), locked);
  EXPECT_EQ(mac.machine().limit.calls.supported, 0U);
}

TEST(DetectionOfTheLimit, doesNotLookForTheLimitIfTheKeysAreOpen) {
  const test::VirtualMac mac;
  ASSERT_EQ(SMCOpen(gConn), platform::kernelSuccess);
  EXPECT_EQ(ChargeGate::detect(true),
            (std::variant<ChargeGate, GateFailure>(ChargeGate{ChargeKeys::chte, AdapterCutKey::chie})));
  EXPECT_EQ(mac.machine().limit.calls.loads, 0U);
}

TEST(GateFailureTexts, areTheTextsThatTheAppShows) {
  const test::VirtualMac mac({.macOS = 28});
  EXPECT_EQ(
      failureMessage(GateFailure::noKnownKey),
      "Brisko couldn\xE2\x80\x99t find a way to control charging on this Mac. It needs an Apple Silicon Mac, "
      "an M1 or newer.");
  EXPECT_EQ(failureDetail(GateFailure::noKnownKey),
            "no known charge-control key (looked for CHTE, CH0B+CH0C, bfF0/bfD0/bfE0)");
  EXPECT_EQ(
      failureMessage(GateFailure::lockedByMacOS),
      "macOS 28 changed the way charging is controlled; Brisko can\xE2\x80\x99t hold a limit on this version "
      "yet.");
  EXPECT_EQ(
      failureDetail(GateFailure::lockedByMacOS),
      "macOS 28: CHTE/CH0B/CH0C empty and bfF0/bfD0/bfE0 refused (kIOReturnNotPrivileged) even for root "
      "\xE2\x80\x94 not probed, see SystemLock");
}

TEST_F(ChteMac, stopsAndOpensWithOneKey) {
  EXPECT_TRUE(gGate->setCharging(true));
  EXPECT_TRUE(gGate->chargingIsStopped());
  EXPECT_TRUE(gGate->setCharging(false));
  EXPECT_FALSE(gGate->chargingIsStopped());
  EXPECT_THAT(mac.writes(), ElementsAre("CHTE=01000000", "CHTE=00000000"));
}

TEST_F(ChteMac, isStoppedOnlyByExactlyItsOwnValue) {
  for (const auto& bytes : {test::Bytes{1, 0, 0, 1}, test::Bytes{2, 0, 0, 0}, test::Bytes{1, 1, 0, 0}}) {
    mac.keyBytes("CHTE", bytes);
    EXPECT_FALSE(gGate->chargingIsStopped());
  }
  mac.keyBytes("CHTE", {1, 0, 0, 0});
  EXPECT_TRUE(gGate->chargingIsStopped());
  mac.change({.kind = virtual_mac::ChangeKind::keySize, .key = virtual_mac::keyCode("CHTE"), .number = 1});
  EXPECT_FALSE(gGate->chargingIsStopped());
  mac.removeKey("CHTE");
  EXPECT_FALSE(gGate->chargingIsStopped());
}

TEST_F(ChteMac, isNotStoppedByALongerValueThatBeginsLikeItsOwn) {
  mac.keyBytes("CHTE", {1, 0, 0, 0, 0});
  mac.change({.kind = virtual_mac::ChangeKind::keySize, .key = virtual_mac::keyCode("CHTE"), .number = 5});
  ASSERT_EQ(readKey("CHTE"), (test::Bytes{1, 0, 0, 0, 0}));
  EXPECT_FALSE(gGate->chargingIsStopped());
}

TEST_F(ChteMac, reportsARefusedWrite) {
  mac.keyOnWrite("CHTE", OnWrite::refuse);
  EXPECT_FALSE(gGate->setCharging(true));
  mac.keyOnWrite("CHIE", OnWrite::refuse);
  EXPECT_FALSE(gGate->setAdapterCut(true));
}

TEST_F(ChteMac, cutsTheAdapterWithItsOwnKey) {
  EXPECT_FALSE(gGate->adapterIsCut());
  EXPECT_TRUE(gGate->setAdapterCut(true));
  EXPECT_TRUE(gGate->adapterIsCut());
  EXPECT_TRUE(gGate->setAdapterCut(false));
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=08", "CHIE=00"));
  mac.keyBytes("CHIE", {1});
  EXPECT_FALSE(gGate->adapterIsCut());
  mac.removeKey("CHIE");
  EXPECT_FALSE(gGate->adapterIsCut());
}

TEST_F(PairMac, writesTheSecondKeyEvenIfTheFirstFails) {
  EXPECT_TRUE(gGate->setCharging(true));
  mac.keyOnWrite("CH0B", OnWrite::refuse);
  EXPECT_FALSE(gGate->setCharging(false));
  mac.keyOnWrite("CH0B", OnWrite::obey);
  mac.keyOnWrite("CH0C", OnWrite::refuse);
  EXPECT_FALSE(gGate->setCharging(false));
  EXPECT_THAT(mac.writes(), ElementsAre("CH0B=02", "CH0C=02", "CH0B=00!", "CH0C=00", "CH0B=00", "CH0C=00!"));
}

TEST_F(PairMac, isStoppedOnlyWhenBothAre) {
  mac.keyBytes("CH0B", {2});
  EXPECT_FALSE(gGate->chargingIsStopped());
  mac.keyBytes("CH0C", {2});
  EXPECT_TRUE(gGate->chargingIsStopped());
  mac.keyBytes("CH0B", {0});
  EXPECT_FALSE(gGate->chargingIsStopped());
}

TEST_F(PairMac, cutsWithItsOwnValue) {
  EXPECT_TRUE(gGate->setAdapterCut(true));
  EXPECT_TRUE(gGate->adapterIsCut());
  EXPECT_TRUE(gGate->setAdapterCut(false));
  EXPECT_THAT(mac.writes(), ElementsAre("CH0I=01", "CH0I=00"));
}

TEST_F(BandMac, armsTheBandWhileItIsDisarmed) {
  gFirmwareUpper = 80;
  gFirmwareLower = 75;
  EXPECT_TRUE(gGate->setCharging(true));
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=50000000", "bfE0=4b000000", "bfF0=02"));
  EXPECT_TRUE(gGate->chargingIsStopped());
}

TEST_F(BandMac, allowsChargingWithOneWrite) {
  EXPECT_TRUE(gGate->setCharging(false));
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00"));
  EXPECT_FALSE(gGate->chargingIsStopped());
}

TEST_F(BandMac, clampsTheBandTo0And100) {
  gFirmwareUpper = 150;
  gFirmwareLower = -5;
  EXPECT_TRUE(gGate->setCharging(true));
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=64000000", "bfE0=00000000", "bfF0=02"));
}

TEST_F(BandMac, attemptsEveryWriteAndReportsTheOnesThatCount) {
  mac.keyOnWrite("bfD0", OnWrite::refuse);
  EXPECT_FALSE(gGate->setCharging(true));
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=50000000!", "bfE0=4b000000", "bfF0=02"));
  mac.keyOnWrite("bfD0", OnWrite::obey);
  mac.keyOnWrite("bfE0", OnWrite::refuse);
  EXPECT_FALSE(gGate->setCharging(true));
  mac.keyOnWrite("bfE0", OnWrite::obey);
  mac.keyOnWrite("bfF0", OnWrite::refuse);
  EXPECT_FALSE(gGate->setCharging(true));
  EXPECT_FALSE(gGate->setCharging(false));
}

TEST_F(BandMac, cutsWithItsOwnKey) {
  EXPECT_TRUE(gGate->setAdapterCut(true));
  EXPECT_TRUE(gGate->adapterIsCut());
  EXPECT_THAT(mac.writes(), ElementsAre("CH0J=01"));
}

TEST_F(NoCutMac, cannotCutTheAdapter) {
  EXPECT_EQ(gGate->cut, AdapterCutKey::none);
  EXPECT_FALSE(gGate->setAdapterCut(true));
  EXPECT_FALSE(gGate->setAdapterCut(false));
  EXPECT_FALSE(gGate->adapterIsCut());
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(ChteMac, leavesChargingToMacOSWhereItsOwnLimitIsTheGate) {
  const ChargeGate gate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  EXPECT_TRUE(gate.setCharging(true));
  EXPECT_TRUE(gate.setCharging(false));
  EXPECT_FALSE(gate.setAdapterCut(false));
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_FALSE(gate.chargingIsStopped());
  mac.keyBytes("bfG0", {80});
  EXPECT_TRUE(gate.chargingIsStopped());
  mac.keyBytes("bfG0", {0});
  EXPECT_FALSE(gate.chargingIsStopped());
  mac.removeKey("bfG0");
  EXPECT_FALSE(gate.chargingIsStopped());
}

TEST(WrittenKeys, namesTheCutKeyFirst) {
  using Keys = std::vector<std::string>;
  EXPECT_EQ((ChargeGate{ChargeKeys::ch0b0c, AdapterCutKey::ch0i}.writtenKeys()),
            (Keys{"CH0I", "CH0B", "CH0C"}));
  EXPECT_EQ((ChargeGate{ChargeKeys::chte, AdapterCutKey::chie}.writtenKeys()), (Keys{"CHIE", "CHTE"}));
  EXPECT_EQ((ChargeGate{ChargeKeys::chte, AdapterCutKey::none}.writtenKeys()), (Keys{"CHTE"}));
  EXPECT_EQ((ChargeGate{ChargeKeys::firmwareBand, AdapterCutKey::ch0j}.writtenKeys()),
            (Keys{"CH0J", "bfF0", "bfD0", "bfE0"}));
  EXPECT_EQ((ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::chie}.writtenKeys()), Keys{});
}

TEST(GateLabels, nameTheKeys) {
  EXPECT_STREQ(chargeLabel(ChargeKeys::chte), "CHTE");
  EXPECT_STREQ(chargeLabel(ChargeKeys::ch0b0c), "CH0B+CH0C");
  EXPECT_STREQ(chargeLabel(ChargeKeys::firmwareBand), "bfD0/bfE0/bfF0");
  EXPECT_STREQ(chargeLabel(ChargeKeys::macOSLimit), "macOS");
  EXPECT_EQ(cutKeyName(AdapterCutKey::chie), "CHIE");
  EXPECT_EQ(cutKeyName(AdapterCutKey::none), std::nullopt);
}

// How often, and for how long, a service that is starting is asked.
struct Asking {
  int questions = 0;
  double seconds = 0;
  bool usable = false;
};

Asking ask(double uptime, bool patient, int usableAt = 0) {
  const test::VirtualMac mac({.uptime = uptime});
  Asking asking;
  const double start = platform::wallNow();
  asking.usable = becomesUsable(patient, [&] { return ++asking.questions == usableAt; });
  asking.seconds = platform::wallNow() - start;
  return asking;
}

TEST(Backoff, needsNoPauseWhenTheFirstAnswerIsYes) {
  const Asking asking = ask(10, true, 1);
  EXPECT_TRUE(asking.usable);
  EXPECT_EQ(asking.questions, 1);
  EXPECT_EQ(asking.seconds, 0);
}

TEST(Backoff, asksOnceWithoutIt) {
  const Asking asking = ask(10, false);
  EXPECT_FALSE(asking.usable);
  EXPECT_EQ(asking.questions, 1);
  EXPECT_EQ(asking.seconds, 0);
}

TEST(Backoff, asks21TimesInAMinuteRightAfterBoot) {
  const Asking asking = ask(299, true);
  EXPECT_FALSE(asking.usable);
  EXPECT_EQ(asking.questions, 21);
  EXPECT_EQ(asking.seconds, 60);
}

TEST(Backoff, asksThreeTimesIn2SecondsLater) {
  for (const double uptime : {300.0, 1000.0}) {
    const Asking asking = ask(uptime, true);
    EXPECT_FALSE(asking.usable);
    EXPECT_EQ(asking.questions, 3);
    EXPECT_EQ(asking.seconds, 2);
  }
}

TEST(Backoff, endsWithTheFirstYes) {
  const Asking asking = ask(20, true, 5);
  EXPECT_TRUE(asking.usable);
  EXPECT_EQ(asking.questions, 5);
  EXPECT_EQ(asking.seconds, 12);
}

TEST(Backoff, acceptsTheLastAnswer) {
  EXPECT_TRUE(ask(20, true, 21).usable);
  EXPECT_TRUE(ask(2000, true, 3).usable);
}

TEST_F(ChteMac, undoesALeftoverCut) {
  mac.keyBytes("CHIE", {8});
  EXPECT_THAT(clearLeftoverAdapterCut(), ElementsAre("adapter cut found set, restored"));
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00"));
  EXPECT_THAT(clearLeftoverAdapterCut(), IsEmpty());
}

TEST_F(ChteMac, reportsWhenALeftoverCutCannotBeUndone) {
  mac.keyBytes("CHIE", {8});
  mac.keyOnWrite("CHIE", OnWrite::refuse);
  EXPECT_THAT(clearLeftoverAdapterCut(),
              ElementsAre("\xE2\x9A\xA0\xEF\xB8\x8F adapter cut found set, and could not be restored"));
}

TEST_F(ChteMac, leavesOtherValuesOfTheCutKeyAlone) {
  for (const int value : {0, 1, 9, 255}) {
    mac.keyBytes("CHIE", {static_cast<std::uint8_t>(value)});
    EXPECT_THAT(clearLeftoverAdapterCut(), IsEmpty());
  }
  mac.removeKey("CHIE");
  EXPECT_THAT(clearLeftoverAdapterCut(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty());
}

}  // namespace
}  // namespace brisko::charge_gate_test
