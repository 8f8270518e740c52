// The bases of tests that draw moments: in UTC, from 1 March 2026 on.
#pragma once

#include <cstdlib>
#include <ctime>

#include "report/picture.h"
#include "support/testing.h"

namespace brisko::lab {

class InUtc : public ::testing::Test {
 protected:
  InUtc() {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
  }
  static Moment momentAt(double time, double level) {
    Moment moment;
    moment.time = time;
    moment.level = level;
    return moment;
  }
  // On the adapter, with charging stopped.
  static Moment heldAt(double time, double level) {
    Moment moment = momentAt(time, level);
    moment.state = ChargeState::hold;
    moment.supply = Supply::connected;
    return moment;
  }

  static constexpr double midnight = 1772323200;  // 2026-03-01T00:00:00Z
};

// A scenario that begins at eight in the morning.
class DrawnScenario : public InUtc {
 protected:
  Moment& add(double minute, double level) {
    picture.moments.push_back(momentAt(begin + minute * 60, level));
    return picture.moments.back();
  }

  const double begin = midnight + 8 * 3600;
  Picture picture{.title = "A scenario", .facts = "MacBook Air 13, macOS 26"};
};

}  // namespace brisko::lab
