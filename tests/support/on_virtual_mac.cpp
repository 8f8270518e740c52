#include "support/on_virtual_mac.h"

#include <variant>

#include "base/log.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "policy/evaluation.h"
#include "state/machine_abilities.h"
#include "support/file_journal.h"

namespace brisko::test {
namespace {

constexpr const char* dataFolder = "/Library/Application Support/Brisko";

}  // namespace

void OnVirtualMac::openController() { ASSERT_EQ(SMCOpen(gConn), platform::kernelSuccess); }

void OnVirtualMac::takeGate() {
  openController();
  const auto detected = ChargeGate::detect(false);
  ASSERT_TRUE(std::holds_alternative<ChargeGate>(detected));
  gGate = std::get<ChargeGate>(detected);
  dischargeSupported = gGate->cut != AdapterCutKey::none || gateIsMacOSLimit();
  gLedSupported = readKey("ACLC").has_value();
  mac.forgetJournal();
}

std::vector<std::string> OnVirtualMac::filesWritten(const std::function<void()>& work) {
  FileJournal journal(mac.path(dataFolder));
  work();
  return journal.written();
}

std::vector<std::string> OnVirtualMac::filesWrittenAndLogged(const std::function<void()>& work) {
  FileJournal journal(mac.path(dataFolder));
  journal.watchOpenFiles(mac.path(LogFile::defaultDirectory));
  work();
  return journal.written();
}

void OnVirtualMac::ticks(int count) {
  constexpr double heartbeat = 12;  // seconds
  for (int tick = 0; tick < count; ++tick) {
    mac.pass(heartbeat);
    evaluate();
  }
}

}  // namespace brisko::test
