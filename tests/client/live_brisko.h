// tests/client/live_brisko.h
// The real brisko on a live virtual Mac with the real daemon.
#pragma once

#include <memory>
#include <string>

#include "process/live_mac.h"
#include "process/program.h"
#include "sim/machine/machine.h"

namespace brisko::test {

class LiveBrisko {
 public:
  explicit LiveBrisko(const Words& machine = {"--charge", "70"}) : mac(machine) {}

  // Starts the daemon and waits until it serves.
  void boot(const Words& arguments = {});
  void end();
  // Between two of its updates of the machine: paused within one, the daemon would keep the machine's lock.
  void pause() const;
  // At once, without starting a program for it.
  void change(const virtual_mac::Change& change) const;

  [[nodiscard]] Finished brisko(const Words& words, Environment environment = {}) const;

  [[nodiscard]] std::string configPath() const;
  [[nodiscard]] std::string config() const { return contents(configPath()); }
  [[nodiscard]] std::string statusPath() const;

  LiveMac mac;
  std::unique_ptr<Program> daemon;
};

// Requires success and an empty standard error; returns the output.
std::string said(const Finished& finished);
// Requires one line on standard error that contains the text, and this exit status.
void expectRefused(const Finished& finished, int status, const std::string& text);

}  // namespace brisko::test
