// tests/support/virtual_mac.h
// A simulation for tests: a healthy MacBook Air on its adapter at 70 %, with shorthands for common changes
// and without a launch service. At the end the daemon's files on its volume are validated against their
// schemas.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/machine/models.h"
#include "sim/process/simulation.h"

namespace brisko::test {

using virtual_mac::Change;
using virtual_mac::ChangeKind;
using virtual_mac::CutKind;
using virtual_mac::GateKind;
using virtual_mac::keyCode;
using virtual_mac::LimitAnswer;
using virtual_mac::LimitClient;
using virtual_mac::MachineOptions;
using virtual_mac::OnWrite;
using virtual_mac::PowerSourceFault;
using virtual_mac::PropertyFault;
using virtual_mac::RequestKind;

// Writes to the controller as texts: "CHTE=01000000", or "CHTE=01000000!" if refused.
using Writes = std::vector<std::string>;

class VirtualMac : public sim::Simulation {
 public:
  explicit VirtualMac(const virtual_mac::MachineOptions& options = {}, std::string_view model = "air13");
  ~VirtualMac();

  // Changes, each at once.
  VirtualMac& change(const virtual_mac::Change& change);
  VirtualMac& plugIn(double watts = 67);
  VirtualMac& unplug();
  VirtualMac& charge(double percent);
  VirtualMac& temperature(double celsius);
  VirtualMac& number(virtual_mac::ChangeKind kind, double number);
  VirtualMac& keyBytes(std::string_view key, std::vector<std::uint8_t> bytes);
  VirtualMac& keyOnWrite(std::string_view key, virtual_mac::OnWrite behaviour, std::uint32_t status = 0);
  VirtualMac& removeKey(std::string_view key);
  VirtualMac& property(std::string_view name, virtual_mac::PropertyFault fault);
  VirtualMac& sleep() { return change({.kind = virtual_mac::ChangeKind::closeLid}); }
  VirtualMac& wake() { return change({.kind = virtual_mac::ChangeKind::openLid}); }
  VirtualMac& wakeDark(double seconds) { return number(virtual_mac::ChangeKind::darkWake, seconds); }
  // A change planned `seconds` from now.
  VirtualMac& later(double seconds, const virtual_mac::Change& change);

  // Sends a request of the client with this name to the control service; returns the number of the request.
  std::uint64_t ask(virtual_mac::RequestKind kind, std::string_view client = "app");
  std::uint64_t apply(std::string_view settings, std::string_view client = "app");
  // The state of the request: whether it was admitted, how often it was answered and how. The record keeps
  // the latest ones.
  [[nodiscard]] virtual_mac::ClientRequest request(std::uint64_t number) const;

  // Advances machine time without running a daemon.
  VirtualMac& pass(double seconds);

  // The journal since the last forgetJournal(), as texts (sim/machine/journal_text.h) and as entries: the
  // writes in order, or every exchange after keepReads().
  [[nodiscard]] Writes writes() const { return journalSinceCheckpoint(); }
  [[nodiscard]] std::vector<virtual_mac::JournalEntry> journal() const { return entriesSinceCheckpoint(); }
  void keepReads() { store().update().journal().reads = true; }  // from now on
  void forgetJournal() { setCheckpoint(); }

  // Files on its volume; paths are unmapped.
  void write(std::string_view unmapped, std::string_view text);     // creates the folders
  [[nodiscard]] std::string read(std::string_view unmapped) const;  // "" when missing
  [[nodiscard]] bool exists(std::string_view unmapped) const;
  void settings(std::string_view json);  // config.json
  // The lines of daemon.log without their time stamps, and with them.
  [[nodiscard]] std::vector<std::string> logLines() const;
  [[nodiscard]] std::vector<std::string> stampedLogLines() const;
  // The lines that were added since the last call, without their time stamps; none when the log was removed.
  [[nodiscard]] std::vector<std::string> newLogLines();

 private:
  std::size_t linesSeen_ = 0;
};

}  // namespace brisko::test
