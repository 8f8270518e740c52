#include "diagnostics/firmware_test.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <string>
#include <variant>

#include "base/standard_output.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "platform/clock.h"
#include "state/tick_state.h"

namespace brisko {
namespace {

constexpr double sampleSeconds = 3;
constexpr int samples = 5;

// While an object of this class exists, the signals with which a user or the system ends a process are
// blocked.
class SignalBlock {
 public:
  SignalBlock() {
    sigset_t ends;
    sigemptyset(&ends);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) sigaddset(&ends, signal);
    ::pthread_sigmask(SIG_BLOCK, &ends, &before_);
  }
  ~SignalBlock() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

 private:
  sigset_t before_{};
};

// Both edges lie below the charge, so that charging has to stop, and neither lies below 20 %.
void chooseBand(std::int64_t pct) {
  constexpr std::int64_t lowest = 20;
  gFirmwareUpper = std::max(pct, lowest + 15) - 15;
  gFirmwareLower = std::max(pct, lowest + 20) - 20;
}

std::string sample(const ChargeGate& gate) {
  platform::pause(sampleSeconds);
  return "B0AC=" + std::to_string(amperageNow().value_or(0)) +
         " mA  armed=" + (gate.chargingIsStopped() ? "true" : "false");
}

void tryBand(const ChargeGate& gate) {
  gGate = gate;
  const auto power = powerState();
  const std::int64_t pct = power ? power->pct : 100;
  chooseBand(pct);
  printLine(std::string("firmware mode detected (") + chargeLabel(gate.charge) + "). battery " +
            std::to_string(pct) + "%.");
  printLine("arming band " + std::to_string(gFirmwareLower) + "–" + std::to_string(gFirmwareUpper) +
            "% via ChargeGate.setCharging for 15 s…");
  // A band left armed would keep the battery from charging, with nothing running to undo it.
  const SignalBlock untilDisarmed;
  // The result of either write shows in "armed=".
  static_cast<void>(gate.setCharging(true));
  for (int count = 0; count < samples; ++count) printLine("  " + sample(gate));
  static_cast<void>(gate.setCharging(false));
  printLine("disarmed. " + sample(gate));
}

void testDetected() {
  const auto detected = ChargeGate::detect(false);
  const auto* gate = std::get_if<ChargeGate>(&detected);
  if (gate == nullptr) {
    printLine("no usable charge control: " + failureDetail(std::get<GateFailure>(detected)));
  } else if (gate->charge != ChargeKeys::firmwareBand) {
    printLine(std::string("this Mac uses ") + chargeLabel(gate->charge) +
              ", not the firmware band — nothing to test here.");
  } else {
    tryBand(*gate);
  }
}

}  // namespace

int runFirmwareTest() {
  if (SMCOpen(gConn) != platform::kernelSuccess) {
    printLine("Could not open AppleSMC.");
    return 1;
  }
  testDetected();
  SMCClose(gConn);
  return 0;
}

}  // namespace brisko
