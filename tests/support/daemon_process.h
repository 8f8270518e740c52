// tests/support/daemon_process.h
// One simulated process of the daemon: a forked child that runs the real entry in virtual time over the
// test's machine. The child is paused whenever the test does not let it run, so the test may look at the
// machine and its files, change them and continue; process-wide state is fresh in every process.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/virtual_mac.h"

namespace brisko::test {

class DaemonProcess {
 public:
  // Forks the child and stops it before its first instruction. `arguments` follow the executable's path.
  explicit DaemonProcess(VirtualMac& mac, std::vector<std::string> arguments = {});
  ~DaemonProcess();  // kill -9 when it still lives
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;

  // Lets the child run until machine time has moved on by `seconds`, or until it ends. With 0 it runs up to
  // its first wait.
  DaemonProcess& run(double seconds);

  DaemonProcess& signal(int number);  // sent while it is paused; taken when it runs on
  DaemonProcess& kill();              // kill -9, now

  [[nodiscard]] bool alive() const { return alive_; }
  [[nodiscard]] std::optional<int> status() const;     // exit status
  [[nodiscard]] std::optional<int> endSignal() const;  // the signal that ended it
  // What it wrote so far.
  [[nodiscard]] std::string output() const;
  [[nodiscard]] std::string errors() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  bool alive_ = true;
};

}  // namespace brisko::test
