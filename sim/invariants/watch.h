// sim/invariants/watch.h
// Looks on while the daemon lives, and tells when something that always holds does not. The looking is done
// inside of each life, after every turn of its run loop and every pass of its heart; a life that breaks an
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

class Watch {
 public:
  // Store and volume must outlive it.
  Watch(virtual_mac::MachineStore& store, std::string volume);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  // --- In the lab

  // What the timeline does is said here, before it is done.
  void happens(const virtual_mac::Change& change);
  // Of a file that is written, what it is given; of one that is removed, nothing.
  void touchesFiles(std::string_view path, std::string_view text);
  void sends(int signal);  // to the life that runs
  void fillsDisk(bool full);
  void lifeBegins();  // before the fork
  // `output` and `errors` are everything that it wrote to its standard output and its standard error.
  void lifeEnded(std::optional<int> status, std::optional<int> signal, const std::string& output,
                 const std::string& errors);
  // How many things the timeline did so far.
  [[nodiscard]] std::uint64_t doings() const;
  // The first one; none while all hold.
  [[nodiscard]] std::optional<Violation> violation() const;

  // --- In a life

  void beginToLook();  // before anything of the daemon
  void lookAfterTurn();
  void standStill();  // the life is about to: what it did until here is judged before others do something
  void goOn();        // it stood still, and goes on

  struct Inside;

 private:
  std::unique_ptr<Inside> inside_;
};

}  // namespace brisko::lab
