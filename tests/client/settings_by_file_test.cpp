// Settings that are written in the file, because the daemon refuses our requests, while that daemon clears a
// request in the same file. A change may be lost then, and is mended or reported; a request that was served
// never comes back.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "client/live_brisko.h"
#include "client/settings_writer.h"

namespace brisko::settings_by_file_test {
namespace {

using nlohmann::json;
using test::countOf;
using test::eventually;
using virtual_mac::ChangeKind;

class SettingsByFile : public ::testing::Test {
 protected:
  SettingsByFile() {
    EXPECT_EQ(::setenv("BRISKO_VIRTUAL_MAC", mac.mac.folder().c_str(), 1), 0);
    mac.mac.settings(R"({"limit":80,"calDrain":20,"calSoakMinutes":0})");
    static_cast<void>(mac.mac.vmac("fault", {"daemon-other-team"}));
    mac.boot();
  }

  static client::State state() { return client::readState(client::Volume()); }

  static client::ChangeOutcome write(const client::State& state, const json& keys) {
    return client::changeSettings(state, keys, {.waitSeconds = 60, .commandLine = "brisko"});
  }

  // Asks the daemon for something that it clears when it is done.
  void request(const char* key) const {
    const auto outcome = write(state(), {{key, true}});
    EXPECT_TRUE(outcome.confirmed) << outcome.text;
    EXPECT_EQ(outcome.way, client::Way::file);
  }

  // The daemon overwrites the file in place, so it may be found truncated.
  [[nodiscard]] json config() const {
    json object;
    EXPECT_TRUE(eventually([&] {
      object = json::parse(mac.config(), nullptr, false);
      return object.is_object();
    }));
    return object;
  }

  [[nodiscard]] static bool shows(const std::function<bool(const client::DaemonStatus&)>& what) {
    return eventually([&] {
      const auto status = client::readStatus(client::Volume());
      return status && what(*status);
    });
  }
  [[nodiscard]] static bool inPhase(CalPhase phase) {
    return shows([phase](const client::DaemonStatus& status) { return status.calibration.phase == phase; });
  }

  // Writes `value` while the daemon clears `request` because of `change`, which comes a little later each
  // time.
  void race(const virtual_mac::Change& change, const char* request, int value) {
    const client::State before = state();
    std::thread changing([&] {
      std::this_thread::sleep_for(std::chrono::microseconds(150 * written));
      mac.change(change);
    });
    const auto outcome = write(before, {{"historyDays", value}});
    changing.join();
    EXPECT_TRUE(eventually([&] { return config()[request] == false; }));
    const bool holds = config()["historyDays"] == value;
    EXPECT_EQ(holds, outcome.status == client::ExitStatus::done) << outcome.text;
    if (outcome.status != client::ExitStatus::done) {
      EXPECT_EQ(outcome.status, client::ExitStatus::notDone);
      ++reported;
    }
    lost += outcome.writes - (holds ? 1 : 0);
    cleared += outcome.cleared;
    ++written;
  }

  void report() const {
    std::printf("%d changes; lost %d times, of which %d were reported and the others mended\n", written, lost,
                reported);
    EXPECT_LE(reported, lost);
  }

  // Fast, so that the daemon's next tick is never far.
  test::LiveBrisko mac{{"--charge", "70", "--speed", "3000"}};
  int written = 0;
  int lost = 0;
  int reported = 0;
  std::size_t cleared = 0;
};

TEST_F(SettingsByFile, neitherLosesAChangeSilentlyNorRepeatsAFullChargeThatHasEnded) {
  constexpr std::size_t rounds = 25;
  for (std::size_t round = 0; round < rounds && !HasFailure(); ++round) {
    request("topUp");
    race({.kind = ChangeKind::unplug}, "topUp", 30 + static_cast<int>(round));
    EXPECT_TRUE(shows([](const client::DaemonStatus& status) { return !status.topUp && !status.plugged; }));
    mac.change({.kind = ChangeKind::plug, .number = 30});
    mac.change({.kind = ChangeKind::charge, .number = 70});
    EXPECT_TRUE(shows([](const client::DaemonStatus& status) { return status.plugged; }));
  }
  // The new file may bring a request back that was cleared since it was read, until the client looks again a
  // moment later and clears it again. On battery the daemon drops it at once, with the same line.
  const std::size_t finished = countOf(mac.mac.log(), "Top Up finished (unplugged)");
  EXPECT_GE(finished, rounds);
  EXPECT_LE(finished, rounds + cleared);
  EXPECT_TRUE(shows([](const client::DaemonStatus& status) { return !status.topUp; }));
  report();
}

TEST_F(SettingsByFile, neitherLosesAChangeSilentlyNorRepeatsACalibrationThatHasFinished) {
  constexpr std::size_t rounds = 12;
  for (std::size_t round = 0; round < rounds && !HasFailure(); ++round) {
    request("calibrate");
    mac.change({.kind = ChangeKind::charge, .number = 100});
    EXPECT_TRUE(inPhase(CalPhase::drain));
    mac.change({.kind = ChangeKind::charge, .number = 10});
    EXPECT_TRUE(inPhase(CalPhase::refill));
    mac.change({.kind = ChangeKind::charge, .number = 100});
    EXPECT_TRUE(inPhase(CalPhase::restore));
    race({.kind = ChangeKind::charge, .number = 70}, "calibrate", 30 + static_cast<int>(round));
    EXPECT_TRUE(inPhase(CalPhase::idle));
  }
  // It may come back here too.
  const std::size_t started = countOf(mac.mac.log(), "calibration started");
  EXPECT_GE(started, rounds);
  EXPECT_LE(started, rounds + cleared);
  EXPECT_EQ(countOf(mac.mac.log(), "calibration finished"), rounds);
  report();
}

}  // namespace
}  // namespace brisko::settings_by_file_test
