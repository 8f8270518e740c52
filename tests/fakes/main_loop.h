// tests/fakes/main_loop.h
// The main run loop and the main queue over the virtual Mac, in virtual time: each iteration is a wait,
// however short, after which one piece of work is done. What the frameworks have to tell becomes work in the
// iteration that finds it.
#pragma once

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "fakes/objects.h"
#include "sim/machine/machine.h"

namespace brisko::fakes {

using Work = std::function<void()>;

// Work on the main queue, from `uptime` on; without one as soon as its turn comes.
void enqueue(Work work);
void enqueueAt(double uptime, Work work);

// Tells each source whose data was merged. False when there was none.
[[nodiscard]] bool tellMergedData();

// How many timers the run loop has to look after.
[[nodiscard]] std::size_t timersScheduled();

// A source of the run loop. Those of a lower rank are asked first what there is to tell.
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
