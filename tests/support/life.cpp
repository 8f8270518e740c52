#include "support/life.h"

#include <utility>

#include "sim/process/forked_life.h"
#include "support/record_schemas.h"

namespace brisko::test {

struct Life::Inside {
  VirtualMac& mac;
  lives::ForkedLife life;
};

Life::Life(VirtualMac& mac, std::vector<std::string> arguments)
    : inside_(new Inside{mac, lives::ForkedLife({.store = mac.store(),
                                                 .arguments = std::move(arguments),
                                                 .fileEvents = mac.fileEventQueue()})}) {}

Life::~Life() = default;

Life& Life::run(double seconds) {
  if (!alive_) return *this;
  inside_->life.run(seconds);
  alive_ = inside_->life.alive();
  checkRecords(inside_->mac.path(""));
  return *this;
}

Life& Life::signal(int number) {
  inside_->life.signal(number);
  return *this;
}

Life& Life::kill() {
  inside_->life.kill();
  alive_ = false;
  return *this;
}

std::optional<int> Life::status() const { return inside_->life.status(); }
std::optional<int> Life::endSignal() const { return inside_->life.endSignal(); }
std::string Life::output() const { return inside_->life.output(); }
std::string Life::errors() const { return inside_->life.errors(); }

}  // namespace brisko::test
