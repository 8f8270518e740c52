// sim/generate/worker_pool.h
// Processes that play scenarios side by side, one scenario each. One that dies or falls silent is told like
// any other end, and none outlives the lab: not even when that is killed.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/generate/verdict.h"

namespace brisko::lab {

class WorkerPool {
 public:
  using Task = std::function<Verdict(const ShouldContinue&)>;

  // One that says nothing for so long is ended; a day of machine time takes far less than a second.
  static constexpr std::chrono::seconds usualTimeout{300};

  explicit WorkerPool(unsigned most, std::chrono::milliseconds timeout = usualTimeout);
  ~WorkerPool();  // ends those that still play
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  [[nodiscard]] bool allBusy() const;
  [[nodiscard]] bool allIdle() const;
  void begin(std::uint64_t number, const Task& task);

  struct Ended {
    std::uint64_t number = 0;
    Verdict verdict = {};
  };
  // Waits until somebody ends, a signal comes, or so much time has passed.
  [[nodiscard]] std::vector<Ended> wait(std::chrono::milliseconds atMost);
  // The machine time that those who play now have played so far.
  [[nodiscard]] double secondsUnderWay() const;
  // Those who play are asked to cancel, and do so soon.
  void cancel();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace brisko::lab
