#include <cmath>
#include <cstring>
#include <string>

#include "sim/machine/machine_bench.h"
#include "support/testing.h"

namespace brisko::test::machine_smc_test {
namespace {

using namespace virtual_mac;

const Bytes stop{1, 0, 0, 0};
const Bytes open{0, 0, 0, 0};

std::uint8_t byteOf(OnWrite behaviour) { return static_cast<std::uint8_t>(behaviour); }

// The key's name at `index`; empty beyond the last.
std::string nameAt(Bench& mac, std::uint32_t index) {
  platform::SmcRecord input{};
  input[42] = 8;
  Bench::store(input, 44, index);
  if (mac.exchange(input) != accepted) return {};
  const std::uint32_t code = Bench::load(mac.output, 0);
  return {static_cast<char>(code >> 24U), static_cast<char>(code >> 16U), static_cast<char>(code >> 8U),
          static_cast<char>(code)};
}

std::vector<std::string> allNames(Bench& mac) {
  std::vector<std::string> names;
  for (std::uint32_t index = 0; !nameAt(mac, index).empty(); ++index) names.push_back(nameAt(mac, index));
  return names;
}

TEST(MachineSmc, answersAKeyInfoByteForByte) {
  Bench mac;
  platform::SmcRecord input{};
  const Bytes key{0x45, 0x54, 0x48, 0x43};  // "CHTE", first character in the high byte
  std::copy(key.begin(), key.end(), input.begin());
  input[42] = 9;

  EXPECT_EQ(mac.exchange(input), accepted);

  platform::SmcRecord expected{};
  expected[28] = 4;
  const Bytes type{'2', '3', 'i', 'u'};
  std::copy(type.begin(), type.end(), expected.begin() + 32);
  EXPECT_EQ(mac.output, expected);
}

TEST(MachineSmc, answersAReadWithTheBytesOnly) {
  Bench mac;
  mac.keyBytes("CHTE", {1, 2, 3, 4});

  EXPECT_EQ(mac.command(5, "CHTE", 4), accepted);

  platform::SmcRecord expected{};
  for (std::uint8_t index = 0; index < 4; ++index)
    expected[48U + index] = static_cast<std::uint8_t>(index + 1);
  EXPECT_EQ(mac.output, expected);
}

TEST(MachineSmc, answersAWriteWithAnEmptyRecord) {
  Bench mac;

  EXPECT_EQ(mac.write("CHTE", stop), accepted);

  EXPECT_THAT(mac.output, Each(0));
  EXPECT_EQ(mac.read("CHTE"), stop);
}

TEST(MachineSmc, rejectsAnAbsentKeyInEveryCommand) {
  Bench mac;
  for (const std::uint8_t command : Bytes{5, 6, 9}) {
    EXPECT_EQ(mac.command(command, "CH0B", 1, {2}), unknownKey);
    EXPECT_EQ(mac.command(command, "XXXX", 1, {2}), unknownKey);
  }
}

TEST(MachineSmc, refusesASizeOtherThanTheKeys) {
  Bench mac;
  for (const std::uint32_t size : {0U, 3U, 5U, 0xFFFFFFFFU}) {
    EXPECT_EQ(mac.command(6, "CHTE", size, stop), refused) << size;
    EXPECT_EQ(mac.command(5, "CHTE", size), refused) << size;
  }
  EXPECT_EQ(mac.read("CHTE"), open);
}

TEST(MachineSmc, failsACallWithAnUnknownCommand) {
  Bench mac;
  for (const std::uint8_t command : Bytes{0, 4, 7, 10, 255}) {
    EXPECT_EQ(mac.command(command, "CHTE", 4).status, platform::kernelBadArgument);
    EXPECT_THAT(mac.output, Each(0));
  }
}

TEST(MachineSmc, listsThePresentKeysByCode) {
  Bench mac;
  EXPECT_THAT(allNames(mac), ElementsAre("AC-W", "ACLC", "B0AC", "CHIE", "CHSC", "CHTE", "TB0T", "bfG0"));

  mac.key(ChangeKind::keyPresent, "ACLC", 0).key(ChangeKind::keyPresent, "CH0B", 1);
  EXPECT_THAT(allNames(mac), ElementsAre("AC-W", "B0AC", "CH0B", "CHIE", "CHSC", "CHTE", "TB0T", "bfG0"));
  EXPECT_EQ(nameAt(mac, 0xFFFFFFFF), "");
}

TEST(MachineSmc, offersTheKeysOfEachFamily) {
  const auto names = [](GateKind gate, CutKind cut, bool light) {
    Bench mac({.gate = gate, .cut = cut, .magSafeLight = light});
    return allNames(mac);
  };
  EXPECT_THAT(names(GateKind::ch0b0c, CutKind::ch0i, true),
              ElementsAre("AC-W", "ACLC", "B0AC", "CH0B", "CH0C", "CH0I", "CHSC", "TB0T", "bfG0"));
  EXPECT_THAT(names(GateKind::firmwareBand, CutKind::ch0j, false),
              ElementsAre("AC-W", "B0AC", "CH0J", "CHSC", "TB0T", "bfD0", "bfE0", "bfF0", "bfG0"));
  EXPECT_THAT(names(GateKind::none, CutKind::none, false),
              ElementsAre("AC-W", "B0AC", "CHSC", "TB0T", "bfG0"));
}

TEST(MachineSmc, addsAKeyThatNoModelHas) {
  Bench mac;
  mac.key(ChangeKind::keyPresent, "NEW1", 1);
  EXPECT_EQ(mac.write("NEW1", {7}), accepted);
  EXPECT_THAT(mac.read("NEW1"), ElementsAre(7));
}

// The answer of each behaviour, the value of the next read, and whether the hardware follows.
TEST(MachineSmc, followsTheBehaviourOfAKeyOnAWrite) {
  struct Case {
    OnWrite behaviour;
    Outcome outcome;
    Bytes readBack;
    bool followed;
  };
  const Outcome failed{0xE00002D6, 0};
  for (const Case& expected :
       {Case{OnWrite::obey, accepted, stop, true}, Case{OnWrite::ignore, accepted, open, false},
        Case{OnWrite::storeWithoutEffect, accepted, stop, false}, Case{OnWrite::refuse, refused, open, false},
        Case{OnWrite::kernelError, failed, open, false}}) {
    SCOPED_TRACE(static_cast<int>(expected.behaviour));
    Bench mac;
    mac.key(ChangeKind::keyOnWrite, "CHTE", byteOf(expected.behaviour), 0xE00002D6);

    EXPECT_EQ(mac.write("CHTE", stop), expected.outcome);

    EXPECT_EQ(mac.read("CHTE"), expected.readBack);
    EXPECT_EQ(chargingIsOpen(mac.machine), !expected.followed);
    EXPECT_EQ(mac.pass(2).machine.battery.currentMA == 0, expected.followed);
  }
}

TEST(MachineSmc, obeysAgainAfterARepair) {
  Bench mac;
  mac.key(ChangeKind::keyOnWrite, "CHTE", byteOf(OnWrite::storeWithoutEffect));
  EXPECT_EQ(mac.write("CHTE", stop), accepted);
  EXPECT_TRUE(chargingIsOpen(mac.machine));

  mac.key(ChangeKind::keyOnWrite, "CHTE", byteOf(OnWrite::obey));
  EXPECT_TRUE(chargingIsOpen(mac.machine));  // nothing was written yet
  EXPECT_EQ(mac.write("CHTE", stop), accepted);
  EXPECT_FALSE(chargingIsOpen(mac.machine));
}

TEST(MachineSmc, failsEveryCallForAnUnreadableKey) {
  Bench mac;
  mac.key(ChangeKind::keyReadStatus, "CHIE", 0, platform::kernelNotPrivileged);
  for (const std::uint8_t command : Bytes{5, 6, 9}) {
    EXPECT_EQ(mac.command(command, "CHIE", 1, {8}).status, platform::kernelNotPrivileged);
    EXPECT_THAT(mac.output, Each(0));
  }
  EXPECT_TRUE(adapterReachesBattery(mac.machine));

  mac.key(ChangeKind::keyReadStatus, "CHIE", 0, 0);
  EXPECT_THAT(mac.read("CHIE"), ElementsAre(0));
}

TEST(MachineSmc, readsAnEmptyKeyAsNothing) {
  Bench mac;
  mac.key(ChangeKind::keySize, "ACLC", 0);
  EXPECT_EQ(mac.info("ACLC"), accepted);
  EXPECT_EQ(Bench::load(mac.output, 28), 0U);
  EXPECT_EQ(mac.command(5, "ACLC", 0), accepted);
  EXPECT_EQ(mac.write("ACLC", {3}), refused);
}

TEST(MachineSmc, readsTheFirst32BytesOfALargeKeyAndRejectsWrites) {
  Bench mac;
  mac.key(ChangeKind::keySize, "CHTE", 33);
  EXPECT_EQ(mac.info("CHTE"), accepted);
  EXPECT_EQ(Bench::load(mac.output, 28), 33U);
  EXPECT_THAT(mac.read("CHTE"), SizeIs(32));
  EXPECT_EQ(mac.command(6, "CHTE", 33, Bytes(32, 1)), refused);

  mac.key(ChangeKind::keySize, "CHTE", 32);
  EXPECT_EQ(mac.write("CHTE", Bytes(32, 1)), accepted);
  EXPECT_THAT(mac.read("CHTE"), Each(1));
}

TEST(MachineSmc, resetsAKeySomeTimeAfterTheWrite) {
  Bench mac;
  mac.key(ChangeKind::keyReleaseAfter, "CHIE", 10);
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);

