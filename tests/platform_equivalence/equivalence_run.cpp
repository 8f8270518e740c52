// Runs the daemon on a Mac for about two days of random events and prints its log, each exchange with the
// controller, and all files. Built for each platform that runs in virtual time; the outputs must be the same,
// byte for byte.
//
//   brisko-equivalence-… GATE SEED     GATE: chte, firmware or native

#include <algorithm>
#include <array>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/daemon_process.h"
#include "support/virtual_mac.h"

namespace brisko {
namespace {

using test::DaemonProcess;
using test::VirtualMac;
using virtual_mac::ChangeKind;
using virtual_mac::GateKind;
using virtual_mac::MachineOptions;
using virtual_mac::RequestKind;

constexpr int steps = 30;
constexpr double hour = 3600;

MachineOptions optionsFor(const std::string& gate) {
  if (gate == "native") return {.macOS = 27};
  if (gate == "firmware") return {.gate = GateKind::firmwareBand, .percent = 50};
  return {};
}

class EquivalenceRun {
 public:
  EquivalenceRun(const std::string& gate, std::uint64_t seed) : mac_(optionsFor(gate)), random_(seed) {
    mac_.keepReads();
    mac_.settings("{}");
    daemon_ = std::make_unique<DaemonProcess>(mac_);
    daemon_->run(60);
  }

  void run() {
    for (int step = 0; step < steps; ++step) {
      const int event = below(13);
      std::printf("-- step %d: %d\n", step, event);
      act(event);
      daemon_->run(60 + below(3600));
      showJournal();
      if (!daemon_->alive()) startAgain();
    }
    daemon_->signal(SIGTERM).run(60);
    showEnd();
    showJournal();
    showFiles();
  }

 private:
  // A number from 0 to less than `limit`, the same on every platform.
  int below(int limit) { return static_cast<int>(random_() % static_cast<std::uint64_t>(limit)); }

  void act(int event) {
    switch (event) {
      case 0:
        mac_.unplug();
        return;
      case 1:
      case 2:
        mac_.plugIn();
        return;
      case 3:
        return changeSettings();
      case 4:
        return sleepAndWake(ChangeKind::closeLid);
      case 5:
        return sleepAndWake(ChangeKind::idleSleep);
      case 6:
        mac_.number(ChangeKind::signal, below(2) == 0 ? SIGTERM : SIGINT);
        return;
      case 7:
        mac_.later(below(3600), {.kind = ChangeKind::signal, .number = SIGTERM});
        return;
      case 8:
        mac_.apply("{\"limit\":" + std::to_string(60 + below(41)) + "}", below(4) == 0 ? "unsigned" : "app");
        return;
      case 9:
        mac_.ask(below(2) == 0 ? RequestKind::releaseCharge : RequestKind::restart);
        return;
      case 10:
        mac_.number(ChangeKind::clockStep, below(2) == 0 ? -hour : hour);
        return;
      case 11:
        mac_.number(ChangeKind::limit, 80 + 5 * below(5));
        return;
      default:
        daemon_->kill();
    }
  }

  void changeSettings() {
    mac_.settings("{\"limit\":" + std::to_string(50 + below(51)) +
                  ",\"discharge\":" + (below(2) == 0 ? "true" : "false") +
                  ",\"hysteresis\":" + std::to_string(1 + below(10)) + "}");
  }

  void sleepAndWake(ChangeKind way) {
    mac_.change({.kind = way});
    if (below(2) == 0) mac_.later(below(3600), {.kind = ChangeKind::darkWake, .number = 45});
    mac_.later(3600 + below(3 * 3600), {.kind = ChangeKind::openLid});
    daemon_->run(4 * hour);
  }

  void startAgain() {
    showEnd();
    daemon_ = std::make_unique<DaemonProcess>(mac_);
    daemon_->run(60);
  }

  void showEnd() const {
    std::printf("-- ended: status %d signal %d\n%s%s", daemon_->status().value_or(-1),
                daemon_->endSignal().value_or(-1), daemon_->output().c_str(), daemon_->errors().c_str());
  }

  void showJournal() {
    for (const virtual_mac::JournalEntry& entry : mac_.journal()) {
      std::printf("%a %u %08x %x %x %x ", entry.time, entry.process, entry.key, entry.status, entry.command,
                  entry.result);
      for (std::size_t index = 0; index < std::min<std::size_t>(entry.size, entry.bytes.size()); ++index) {
        std::printf("%02x", entry.bytes[index]);
      }
      std::printf("\n");
    }
    mac_.forgetJournal();
    const virtual_mac::Machine machine = mac_.machine();
    std::printf("-- charge %a temperature %a limit %a slept %a exchanges %" PRIu64 "\n",
                machine.battery.chargeMAh, machine.battery.temperatureC, virtual_mac::level(machine),
                machine.system.sleptSeconds, machine.smc.exchanges);
  }

  void showFiles() const {
    const std::string root = mac_.path("");
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
      files.push_back(entry.path().string().substr(root.size()));
    }
    std::sort(files.begin(), files.end());
    for (const std::string& file : files) {
      std::printf("-- %s\n", file.c_str());
      if (std::filesystem::is_regular_file(root + file)) std::printf("%s\n", mac_.read(file).c_str());
    }
  }

  VirtualMac mac_;
  std::mt19937_64 random_;
  std::unique_ptr<DaemonProcess> daemon_;
};

}  // namespace
}  // namespace brisko

int main(int count, char** arguments) {
  if (count != 3) return EXIT_FAILURE;
  brisko::EquivalenceRun(arguments[1], std::strtoull(arguments[2], nullptr, 10)).run();
}
