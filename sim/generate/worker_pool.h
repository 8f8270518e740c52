// sim/generate/worker_pool.h
// Runs scenarios in parallel worker processes, one scenario each. A worker that dies or stops reporting ends
// with a verdict like any other, and no worker outlives the lab, even if the lab is killed.
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

  // A worker that reports nothing for this long is killed; a day of machine time takes far less than a
  // second.
  static constexpr std::chrono::seconds usualTimeout{300};

  explicit WorkerPool(unsigned most, std::chrono::milliseconds timeout = usualTimeout);
  ~WorkerPool();  // kills the workers that still run
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  [[nodiscard]] bool allBusy() const;
  [[nodiscard]] bool allIdle() const;
  void begin(std::uint64_t number, const Task& task);

  struct Ended {
    std::uint64_t number = 0;
    Verdict verdict = {};
  };
  // Waits until a worker ends, a signal arrives, this much time has passed, or the other end of a pipe was
  // written to, if one is given; what was written is taken out.
  [[nodiscard]] std::vector<Ended> wait(std::chrono::milliseconds atMost, int wakeUp = -1);
  // The machine time that the running workers have completed so far.
  [[nodiscard]] double secondsUnderWay() const;
  // Asks the running workers to stop, which they do soon.
  void cancel();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace brisko::lab
