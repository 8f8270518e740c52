// tests/why_proof/tally.h
// Counts the verdicts on all answers, and holds them to the goals.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "why_proof/judge.h"

namespace brisko::proof {

class Tally {
 public:
  void add(std::uint64_t seed, double begin, const Question& question, const Verdict& verdict);

  // Several lines.
  [[nodiscard]] std::string text() const;
  // What is not as it should be, a sentence each.
  [[nodiscard]] std::vector<std::string> missedGoals() const;

 private:
  struct Counts {
    std::size_t answers = 0, kept = 0, broken = 0, notJudged = 0;
  };
  // How far "about N minutes" was off, as shares of the time that it really took.
  struct Errors {
    std::vector<double> shares = {};
    [[nodiscard]] double within(double share) const;  // 0 … 1; 1 without any
    [[nodiscard]] std::string text() const;
  };

  void addMinutes(const Question& question, const Verdict& verdict);
  [[nodiscard]] double judgedShare() const;
  [[nodiscard]] double namedShare() const;

  Counts all_ = {};
  std::map<std::string, Counts> byReason_ = {};
  using CountsByReason = std::map<std::string, std::size_t>;
  std::map<std::string, CountsByReason> notJudged_ = {};  // by what came between
  std::size_t withUntil_ = 0;
  CountsByReason withoutUntil_ = {};
  std::size_t underFaults_ = 0;   // given while a fault was in effect
  std::size_t sampled_ = 0;       // while charging, with ten minutes of samples
  std::size_t sampledNamed_ = 0;  // … that name minutes
  Errors undisturbed_ = {};       // of these, where nothing happened between
  Errors kept_ = {};              // … of all that were kept
  std::vector<std::string> broken_ = {};
};

}  // namespace brisko::proof
