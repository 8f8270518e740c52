#include <string>

#include "packaging/scratch_mac.h"
#include "support/testing.h"

namespace brisko::test::inventory_test {
namespace {

Finished inventory(const ScratchMac& mac, const Words& arguments = {}) {
  return mac.runScript(std::string(BRISKO_PACKAGING) + "/inventory.sh", arguments);
}

// The fakes' clock begins at 1772352000.
void putStatus(const ScratchMac& mac, const std::string& written) {
  mac.put(
      dataFolder + "/status.json",
      R"({"chargeMode":"CHTE","daemonVersion":"0.9.9","gateVerified":false,"pct":78,"state":"hold","ts":)" +
          written + R"(,"upper":80})");
}

TEST(Inventory, printsWhatTheStatusContains) {
  const ScratchMac mac;
  putStatus(mac, "1772351990.5");

  const Finished run = inventory(mac);

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(
      run.output,
      "service: running\nversion: 0.9.9\ncharge: 78\nlimit: 80\nmode: CHTE\nstate: hold\nverified: false\n");
  EXPECT_EQ(inventory(mac, {"state"}).output, "hold\n");
}

TEST(Inventory, tellsASilentDaemonFromOneThatReports) {
  const ScratchMac mac;
  putStatus(mac, "1772351880.9");
  EXPECT_EQ(inventory(mac, {"service"}).output, "running\n");
  putStatus(mac, "1772351879.9");
  EXPECT_EQ(inventory(mac, {"service"}).output, "silent\n");
}

// A shell's arithmetic would run it.
TEST(Inventory, runsNothingThatTheStatusContains) {
  ScratchMac mac;
  mac.useBash();
  putStatus(mac, R"("a[$(: >)" + mac.at("/sprung") + R"()]")");
  EXPECT_EQ(inventory(mac, {"service"}).output, "silent\n");
  EXPECT_FALSE(exists(mac.at("/sprung")));
}

TEST(Inventory, worksWithoutAStatusAndWithHalfOfOne) {
  const ScratchMac mac;
  EXPECT_EQ(inventory(mac).output,
            "service: not installed\nversion: \ncharge: \nlimit: \nmode: \nstate: \nverified: \n");

  mac.put(dataFolder + "/status.json", R"({"pct":78,"sta)");
  const Finished run = inventory(mac);
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, ::testing::StartsWith("service: silent\nversion: \n"));
}

TEST(Inventory, refusesAnUnknownName) {
  const ScratchMac mac;
  const Finished run = inventory(mac, {"colour"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.errors, "Unknown name \"colour\".\n");
}

}  // namespace
}  // namespace brisko::test::inventory_test
