// tests/support/virtual_mac.h
// A virtual Mac for a test: the machine in memory, its volume root in a folder of its own that is removed at
// the end. It defaults to a healthy MacBook Air on its adapter at 70 %, and is attached to the seam of this
// process and of every process forked from it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/machine/machine_store.h"
#include "sim/machine/models.h"
#include "support/scratch_folder.h"

namespace brisko::test {

// One write to the controller, as a test compares it: "CHTE=01000000", or "CHTE=01000000!" when refused.
using Writes = std::vector<std::string>;

class VirtualMac {
 public:
  explicit VirtualMac(const virtual_mac::MachineOptions& options = {}, std::string_view model = "air13");
  ~VirtualMac();
  VirtualMac(const VirtualMac&) = delete;
  VirtualMac& operator=(const VirtualMac&) = delete;

  [[nodiscard]] virtual_mac::MachineStore& store() { return *store_; }
  // The queue of file events for the lives on this machine.
  [[nodiscard]] int fileEventQueue();
  [[nodiscard]] virtual_mac::Machine machine() const;  // a copy of the record as it is now

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
  VirtualMac& sleep() { return change({.kind = virtual_mac::ChangeKind::sleep}); }  // by the lid
  VirtualMac& wake() { return change({.kind = virtual_mac::ChangeKind::wake}); }    // fully
  VirtualMac& wakeDark(double seconds) { return number(virtual_mac::ChangeKind::darkWake, seconds); }
  // A change planned `seconds` from now.
  VirtualMac& later(double seconds, const virtual_mac::Change& change);

  // A client of this name asks the control service. The number of the request, for what follows.
  std::uint64_t ask(virtual_mac::RequestKind kind, std::string_view client = "app");
  std::uint64_t apply(std::string_view settings, std::string_view client = "app");
  // The request as it stands: whether it was let in, how often it was answered and how. The record keeps the
  // latest ones.
  [[nodiscard]] virtual_mac::ClientRequest request(std::uint64_t number) const;
  // "done", the error text, "refused", or "" while there is no reply.
  [[nodiscard]] std::string reply(std::uint64_t number) const;

  // Moves machine time on, with no daemon running.
  VirtualMac& pass(double seconds);

  // The bytes that a read of the key shows now.
  [[nodiscard]] std::vector<std::uint8_t> key(std::string_view name) const;

  // The journal since the last forgetJournal(): writes in order; or every exchange, "read CHTE", "info CHTE",
  // "index CHTE", when the journal keeps reads. Among them "heard WillSleep", "allowed WillSleep", "wake
  // scheduled", "wake cancelled", "asked apply" and "replied apply", and of the limit of macOS "limit set
  // 80", "preference mclLimitValue=75", "preference MCLTempDisabledUntilDate removed", "preferences
  // synchronised" and "notified " with the name. What did not succeed ends with "!".
  [[nodiscard]] Writes writes() const;
  [[nodiscard]] std::vector<virtual_mac::JournalEntry> journal() const;
  [[nodiscard]] std::vector<double> pendingWakes() const;  // dates of the scheduled power events
  void keepReads();                                        // from now on
  void forgetJournal();

  // Files on its volume, by their unmapped paths.
  [[nodiscard]] std::string path(std::string_view unmapped) const;  // where it really lies
  void write(std::string_view unmapped, std::string_view text);     // makes the folders
  [[nodiscard]] std::string read(std::string_view unmapped) const;  // "" when missing
  [[nodiscard]] bool exists(std::string_view unmapped) const;
  void settings(std::string_view json);  // config.json
  // The lines of daemon.log without their time stamps, and with them.
  [[nodiscard]] std::vector<std::string> logLines() const;
  [[nodiscard]] std::vector<std::string> stampedLogLines() const;

 private:
  std::unique_ptr<virtual_mac::MachineStore> store_;
  ScratchFolder volume_;
  std::uint64_t journalFrom_ = 0;
  int fileEventQueue_ = -1;
};

}  // namespace brisko::test
