#include "diagnostics/firmware_test.h"

#include <algorithm>
#include <csignal>

#include "support/daemon_process.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::firmware_test_test {
namespace {

using namespace test;

constexpr double wholeTest = 18;  // seconds

struct Outcome {
  std::optional<int> status;
  std::string output;
};

Outcome run(VirtualMac& mac, double seconds = 0) {
  DaemonProcess daemon(mac, {"--fwtest"});
  daemon.run(seconds);
  EXPECT_EQ(daemon.errors(), "");
  return {daemon.status(), daemon.output()};
}

std::ptrdiff_t linesOf(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

MachineOptions atCharge(double percent) { return {.percent = percent}; }

class FirmwareTest : public ::testing::Test {
 protected:
  FirmwareTest() : mac(atCharge(57), "pro16") {}
  VirtualMac mac;
};

// The gauge publishes every minute, in the middle of this test.
TEST_F(FirmwareTest, armsTheBandReportsItAndDisarmsIt) {
  mac.pass(52);
  const Outcome outcome = run(mac, wholeTest);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output,
            "firmware mode detected (bfD0/bfE0/bfF0). battery 57%.\n"
            "arming band 37–42% via ChargeGate.setCharging for 15 s…\n"
            "  B0AC=7080 mA  armed=true\n"
            "  B0AC=7080 mA  armed=true\n"
            "  B0AC=0 mA  armed=true\n"
            "  B0AC=0 mA  armed=true\n"
            "  B0AC=0 mA  armed=true\n"
            "disarmed. B0AC=0 mA  armed=false\n");
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=2a000000", "bfE0=25000000", "bfF0=02", "bfF0=00"));
}

TEST_F(FirmwareTest, takesAsLongAsItAnnounces) {
  DaemonProcess daemon(mac, {"--fwtest"});
  daemon.run(0);
  const std::string header =
      "firmware mode detected (bfD0/bfE0/bfF0). battery 57%.\n"
      "arming band 37–42% via ChargeGate.setCharging for 15 s…\n";
  EXPECT_EQ(daemon.output(), header);
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=2a000000", "bfE0=25000000", "bfF0=02"));
  for (int sample = 1; sample <= 5; ++sample) {
    daemon.run(2.9);
    EXPECT_EQ(linesOf(daemon.output()), 1 + sample);
    daemon.run(0.1);
    EXPECT_EQ(linesOf(daemon.output()), 2 + sample);
  }
  EXPECT_EQ(mac.writes().back(), "bfF0=00");
  EXPECT_EQ(mac.writes().size(), 5U);
  daemon.run(2.9);
  EXPECT_TRUE(daemon.alive());
  daemon.run(0.1);
  EXPECT_FALSE(daemon.alive());
  EXPECT_EQ(daemon.status(), 0);
}

TEST(FirmwareTestBand, liesFifteenAndTwentyPointsBelowTheChargeAndNotBelowTwenty) {
  struct Case {
    double charge;
    const char* text;
    Writes band;
  };
  const Case cases[] = {
      {100, "80–85%", {"bfD0=55000000", "bfE0=50000000"}}, {57, "37–42%", {"bfD0=2a000000", "bfE0=25000000"}},
      {41, "21–26%", {"bfD0=1a000000", "bfE0=15000000"}},  {40, "20–25%", {"bfD0=19000000", "bfE0=14000000"}},
      {39, "20–24%", {"bfD0=18000000", "bfE0=14000000"}},  {36, "20–21%", {"bfD0=15000000", "bfE0=14000000"}},
      {35, "20–20%", {"bfD0=14000000", "bfE0=14000000"}},  {30, "20–20%", {"bfD0=14000000", "bfE0=14000000"}},
      {3, "20–20%", {"bfD0=14000000", "bfE0=14000000"}}};
  for (const Case& each : cases) {
    VirtualMac mac(atCharge(each.charge), "pro16");
    const Outcome outcome = run(mac);
    EXPECT_THAT(outcome.output, HasSubstr("). battery " + std::to_string(static_cast<int>(each.charge)) +
                                          "%.\narming band " + each.text + " via"));
    ASSERT_EQ(mac.writes().size(), 4U);
    EXPECT_EQ((Writes{mac.writes()[1], mac.writes()[2]}), each.band);
  }
}

TEST_F(FirmwareTest, countsAnUnreadableChargeAsFull) {
  mac.number(ChangeKind::powerSources, static_cast<double>(virtual_mac::PowerSourceFault::noSnapshot));
  EXPECT_EQ(run(mac).output,
            "firmware mode detected (bfD0/bfE0/bfF0). battery 100%.\n"
            "arming band 80–85% via ChargeGate.setCharging for 15 s…\n");
}

TEST_F(FirmwareTest, showsAnUnreadableCurrentAs0) {
  mac.property("Amperage", PropertyFault::missing);
  EXPECT_EQ(run(mac, wholeTest).output,
            "firmware mode detected (bfD0/bfE0/bfF0). battery 57%.\n"
            "arming band 37–42% via ChargeGate.setCharging for 15 s…\n"
            "  B0AC=0 mA  armed=true\n"
            "  B0AC=0 mA  armed=true\n"
            "  B0AC=0 mA  armed=true\n"
            "  B0AC=0 mA  armed=true\n"
            "  B0AC=0 mA  armed=true\n"
            "disarmed. B0AC=0 mA  armed=false\n");
}

TEST_F(FirmwareTest, showsWhenTheBandIsNotAccepted) {
  mac.property("Amperage", PropertyFault::missing);
  mac.keyOnWrite("bfF0", OnWrite::ignore);
  const Outcome outcome = run(mac, wholeTest);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("\n  B0AC=0 mA  armed=false\n"));
  EXPECT_THAT(outcome.output, EndsWith("\ndisarmed. B0AC=0 mA  armed=false\n"));
}

