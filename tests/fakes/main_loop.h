// tests/fakes/main_loop.h
// The main run loop and the main queue on the virtual Mac, in virtual time. Each iteration is a wait, however
// short, and then one piece of work. Notifications of the frameworks become work in the iteration that finds
// them.
#pragma once

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "fakes/objects.h"
#include "sim/machine/machine.h"

namespace brisko::fakes {

using Work = std::function<void()>;

// Adds work to the main queue, due at `uptime`, or at once without one.
void enqueue(Work work);
void enqueueAt(double uptime, Work work);

// Queues each source whose data was merged. False if there was none.
[[nodiscard]] bool tellMergedData();

// How many timers the run loop has.
[[nodiscard]] std::size_t timersScheduled();

// A source of the run loop. Sources of a lower rank are polled first.
enum class Rank { powerSources, powerMessages };

class Source : public Object {
 public:
  static constexpr TypeId kind = sourceType;
  using Arrived = std::function<std::vector<Work>(const virtual_mac::Machine& machine)>;
  Source(Rank rank, Arrived arrived) : Object(kind), rank_(rank), arrived_(std::move(arrived)) {}

  [[nodiscard]] Rank rank() const { return rank_; }
  [[nodiscard]] std::vector<Work> arrived(const virtual_mac::Machine& machine) const {
    return arrived_(machine);
  }

 private:
  Rank rank_;
  Arrived arrived_;
};

}  // namespace brisko::fakes
