// tests/support/daemon_process.h
// A process of the daemon on a test's machine, paused unless the test runs it. Whenever it is paused, its
// files are validated against their schemas (support/record_schemas.h).
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "sim/process/forked_daemon.h"
#include "support/record_schemas.h"
#include "support/virtual_mac.h"

namespace brisko::test {

class DaemonProcess : public sim::ForkedDaemon {
 public:
  // `arguments` follow the executable's path.
  explicit DaemonProcess(VirtualMac& mac, std::vector<std::string> arguments = {})
      : ForkedDaemon(mac.forkOptions(std::move(arguments))), mac_(mac) {}

  DaemonProcess& run(double seconds) {
    if (!alive()) return *this;
    ForkedDaemon::run(seconds);
    checkRecords(mac_.root());
    return *this;
  }
  DaemonProcess& signal(int number) {
    ForkedDaemon::signal(number);
    return *this;
  }
  DaemonProcess& kill() {
    ForkedDaemon::kill();
    return *this;
  }

 private:
  VirtualMac& mac_;
};

}  // namespace brisko::test
