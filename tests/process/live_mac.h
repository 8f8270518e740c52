// tests/process/live_mac.h
// A live virtual Mac for a process test, made by the real brisko-vmac in a temporary folder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "process/program.h"

namespace brisko::test {

class LiveMac {
 public:
  // When the machine is made, unless the options say so: 08:00 in UTC on 1 March 2026, so that no test
  // depends on the hour at which it runs.
  static constexpr std::int64_t startTime = 1'772'352'000;

  // `options` of "brisko-vmac new".
  explicit LiveMac(const Words& options = {});

  [[nodiscard]] std::string folder() const { return scratch_.path() + "/mac"; }
  // Runs "brisko-vmac VERB FOLDER WORDS…", which must succeed; its output.
  std::string vmac(const std::string& verb, const Words& words = {}) const;

  // The real daemon on this machine.
  [[nodiscard]] std::unique_ptr<Program> daemon(const Words& arguments = {},
                                                Environment environment = {}) const;

  void settings(const std::string& json) const;
  [[nodiscard]] std::string log() const;                   // daemon.log
  [[nodiscard]] bool logs(const std::string& text) const;  // waits for a line with it
  // The value that "show" prints for a key, e.g. "01000000".
  [[nodiscard]] std::string key(const std::string& name) const;
  [[nodiscard]] double charge() const;  // percent, as "show" prints it

 private:
  ScratchFolder scratch_;
};

[[nodiscard]] std::size_t countOf(const std::string& text, const std::string& piece);

}  // namespace brisko::test
