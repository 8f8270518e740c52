#include "support/daemon_process.h"

#include <utility>

#include "sim/process/forked_daemon.h"
#include "support/record_schemas.h"

namespace brisko::test {

struct DaemonProcess::Impl {
  VirtualMac& mac;
  sim::ForkedDaemon daemon;
};

DaemonProcess::DaemonProcess(VirtualMac& mac, std::vector<std::string> arguments)
    : impl_(new Impl{mac, sim::ForkedDaemon({.store = mac.store(),
                                             .arguments = std::move(arguments),
                                             .fileEvents = mac.fileEventQueue()})}) {}

DaemonProcess::~DaemonProcess() = default;

DaemonProcess& DaemonProcess::run(double seconds) {
  if (!alive_) return *this;
  impl_->daemon.run(seconds);
  alive_ = impl_->daemon.alive();
  checkRecords(impl_->mac.path(""));
  return *this;
}

DaemonProcess& DaemonProcess::signal(int number) {
  impl_->daemon.signal(number);
  return *this;
}

DaemonProcess& DaemonProcess::kill() {
  impl_->daemon.kill();
  alive_ = false;
  return *this;
}

std::optional<int> DaemonProcess::status() const { return impl_->daemon.status(); }
std::optional<int> DaemonProcess::endSignal() const { return impl_->daemon.endSignal(); }
std::string DaemonProcess::output() const { return impl_->daemon.output(); }
std::string DaemonProcess::errors() const { return impl_->daemon.errors(); }

}  // namespace brisko::test
