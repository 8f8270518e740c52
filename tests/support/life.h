// tests/support/life.h
// One simulated life of the daemon: a forked child that runs the real entry in virtual time over the test's
// machine. The child stands still whenever the test does not let it run, so the test may look at the machine
// and its files, change them and go on; process-wide state is fresh in every life.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/virtual_mac.h"

namespace brisko::test {

class Life {
 public:
  // Forks the child and stops it before its first instruction. `arguments` follow the executable's path.
  explicit Life(VirtualMac& mac, std::vector<std::string> arguments = {});
  ~Life();  // kill -9 when it still lives
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

  // Lets the child run until machine time has moved on by `seconds`, or until it ends. With 0 it runs up to
  // its first wait.
  Life& run(double seconds);

  Life& signal(int number);  // sent while it stands still; taken when it runs on
  Life& kill();              // kill -9, now

  [[nodiscard]] bool alive() const { return alive_; }
  [[nodiscard]] std::optional<int> status() const;     // exit status
  [[nodiscard]] std::optional<int> endSignal() const;  // the signal that ended it
  // What it wrote so far.
  [[nodiscard]] std::string output() const;
  [[nodiscard]] std::string errors() const;

 private:
  struct Inside;
  std::unique_ptr<Inside> inside_;
  bool alive_ = true;
};

}  // namespace brisko::test
