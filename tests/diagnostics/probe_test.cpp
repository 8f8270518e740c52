#include "diagnostics/probe.h"

#include <filesystem>

#include "support/daemon_process.h"
#include "support/record_schemas.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::probe_test {
namespace {

using namespace test;

// What a process with these arguments prints before its first wait, followed by its status.
std::string outcome(VirtualMac& mac, const std::vector<std::string>& arguments) {
  DaemonProcess daemon(mac, arguments);
  daemon.run(0);
  EXPECT_EQ(daemon.errors(), "");
  return daemon.output() + std::to_string(daemon.status().value_or(-1));
}
std::string text(VirtualMac& mac) { return outcome(mac, {"--probe"}); }
std::string object(VirtualMac& mac) {
  std::string printed = outcome(mac, {"--probe", "--json"});
  const std::string withoutStatus = printed.substr(0, printed.rfind('}') + 1);
  if (!withoutStatus.empty()) {
    EXPECT_EQ(test::flawIn(withoutStatus, "probe"), std::nullopt) << printed;
  }
  return printed;
}

MachineOptions with(GateKind gate, CutKind cut, bool light = true) {
  return {.gate = gate, .cut = cut, .magSafeLight = light};
}

MachineOptions closed(bool chargeLimit) { return {.macOS = 27, .chargeLimit = chargeLimit}; }

TEST(Probe, reportsTheOneKey) {
  VirtualMac mac;
  EXPECT_EQ(text(mac),
            "charging   : CHTE\n"
            "discharge  : CHIE\n"
            "MagSafe LED: ACLC\n"
            "verified by: AppleSmartBattery current\n"
            "will write : CHIE, CHTE (+ ACLC)\n"
            "0");
  EXPECT_EQ(object(mac), R"({"discharge":"CHIE","led":true,"mode":"CHTE","supported":true}0)");
}

TEST(Probe, reportsThePairWithoutALight) {
  VirtualMac mac(with(GateKind::ch0b0c, CutKind::ch0i, false));
  EXPECT_EQ(text(mac),
            "charging   : CH0B+CH0C\n"
            "discharge  : CH0I\n"
            "MagSafe LED: not supported\n"
            "verified by: AppleSmartBattery current\n"
            "will write : CH0I, CH0B, CH0C (+ ACLC)\n"
            "0");
  EXPECT_EQ(object(mac), R"({"discharge":"CH0I","led":false,"mode":"CH0B+CH0C","supported":true}0)");
}

TEST(Probe, reportsTheFirmwareBand) {
  VirtualMac mac(with(GateKind::firmwareBand, CutKind::ch0j));
  EXPECT_EQ(text(mac),
            "charging   : bfD0/bfE0/bfF0\n"
            "discharge  : CH0J\n"
            "MagSafe LED: ACLC\n"
            "verified by: AppleSmartBattery current\n"
            "will write : CH0J, bfF0, bfD0, bfE0 (+ ACLC)\n"
            "0");
  EXPECT_EQ(object(mac), R"({"discharge":"CH0J","led":true,"mode":"bfD0/bfE0/bfF0","supported":true}0)");
}

TEST(Probe, reportsThatTheAdapterCannotBeCut) {
  VirtualMac mac(with(GateKind::chte, CutKind::none));
  EXPECT_EQ(text(mac),
            "charging   : CHTE\n"
            "discharge  : not supported\n"
            "MagSafe LED: ACLC\n"
            "verified by: AppleSmartBattery current\n"
            "will write : CHTE (+ ACLC)\n"
            "0");
  EXPECT_EQ(object(mac), R"({"led":true,"mode":"CHTE","supported":true}0)");
}

TEST(Probe, reportsTheLimitOfMacOS) {
  VirtualMac mac(closed(true));
  EXPECT_EQ(text(mac),
            "charging   : macOS\n"
            "discharge  : macOS (down to the limit)\n"
            "MagSafe LED: ACLC\n"
            "verified by: AppleSmartBattery current\n"
            "will write : macOS charge limit (PowerUI, mclLimitValue below 80%) (+ ACLC)\n"
            "0");
  EXPECT_EQ(object(mac), R"({"discharge":"macOS","led":true,"mode":"macOS","supported":true}0)");
}

constexpr const char* lockedMessage =
    "macOS 27 changed the way charging is controlled; Brisko can’t hold a limit on this version yet.";
constexpr const char* lockedObject =
    R"({"detail":"macOS 27: CHTE/CH0B/CH0C empty and bfF0/bfD0/bfE0 refused (kIOReturnNotPrivileged) even )"
    R"(for root — not probed, see SystemLock","message":"macOS 27 changed the way charging is controlled; )"
    R"(Brisko can’t hold a limit on this version yet.","reason":"system-locked","supported":false}0)";

