#include "client/daemon_status.h"

#include <limits>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace brisko::client::daemon_status_test {
namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

TEST(DaemonStatus, isNoneWithoutAFiniteTime) {
  Json object{{"state", "hold"}, {"pct", 80}, {"ts", 1772352000.0}};
  EXPECT_TRUE(daemonStatusIn(object));
  object["ts"] = infinite;
  EXPECT_FALSE(daemonStatusIn(object));
}

TEST(DaemonStatus, leavesOutOtherNumbersThatAreNotFinite) {
  Json object{{"state", "hold"}, {"pct", 80}, {"ts", 1772352000.0}};
  for (const char* key : {"temp", "startedAt", "nextWake", "fullUntil"}) object[key] = infinite;
  object["cal"] = {{"phase", "fill"}, {"startedAt", infinite}, {"phaseSince", -infinite}};
  const auto status = daemonStatusIn(object);
  ASSERT_TRUE(status);
  EXPECT_FALSE(status->temperature || status->startedAt || status->nextWake || status->fullUntil);
  EXPECT_EQ(status->calibration.startedAt, 0);
  EXPECT_EQ(status->calibration.phaseSince, 0);
  object["temp"] = 31.5;
  EXPECT_EQ(daemonStatusIn(object)->temperature, 31.5);
}

}  // namespace
}  // namespace brisko::client::daemon_status_test