  mac.pass(9.5);
  EXPECT_THAT(mac.read("CHIE"), ElementsAre(8));
  EXPECT_FALSE(adapterReachesBattery(mac.machine));
  mac.pass(0.5);
  EXPECT_THAT(mac.read("CHIE"), ElementsAre(0));
  EXPECT_TRUE(adapterReachesBattery(mac.machine));
}

TEST(MachineSmc, restartsTheTimeOfAResetAtEachWrite) {
  Bench mac;
  mac.key(ChangeKind::keyReleaseAfter, "CHIE", 10);
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);
  mac.pass(6);
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);
  mac.pass(6);
  EXPECT_THAT(mac.read("CHIE"), ElementsAre(8));
  mac.pass(4);
  EXPECT_THAT(mac.read("CHIE"), ElementsAre(0));
}

TEST(MachineSmc, resetsAKeyAtOnce) {
  Bench mac;
  mac.key(ChangeKind::keyReleaseAfter, "CHIE", 0);
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);
  EXPECT_THAT(mac.read("CHIE"), ElementsAre(0));
  EXPECT_TRUE(adapterReachesBattery(mac.machine));
  EXPECT_EQ(mac.machine.powerSource.changes, 0U);

  mac.key(ChangeKind::keyReleaseAfter, "CHIE", -1);
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);
  EXPECT_THAT(mac.pass(3600).read("CHIE"), ElementsAre(8));
}

