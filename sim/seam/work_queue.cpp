#include "sim/seam/work_queue.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace brisko::virtual_mac {

namespace {

// Computed from the start of the grid, so that rounding errors do not add up over years.
double nextGridPoint(double start, double interval, double after) {
  double steps = std::floor((after - start) / interval) + 1;
  while (start + steps * interval <= after) steps += 1;
  return start + steps * interval;
}

}  // namespace

std::uint64_t WorkQueue::addTimer(double now, double intervalSeconds, Work work) {
  added_ += 1;
  entries_.emplace(QueueKey{now + intervalSeconds, added_}, Entry{std::move(work), now, intervalSeconds});
  return added_;
}

void WorkQueue::invalidateTimer(std::uint64_t token) {
  if (running_ == token) running_ = 0;
  const auto found = std::find_if(entries_.begin(), entries_.end(), [token](const auto& entry) {
    return entry.first.order == token && entry.second.interval.has_value();
  });
  if (found != entries_.end()) entries_.erase(found);
}

void WorkQueue::add(double due, Work work) {
  added_ += 1;
  entries_.emplace(QueueKey{due, added_}, Entry{std::move(work), 0, std::nullopt});
}

double WorkQueue::nextDue() const {
  return entries_.empty() ? std::numeric_limits<double>::infinity() : entries_.begin()->first.due;
}

void WorkQueue::runFirst(double (*uptimeNow)()) {
  // Removed while it runs: its work may add, invalidate and end any entry.
  auto taken = entries_.extract(entries_.begin());
  const Entry& entry = taken.mapped();
  running_ = entry.interval ? taken.key().order : 0;
  entry.work();
  if (running_ == 0) return;
  running_ = 0;
  // From its due time at the earliest: with a clock that rounds down it must not fire twice at one point.
  const double from = std::max(uptimeNow(), taken.key().due);
  taken.key().due = nextGridPoint(entry.gridStart, *entry.interval, from);
  entries_.insert(std::move(taken));
}

}  // namespace brisko::virtual_mac
