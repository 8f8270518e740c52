// What the app reads from the status file while the daemon rewrites it.

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>

#include "process/live_mac.h"
#include "support/testing.h"

namespace brisko::status_reader_test {
namespace {

double realNow() {
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_MONOTONIC, &now));
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The file is overwritten in place, so a reader may find it empty or truncated, but never for long.
TEST(LiveStatus, isWholeWithin50MillisecondsForAReaderThatReadsContinuously) {
  constexpr double patience = 0.05;
  const test::LiveMac mac({"--charge", "50", "--speed", "2000"});
  const std::string path = mac.folder() + "/volume/Library/Application Support/Brisko/status.json";
  const auto daemon = mac.daemon();
  ASSERT_TRUE(test::eventually([&] { return test::exists(path); }));

  double longest = 0;
  double lastWrite = 0;
  int writes = 0;
  const double end = realNow() + 2;
  double waitingSince = realNow();
  while (realNow() < end) {
    const auto object = nlohmann::json::parse(test::contents(path), nullptr, false);
    const double now = realNow();
    if (object.is_discarded() || !object.contains("ts")) {
      longest = std::max(longest, now - waitingSince);
      continue;
    }
    if (object["ts"].get<double>() != lastWrite) ++writes;
    lastWrite = object["ts"].get<double>();
    waitingSince = now;
  }
  EXPECT_GT(writes, 20);
  EXPECT_LT(longest, patience);
}

}  // namespace
}  // namespace brisko::status_reader_test