TEST(MachineSmc, cancelsAPendingResetWhenTheFaultEnds) {
  Bench mac;
  mac.key(ChangeKind::keyReleaseAfter, "CHIE", 10);
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);
  mac.key(ChangeKind::keyReleaseAfter, "CHIE", -1).pass(100);
  EXPECT_THAT(mac.read("CHIE"), ElementsAre(8));
}

TEST(MachineSmc, resetsAKeyOnCommand) {
  Bench mac;
  EXPECT_EQ(mac.write("ACLC", {3}), accepted);
  mac.key(ChangeKind::keyRelease, "ACLC");
  EXPECT_THAT(mac.read("ACLC"), ElementsAre(0));
}

TEST(MachineSmc, resetsTheLightWithEachChangeOfTheAdapter) {
  Bench mac;
  mac.keyBytes("ACLC", {3}).change(ChangeKind::unplug);
  EXPECT_EQ(mac.read("ACLC"), Bytes{3}) << "this Mac does not reset the light";
  mac.change(ChangeKind::lightTaken, 1);
  EXPECT_EQ(mac.read("ACLC"), Bytes{3});
  mac.change(ChangeKind::plug, 30);
  EXPECT_EQ(mac.read("ACLC"), Bytes{0});
  mac.keyBytes("ACLC", {3}).change(ChangeKind::plug, 60);
  EXPECT_EQ(mac.read("ACLC"), Bytes{3});
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);
  EXPECT_EQ(mac.read("ACLC"), Bytes{0});
  mac.keyBytes("ACLC", {3}).change(ChangeKind::lightTaken, 0).change(ChangeKind::unplug);
  EXPECT_EQ(mac.read("ACLC"), Bytes{3});
}

TEST(MachineSmc, resetsTheLightWhenThePublishedChargingStateChanges) {
  Bench mac;
  mac.pass(60).change(ChangeKind::lightTaken, 1).keyBytes("ACLC", {4});
  ASSERT_TRUE(mac.machine.powerSource.charging);
  mac.pass(600);
  EXPECT_EQ(mac.read("ACLC"), Bytes{4});
  EXPECT_EQ(mac.write("CHTE", stop), accepted);
  mac.pass(59);
  EXPECT_EQ(mac.read("ACLC"), Bytes{4});
  mac.pass(1);
  EXPECT_FALSE(mac.machine.powerSource.charging);
  EXPECT_EQ(mac.read("ACLC"), Bytes{0});
  // A change of the adapter resets it even if the battery does not charge before and after.
  mac.keyBytes("ACLC", {3}).change(ChangeKind::unplug);
  EXPECT_EQ(mac.read("ACLC"), Bytes{0});
}

