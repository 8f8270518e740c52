#include "client/live_brisko.h"

#include <csignal>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/machine/machine_store.h"

namespace brisko::test {

void LiveBrisko::boot(const Words& arguments) {
  daemon = mac.daemon(arguments);
  // The service starts before the first tick, which writes the status.
  EXPECT_TRUE(mac.logs("batt "));
  EXPECT_TRUE(eventually([this] { return !contents(statusPath()).empty(); }));
}

void LiveBrisko::end() {
  daemon->signal(SIGTERM);
  EXPECT_TRUE(daemon->ends());
}

namespace {

std::unique_ptr<virtual_mac::MachineStore> machineIn(const std::string& folder) {
  std::string reason;
  auto store = virtual_mac::MachineStore::open(folder, reason);
  if (store == nullptr) throw std::runtime_error(reason);
  return store;
}

}  // namespace

void LiveBrisko::pause() const {
  const auto store = machineIn(mac.folder());
  const auto update = store->update();
  daemon->stop();
}

void LiveBrisko::change(const virtual_mac::Change& change) const {
  const auto store = machineIn(mac.folder());
  {
    const auto update = store->update();
    virtual_mac::advance(update.machine(), virtual_mac::machineTime(update.machine()));
    virtual_mac::apply(update.machine(), change);
  }
  virtual_mac::wakeHolders(mac.folder());
}

Finished LiveBrisko::brisko(const Words& words, Environment environment) const {
  environment["BRISKO_VIRTUAL_MAC"] = mac.folder();
  environment.insert({"LC_ALL", "C.UTF-8"});
  return run("brisko", words, environment);
}

std::string LiveBrisko::configPath() const {
  return mac.folder() + "/volume/Library/Application Support/Brisko/config.json";
}

std::string LiveBrisko::statusPath() const {
  return mac.folder() + "/volume/Library/Application Support/Brisko/status.json";
}

std::string said(const Finished& finished) {
  EXPECT_EQ(finished.status, 0) << finished.output << finished.errors;
  EXPECT_EQ(finished.errors, "");
  return finished.output;
}

void expectRefused(const Finished& finished, int status, const std::string& text) {
  EXPECT_EQ(finished.status, status) << finished.output << finished.errors;
  EXPECT_THAT(finished.errors, ::testing::StartsWith("brisko: "));
  EXPECT_THAT(finished.errors, ::testing::HasSubstr(text));
  EXPECT_EQ(countOf(finished.errors, "\n"), 1U) << finished.errors;
}

}  // namespace brisko::test
