// sim/seam/work_queue.h
// The main run loop's queue: repeating timers, delayed and posted work in one order. It reads no clock; times
// are uptimes in seconds. Both run loops of the virtual Mac use it.
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

  // Adds a timer whose grid begins at `now`; it is first due one interval later. Returns its token.
  std::uint64_t addTimer(double now, double intervalSeconds, Work work);
  void invalidateTimer(std::uint64_t token);

  // Adds work to be done once. Work due at the same instant runs in order of insertion.
  void add(double due, Work work);

  // When the first work item is due; infinity when there is none.
  [[nodiscard]] double nextDue() const;

  // Runs the first work item. A timer is then due again at the next point of its grid after `uptimeNow()`,
  // however many points have passed.
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
    std::optional<double> interval;  // none: runs once
  };
  using Entries = std::map<QueueKey, Entry>;

  std::uint64_t added_ = 0;
  std::uint64_t running_ = 0;  // token of the timer whose work is running; 0 when none is
  Entries entries_;
};

}  // namespace brisko::virtual_mac
