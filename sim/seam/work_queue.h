// sim/seam/work_queue.h
// What the main run loop has to do and when: repeating timers, delayed and posted work in one order. It knows
// no clock; times are uptimes in seconds. Both run loops of the virtual Mac keep theirs in one of these.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>

namespace brisko::virtual_mac {

class WorkQueue {
 public:
  using Work = std::function<void()>;

  // A timer whose grid begins at `now`; first due one interval later. Returns its token.
  std::uint64_t addTimer(double now, double intervalSeconds, Work work);
  void invalidateTimer(std::uint64_t token);

  // Work to be done once. Due at the same instant, what was added first comes first.
  void add(double due, Work work);

  // When the first piece of work is due; infinity when there is none.
  [[nodiscard]] double nextDue() const;

  // Does the first piece of work. A timer is then due again at the next point of its grid after
  // `uptimeNow()`, however many points have passed.
  void runFirst(double (*uptimeNow)());

 private:
  struct QueueKey {
    double due;
    std::uint64_t order;  // of insertion; a timer keeps its own, which is also its token
    bool operator<(const QueueKey& other) const {
      return due != other.due ? due < other.due : order < other.order;
    }
  };
  struct Entry {
    Work work;
    double gridStart = 0;
    std::optional<double> interval;  // none: done once
  };
  using Entries = std::map<QueueKey, Entry>;

  std::uint64_t added_ = 0;
  std::uint64_t running_ = 0;  // token of the timer whose work is being done; 0 when there is none
  Entries entries_;
};

}  // namespace brisko::virtual_mac
