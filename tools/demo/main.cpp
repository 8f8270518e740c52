// A minute with the daemon on a virtual MacBook. It charges, holds at the limit, is unplugged and plugged in
// again, follows a changed limit, sleeps two nights, and gives everything back when it is stopped. A few
// seconds follow on a Mac whose macOS closed the keys, where the daemon drives macOS's own limit instead.
// Exits with status 0 and a summary of what was seen, or with status 1 when something was not seen.

#include <cmath>
#include <cstdio>
#include <initializer_list>

#include "sim/machine/charge_limit.h"
#include "sim/machine/machine.h"
#include "tools/demo/demo_mac.h"

namespace brisko::demo {
namespace {

using virtual_mac::chargingIsOpen;
using virtual_mac::level;
using virtual_mac::Machine;

constexpr std::uint8_t green = 3;  // of the light
constexpr double deadline = 20;    // real seconds for any one thing to happen

bool keyReads(const Machine& machine, const char* name, std::uint8_t first) {
  const auto* key = virtual_mac::findKey(machine, virtual_mac::keyCode(name));
  return key != nullptr && key->bytes[0] == first;
}

bool charges(DemoMac& mac) {
  mac.title("A MacBook Air at 70 % on its adapter, limit 80 %; 150 of its seconds pass in one of ours");
  return mac.make({"--model", "air13", "--charge", "70", "--speed", "150"}) == true;
}

bool startsCharging(DemoMac& mac) {
  return mac.boot() && mac.await("the daemon's start", deadline, [&](const Machine&) {
    return mac.logged("brisko-daemon started");
  }) && mac.await("charging", deadline, [](const Machine& machine) {
    return machine.battery.currentMA > 500;
  });
}

bool holdsAtTheLimit(DemoMac& mac) {
  mac.title("It charges up to the limit and stops there");
  return mac.await("a hold at 80 %", deadline, [&](const Machine& machine) {
    return mac.logged("→ state: hold") && !chargingIsOpen(machine) && keyReads(machine, "CHTE", 1) &&
           level(machine) > 79 && level(machine) < 81;
  }) && mac.observe("a constant charge at the limit", 4, [](const Machine& machine) {
    return level(machine) < 81 && !chargingIsOpen(machine);
  });
}

bool isUnplugged(DemoMac& mac) {
  mac.title("The adapter is pulled: the Mac runs on its battery");
  return mac.vmac({"unplug"}) &&
         mac.await("charging allowed on battery", deadline,
                   [&](const Machine& machine) {
                     return mac.logged("battery  state=allow") && machine.battery.currentMA < -100 &&
                            chargingIsOpen(machine);
                   }) &&
         mac.await("a charge inside the band", deadline,
                   [](const Machine& machine) { return level(machine) < 78; });
}

bool isPluggedInAgain(DemoMac& mac) {
  mac.title("Plugged in again inside the band: no charging, the limit was reached before");
  return mac.vmac({"plug"}) &&
         mac.await("a hold inside the band", deadline,
                   [&](const Machine& machine) {
                     return mac.logged("→ state: hold") && level(machine) > 75 && !chargingIsOpen(machine);
                   }) &&
         mac.brisko({"why"}) && mac.observe("no charging inside the band", 3, [](const Machine& machine) {
           return level(machine) < 79;
         });
}

bool followsAChangedLimit(DemoMac& mac) {
  mac.title("The limit is raised to 85 %");
  return mac.brisko({"limit", "85"}) && mac.brisko({"why"}) &&
         mac.await("charging up to the new limit", deadline, [&](const Machine& machine) {
           return mac.logged("cap 85%") && mac.logged("→ state: hold") && level(machine) > 84 &&
                  level(machine) < 86 && !chargingIsOpen(machine);
         });
}

bool isAsleep(const Machine& machine) { return machine.system.asleep; }

bool sleepsInTheBand(DemoMac& mac) {
  mac.title("A night inside the band: the gate is closed first, and hours pass");
  return mac.vmac({"sleep"}) &&
         mac.await("the gate closed for the night", deadline,
                   [&](const Machine& machine) {
                     return mac.logged("grille fermée pour la nuit") && isAsleep(machine) &&
                            !chargingIsOpen(machine) && keyReads(machine, "ACLC", green);
                   }) &&
         mac.vmac({"speed", "4000"}) &&
         mac.observe(
             "a charge that is unchanged all night", 5,
             [](const Machine& machine) { return level(machine) > 83 && !chargingIsOpen(machine); }) &&
         mac.vmac({"speed", "150"}) && mac.vmac({"wake"}) &&
         mac.await("a hold in the morning", deadline, [](const Machine& machine) {
           return !isAsleep(machine) && level(machine) > 83 && !chargingIsOpen(machine);
         });
}

constexpr double nightLimit = 85;  // the limit that was raised
double gPercentInTheMorning = 0;

bool isAtLimit(const Machine& machine) { return std::abs(level(machine) - nightLimit) <= 1; }

bool sleepsBelowTheBand(DemoMac& mac) {
  mac.title("A night below the band: charging continues, and scheduled wakes end it at the limit");
  return mac.vmac({"set", "charge=65"}) &&
         // The wake is computed from the current, which the gauge publishes once a minute.
         mac.await("charging in the evening", deadline,
                   [](const Machine& machine) { return machine.gauge.currentMA > 500; }) &&
         mac.vmac({"sleep"}) &&
         mac.await("a scheduled wake", deadline,
                   [&](const Machine& machine) {
                     return mac.logged("réveil programmé dans") && isAsleep(machine) &&
                            chargingIsOpen(machine);
                   }) &&
         mac.vmac({"speed", "400"}) &&
         mac.await("a hold made in the dark wake", deadline,
                   [&](const Machine& machine) {
                     return mac.logged("→ state: hold") && !chargingIsOpen(machine) && isAtLimit(machine);
                   }) &&
         mac.observe("a charge that stays the same until the morning", 4,
                     [](const Machine& machine) { return isAtLimit(machine) && !chargingIsOpen(machine); }) &&
         mac.vmac({"speed", "150"}) && mac.vmac({"wake"}) &&
         mac.await("a hold in the morning", deadline, [](const Machine& machine) {
           gPercentInTheMorning = level(machine);
           return !isAsleep(machine) && !chargingIsOpen(machine) && isAtLimit(machine) &&
                  keyReads(machine, "ACLC", green);
         });
}

bool givesEverythingBack(DemoMac& mac) {
  mac.title("The Mac is shut down: SIGTERM to the daemon");
  return mac.shutDown() && mac.await("everything given back", deadline, [&](const Machine& machine) {
    return mac.logged("Signal 15: charging, adapter and LED restored, exiting.") &&
           keyReads(machine, "CHTE", 0) && keyReads(machine, "CHIE", 0) && keyReads(machine, "ACLC", 0);
  });
}

// -- macOS 27

bool holdsThroughMacOS(DemoMac& mac) {
  mac.title("macOS 27 closed the keys: there the daemon drives macOS's own limit, which stood at 90 %");
  return mac.make({"--macos", "27", "--charge", "76", "--speed", "150"}) && mac.vmac({"set", "limit=90"}) &&
         mac.await("the user's limit of 90 %", deadline,
                   [](const Machine& machine) { return virtual_mac::enforcedLimit(machine) == 90; }) &&
         mac.boot() &&
         mac.await("macOS holding 80 %, seen in bfG0", deadline,
                   [&](const Machine& machine) {
                     return mac.logged("native limit before Brisko: 90%") &&
                            mac.logged("limit verified: macOS holds 80% (bfG0)") &&
                            virtual_mac::shownLimit(machine) == 80;
                   }) &&
         mac.await("a hold at 80 %", deadline,
                   [&](const Machine& machine) {
                     return mac.logged("→ state: hold (macOS limit 80%)") && !chargingIsOpen(machine) &&
                            level(machine) > 79 && level(machine) < 81;
                   }) &&
         mac.observe("a constant charge at the limit", 2,
                     [](const Machine& machine) { return level(machine) < 81; });
}

bool givesTheLimitBack(DemoMac& mac) {
  mac.title("SIGTERM to the daemon: macOS has the limit of 90 % again");
  return mac.shutDown() && mac.await("the earlier limit", deadline, [&](const Machine&) {
    return mac.logged("Signal 15: handing the macOS limit back, exiting.") &&
           mac.logged("macOS limit handed back: 90%");
  });
}

// Each call runs on a machine of its own.
bool runSteps(std::initializer_list<bool (*)(DemoMac&)> steps) {
  DemoMac mac;
  for (const auto step : steps) {
    if (step(mac)) continue;
    std::puts("\nThe demonstration failed: see the line marked ✗ above.");
    return false;
  }
  return true;
}

int run() {
  if (!runSteps({charges, startsCharging, holdsAtTheLimit, isUnplugged, isPluggedInAgain,
                 followsAChangedLimit, sleepsInTheBand, sleepsBelowTheBand, givesEverythingBack})) {
    return 1;
  }
  if (!runSteps({holdsThroughMacOS, givesTheLimitBack})) return 1;
  std::printf(
      "\n✓ Seen: charged from 70 %% and held at 80 %%; ran on battery; held again inside the band; charged "
      "to "
      "the\n"
      "new limit of 85 %% and held; slept a night inside the band with the gate closed, and one from 65 %% "
      "on\n"
      "that scheduled wakes ended at %.1f %%, with the limit of %.0f %%; the light was green while held; on\n"
      "SIGTERM charging, adapter and light were given back. On macOS 27 held at 80 %% through macOS's own\n"
      "limit, which had its 90 %% back in the end.\n",
      gPercentInTheMorning, nightLimit);
  return 0;
}

}  // namespace
}  // namespace brisko::demo

int main() { return brisko::demo::run(); }