TEST(MachineSmc, resetsNoLightOnAMacWithoutOne) {
  Bench mac({.magSafeLight = false});
  mac.change(ChangeKind::lightTaken, 1).change(ChangeKind::unplug);
  EXPECT_EQ(mac.info("ACLC"), unknownKey);
}

TEST(MachineSmc, followsWritesOfOtherPrograms) {
  Bench mac;
  mac.keyBytes("CHTE", stop);
  EXPECT_EQ(mac.read("CHTE"), stop);
  EXPECT_FALSE(chargingIsOpen(mac.machine));
}

TEST(MachineSmc, showsTheAdapterAlsoWhileItIsCut) {
  Bench mac;
  EXPECT_NE(mac.read("AC-W").at(0), 0xFF);
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);
  EXPECT_NE(mac.read("AC-W").at(0), 0xFF);
  mac.change(ChangeKind::unplug);
  EXPECT_EQ(mac.read("AC-W").at(0), 0xFF);
}

TEST(MachineSmc, showsTheTemperatureAsALittleEndianFloat) {
  Bench mac;
  mac.change(ChangeKind::temperature, 31.25);
  EXPECT_THAT(mac.read("TB0T"), ElementsAre(0x00, 0x00, 0xFA, 0x41));
}

TEST(MachineSmc, showsTheCurrentWithItsSign) {
  Bench mac;
  mac.machine.battery.currentMA = -483.2;
  EXPECT_THAT(mac.read("B0AC"), ElementsAre(0x1D, 0xFE));
  EXPECT_THAT(mac.read("CHSC"), ElementsAre(0));
  mac.machine.battery.currentMA = 2019;
  EXPECT_THAT(mac.read("B0AC"), ElementsAre(0xE3, 0x07));
  EXPECT_THAT(mac.read("CHSC"), ElementsAre(1));
  mac.machine.battery.currentMA = 40000;
  EXPECT_THAT(mac.read("B0AC"), ElementsAre(0xFF, 0x7F));
}

TEST(MachineSmc, hasNoLimitOfMacOSYet) {
  Bench mac;
  EXPECT_THAT(mac.read("bfG0"), ElementsAre(0));
}

TEST(MachineSmc, refusesWritesToComputedKeys) {
  Bench mac;
  EXPECT_EQ(mac.write("AC-W", {0xFF}), refused);
  EXPECT_EQ(mac.write("TB0T", {0, 0, 0, 0}), refused);
  EXPECT_NE(mac.read("AC-W").at(0), 0xFF);
}

TEST(MachineSmc, simulatesABrokenSensorUntilItRecovers) {
  Bench mac;
  mac.change(ChangeKind::temperature, 31.25);
  const float broken = std::nanf("");
  Bytes bytes(4);
  std::memcpy(bytes.data(), &broken, 4);

  mac.keyBytes("TB0T", bytes);
  EXPECT_EQ(mac.read("TB0T"), bytes);
  mac.key(ChangeKind::keySize, "TB0T", 3);
  EXPECT_THAT(mac.read("TB0T"), SizeIs(3));

  mac.key(ChangeKind::keySize, "TB0T", 4).key(ChangeKind::keyUnscript, "TB0T");
  EXPECT_THAT(mac.read("TB0T"), ElementsAre(0x00, 0x00, 0xFA, 0x41));
}

TEST(MachineSmc, keepsEveryWriteInTheJournalInOrder) {
  Bench mac;
  mac.machine.system.processes = 3;
  mac.key(ChangeKind::keyOnWrite, "CHTE", byteOf(OnWrite::refuse));
  mac.read("CHTE");
  mac.write("CHTE", stop);
  mac.pass(2.5);
  mac.write("CHIE", {8});
  mac.key(ChangeKind::keyReadStatus, "ACLC", 0, 0xE00002C1);
  mac.write("ACLC", {3});

  ASSERT_EQ(mac.journal->written, 3U);
  const JournalEntry& first = mac.journal->entries[0];
  EXPECT_EQ(first.time, 1772352000);
  EXPECT_EQ(first.process, 3U);
  EXPECT_EQ(first.key, keyCode("CHTE"));
  EXPECT_EQ(first.status, platform::kernelSuccess);
  EXPECT_EQ(first.command, 6);
  EXPECT_EQ(first.result, 1);
  EXPECT_EQ(first.size, 4);
  EXPECT_EQ(first.bytes[0], 1);
  const JournalEntry& second = mac.journal->entries[1];
  EXPECT_EQ(second.time, 1772352002.5);
  EXPECT_EQ(second.key, keyCode("CHIE"));
  EXPECT_EQ(second.result, 0);
  EXPECT_EQ(second.size, 1);
  EXPECT_EQ(second.bytes[0], 8);
  EXPECT_EQ(mac.journal->entries[2].status, 0xE00002C1);
  EXPECT_EQ(mac.journal->entries[2].bytes[0], 3);
}