TEST(Probe, reportsClosedKeys) {
  VirtualMac mac(closed(false));
  EXPECT_EQ(text(mac), std::string("no usable charge control.\n") + lockedMessage + "\n0");
  EXPECT_EQ(object(mac), lockedObject);
}

TEST(Probe, looksForNoKeyIfTheKeysAreClosed) {
  VirtualMac mac(closed(false));
  mac.keepReads();
  static_cast<void>(text(mac));
  static_cast<void>(object(mac));
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST(Probe, waitsForNothingRightAfterBoot) {
  MachineOptions options = closed(true);
  options.uptime = 5;
  VirtualMac mac(options);
  mac.number(ChangeKind::limitSupportedAfter, 30);
  EXPECT_EQ(object(mac), lockedObject);
}

TEST(Probe, reportsThatThereIsNoKnownKey) {
  VirtualMac mac(with(GateKind::none, CutKind::chie));
  EXPECT_EQ(
      text(mac),
      "no usable charge control.\n"
      "Brisko couldn’t find a way to control charging on this Mac. It needs an Apple Silicon Mac, an M1 "
      "or newer.\n"
      "0");
  EXPECT_EQ(object(mac),
            R"j({"detail":"no known charge-control key (looked for CHTE, CH0B+CH0C, bfF0/bfD0/bfE0)",)j"
            R"("message":"Brisko couldn’t find a way to control charging on this Mac. It needs an Apple )"
            R"(Silicon Mac, an M1 or newer.","reason":"none","supported":false}0)");
}

TEST(Probe, reportsOnStandardOutputThatThereIsNoController) {
  VirtualMac mac;
  mac.number(ChangeKind::smcService, static_cast<double>(virtual_mac::SmcService::absent));
  EXPECT_EQ(text(mac), "Could not open AppleSMC.\n1");
  EXPECT_EQ(object(mac), "Could not open AppleSMC.\n1");
}

TEST(Probe, needsNoRoot) {
  VirtualMac mac;
  mac.number(ChangeKind::userId, 501);
  EXPECT_EQ(object(mac), R"({"discharge":"CHIE","led":true,"mode":"CHTE","supported":true}0)");
}

TEST(Probe, namesHowAHoldIsVerified) {
  VirtualMac mac;
  mac.property("Amperage", PropertyFault::missing);
  EXPECT_THAT(text(mac), HasSubstr("\nverified by: CHSC\n"));
  mac.removeKey("CHSC");
  EXPECT_THAT(text(mac), HasSubstr("\nverified by: nothing\n"));
  mac.property("Amperage", PropertyFault::none);
  EXPECT_THAT(text(mac), HasSubstr("\nverified by: AppleSmartBattery current\n"));
}

// A key without bytes can be read too.
TEST(Probe, countsAnEmptyKeyAsPresent) {
  VirtualMac mac;
  mac.property("Amperage", PropertyFault::missing);
  for (const char* key : {"ACLC", "CHSC", "CHTE"}) {
    mac.change({.kind = ChangeKind::keySize, .key = virtual_mac::keyCode(key), .number = 0});
  }
  EXPECT_EQ(text(mac),
            "charging   : CHTE\n"
            "discharge  : CHIE\n"
            "MagSafe LED: ACLC\n"
            "verified by: CHSC\n"
            "will write : CHIE, CHTE (+ ACLC)\n"
            "0");
}

TEST(Probe, writesNeitherKeysNorFiles) {
  for (const MachineOptions& options : {with(GateKind::chte, CutKind::chie), closed(true), closed(false)}) {
    VirtualMac mac(options);
    const auto volume = [&mac] {
      std::vector<std::string> paths;
      for (const auto& entry : std::filesystem::recursive_directory_iterator(mac.path(""))) {
        paths.push_back(entry.path());
      }
      return paths;
    };
    const auto before = volume();
    static_cast<void>(text(mac));
    static_cast<void>(object(mac));
    EXPECT_THAT(mac.writes(), IsEmpty());
    EXPECT_EQ(volume(), before);
  }
}

}  // namespace
}  // namespace brisko::probe_test