// A band left behind would keep the battery from charging.
TEST_F(FirmwareTest, disarmsBeforeASignalEndsIt) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    DaemonProcess daemon(mac, {"--fwtest"});
    daemon.run(4);
    daemon.signal(number);
    daemon.run(1);
    EXPECT_TRUE(daemon.alive());
    EXPECT_EQ(mac.key("bfF0"), (std::vector<std::uint8_t>{2}));
    daemon.run(wholeTest);
    EXPECT_EQ(daemon.endSignal(), number);
    EXPECT_EQ(mac.key("bfF0"), (std::vector<std::uint8_t>{0}));
    EXPECT_THAT(daemon.output(), HasSubstr("\ndisarmed. B0AC="));
  }
}

TEST(FirmwareTestElsewhere, hasNothingToTest) {
  struct Case {
    GateKind gate;
    std::int64_t macOS;
    const char* label;
  };
  for (const Case& each : {Case{GateKind::chte, 26, "CHTE"}, Case{GateKind::ch0b0c, 26, "CH0B+CH0C"},
                           Case{GateKind::chte, 27, "macOS"}}) {
    VirtualMac mac({.gate = each.gate, .macOS = each.macOS});
    const Outcome outcome = run(mac);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, std::string("this Mac uses ") + each.label +
                                  ", not the firmware band — nothing to test here.\n");
    EXPECT_THAT(mac.writes(), IsEmpty());
  }
}

TEST(FirmwareTestElsewhere, reportsInDetailThatThereIsNoGate) {
  VirtualMac mac({.gate = GateKind::none});
  const Outcome outcome = run(mac);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output,
            "no usable charge control: no known charge-control key (looked for CHTE, CH0B+CH0C, "
            "bfF0/bfD0/bfE0)\n");

  VirtualMac locked({.macOS = 27, .chargeLimit = false});
  EXPECT_EQ(run(locked).output,
            "no usable charge control: macOS 27: CHTE/CH0B/CH0C empty and bfF0/bfD0/bfE0 refused "
            "(kIOReturnNotPrivileged) even for root — not probed, see SystemLock\n");
}

TEST(FirmwareTestElsewhere, doesNotWaitForALimitServiceThatIsStarting) {
  VirtualMac mac({.macOS = 27, .uptime = 20});
  mac.number(ChangeKind::limitSupportedAfter, 25);
  const Outcome outcome = run(mac);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("no usable charge control: macOS 27: CHTE/CH0B/CH0C empty"));
  EXPECT_EQ(mac.machine().limit.calls.supported, 1U);
}

TEST_F(FirmwareTest, reportsOnStandardOutputThatThereIsNoController) {
  mac.number(ChangeKind::smcService, static_cast<double>(virtual_mac::SmcService::refusesToOpen));
  const Outcome outcome = run(mac);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "Could not open AppleSMC.\n");
}

TEST_F(FirmwareTest, writesNoFile) {
  static_cast<void>(run(mac, wholeTest));
  EXPECT_FALSE(mac.exists("/Library/Logs/Brisko"));
  EXPECT_FALSE(mac.exists("/Library/Application Support/Brisko"));
}

}  // namespace
}  // namespace brisko::firmware_test_test
