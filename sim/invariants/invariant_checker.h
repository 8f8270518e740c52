// sim/invariants/invariant_checker.h
// Watches while the daemon lives, and tells when an invariant does not hold. The looking is done
// inside of each process, after every iteration of the run loop and every tick; a process that breaks an
// invariant is ended on the spot.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sim/invariants/rule.h"
#include "sim/machine/machine_store.h"

namespace brisko::lab {

struct Violation {
  int invariant;     // its number
  double at;         // machine time
  std::string seen;  // instead
};

// The invariant in words; "" for a number that is none.
[[nodiscard]] std::string invariantWords(int number);

class InvariantChecker {
 public:
  // Store and volume must outlive it.
  InvariantChecker(virtual_mac::MachineStore& store, std::string volume);
  ~InvariantChecker();
  InvariantChecker(const InvariantChecker&) = delete;
  InvariantChecker& operator=(const InvariantChecker&) = delete;

  // --- In the lab

  // What the timeline does is said here, before it is done.
  void happens(const virtual_mac::Change& change);
  // Of a file that is written, what it is given; of one that is removed, nothing.
  void beforeFileChange(std::string_view path, std::string_view text);
  void sends(int signal);  // to the process that runs
  void beforeDiskFull(bool full);
  void processStarts();  // before the fork
  // `output` and `errors` are everything that it wrote to its standard output and its standard error.
  void processEnded(std::optional<int> status, std::optional<int> signal, const std::string& output,
                    const std::string& errors);
  // How many things the timeline did so far.
  [[nodiscard]] std::uint64_t actionCount() const;
  // The first one; none while all hold.
  [[nodiscard]] std::optional<Violation> violation() const;

  // --- In a process

  void start();  // before anything of the daemon
  void checkIteration();
  void onPause();   // the process is about to: what it did until here is judged before others do something
  void onResume();  // it was paused, and continues

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace brisko::lab