TEST(MachineSmc, keepsReadsOnlyWhenAsked) {
  Bench mac;
  mac.journal->reads = true;
  mac.read("AC-W");
  mac.write("ACLC", {4});
  mac.info("NONE");
  nameAt(mac, 1);

  ASSERT_EQ(mac.journal->written, 5U);
  const auto& entries = mac.journal->entries;
  EXPECT_EQ(entries[0].command, 9);
  EXPECT_EQ(entries[0].size, 0);
  EXPECT_EQ(entries[1].command, 5);
  EXPECT_EQ(entries[1].size, 1);
  EXPECT_EQ(entries[1].bytes[0], mac.read("AC-W").at(0));
  EXPECT_EQ(entries[2].command, 6);
  EXPECT_EQ(entries[3].key, keyCode("NONE"));
  EXPECT_EQ(entries[3].result, 0x84);
  EXPECT_EQ(entries[4].command, 8);
  EXPECT_EQ(entries[4].key, keyCode("ACLC"));
}

TEST(MachineSmc, overwritesTheOldestEntryOfAFullJournal) {
  Bench mac;
  for (std::size_t count = 0; count < Journal::capacity + 2; ++count) {
    mac.write("ACLC", {static_cast<std::uint8_t>(count % 5)});
  }
  EXPECT_EQ(mac.journal->written, Journal::capacity + 2);
  EXPECT_EQ(mac.journal->entries[1].bytes[0], (Journal::capacity + 1) % 5);
  EXPECT_EQ(mac.journal->entries[2].bytes[0], 2);
}

TEST(MachineSmc, countsExchangesAndRaisesASignalAfterTheGivenOne) {
  Bench mac;
  mac.info("CHTE");
  mac.change({.kind = ChangeKind::signalAtExchange, .number = 15, .status = 3});
  mac.info("CHTE");
  mac.info("NONE");
  EXPECT_EQ(mac.machine.pendingSignals, 0U);
  mac.info("CHTE");
  EXPECT_EQ(mac.machine.pendingSignals, 1U << 15U);
  EXPECT_EQ(mac.machine.smc.exchanges, 4U);

  mac.machine.pendingSignals = 0;
  mac.info("CHTE");
  EXPECT_EQ(mac.machine.pendingSignals, 0U);
}

TEST(MachineSmc, closesTheChargeKeysFromMacOS27On) {
  Bench mac({.gate = GateKind::ch0b0c, .cut = CutKind::chie, .macOS = 27});
  mac.key(ChangeKind::keyPresent, "CHTE", 1).key(ChangeKind::keyPresent, "bfF0", 1);
  for (const char* name : {"CHTE", "CH0B", "CH0C"}) {
    EXPECT_EQ(mac.info(name), accepted) << name;
    EXPECT_EQ(Bench::load(mac.output, 28), 0U) << name;
    EXPECT_EQ(mac.write(name, {2}), refused) << name;
  }
  EXPECT_EQ(mac.info("bfF0").status, platform::kernelNotPrivileged);
  EXPECT_EQ(mac.write("bfF0", {2}).status, platform::kernelNotPrivileged);
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);
  EXPECT_EQ(mac.write("ACLC", {3}), accepted);
  EXPECT_NE(mac.read("AC-W").at(0), 0xFF);
}

TEST(MachineSmc, leavesTheChargeKeysOpenUpToMacOS26) {
  Bench mac({.gate = GateKind::firmwareBand, .macOS = 26});
  EXPECT_EQ(mac.write("bfF0", {2}), accepted);
}

TEST(MachineSmc, allowsChargingWhenAnUpgradeClosesTheKeys) {
  Bench mac;
  EXPECT_EQ(mac.write("CHTE", stop), accepted);
  EXPECT_EQ(mac.write("CHIE", {8}), accepted);

  mac.change(ChangeKind::macOS, 27);
  EXPECT_TRUE(chargingIsOpen(mac.machine));
  EXPECT_THAT(mac.read("CHTE"), IsEmpty());
  EXPECT_THAT(mac.read("CHIE"), ElementsAre(8));  // the system does not touch a cut

  mac.change(ChangeKind::macOS, 26);
  EXPECT_EQ(mac.read("CHTE"), open);
}

}  // namespace
}  // namespace brisko::test::machine_smc_test
