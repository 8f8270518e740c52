// sim/generate/players.h
// Processes that play stories side by side, one story each. One that dies or falls silent is told like any
// other end, and none outlives the lab: not even when that is killed.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/generate/verdict.h"

namespace brisko::lab {

class Players {
 public:
  using Play = std::function<Verdict(const GoesOn&)>;

  // One that says nothing for so long is ended; a day of machine time takes far less than a second.
  static constexpr std::chrono::seconds usualPatience{300};

  explicit Players(unsigned most, std::chrono::milliseconds patience = usualPatience);
  ~Players();  // ends those that still play
  Players(const Players&) = delete;
  Players& operator=(const Players&) = delete;

  [[nodiscard]] bool allBusy() const;
  [[nodiscard]] bool allIdle() const;
  void begin(std::uint64_t number, const Play& play);

  struct Ended {
    std::uint64_t number = 0;
    Verdict verdict = {};
  };
  // Waits until somebody ends, a signal comes, or so much time has passed.
  [[nodiscard]] std::vector<Ended> wait(std::chrono::milliseconds atMost);
  // The machine time that those who play now have played so far.
  [[nodiscard]] double secondsUnderWay() const;
  // Those who play are asked to break off, and do so soon.
  void breakOff();

 private:
  struct Inside;
  std::unique_ptr<Inside> inside_;
};

}  // namespace brisko::lab
