// tests/replay_proof/agreement.h
// Adds up how far replays agree with their reports, and holds that to the goals.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/replay/comparison.h"

namespace brisko::proof {

class Agreement {
 public:
  void add(std::uint64_t seed, const lab::Comparison& comparison);
  void addUnreplayed(std::uint64_t seed, const std::string& reason);

  // Several lines, with the seeds that agree least.
  [[nodiscard]] std::string text() const;
  // What is not as it should be, a sentence each.
  [[nodiscard]] std::vector<std::string> missedGoals() const;

 private:
  struct Week {
    std::uint64_t seed;
    std::array<double, 3> states;  // shares
    double charge;
    std::string departure;
  };
  [[nodiscard]] double chargeShare() const;
  [[nodiscard]] std::string worstWeeks() const;

  std::array<lab::StateAgreement, 3> states_ = {};
  std::size_t points_ = 0, within_ = 0;
  std::vector<Week> weeks_ = {};
  std::vector<std::string> unreplayed_ = {};
};

// What a hidden fault did to a report, which the same Mac wrote without it too.
struct FaultTrace {
  double first = 0;  // moment at which the reports differ at all, if only by a tenth of a watt
  // From when on the reports are as far apart as a departure is; none if they never are. No replay can name
  // the fault earlier, not even one that agrees with the report without the fault in every line.
  std::optional<double> visible = {};
};

// How near the first departure of a replay is to what a hidden fault did to the report first.
class Departures {
 public:
  // `departure`: none if nothing departs.
  void add(std::uint64_t seed, const std::string& fault, const FaultTrace& trace,
           std::optional<lab::Departure> departure);
  // Of a fault that left no trace in the report nothing can be named.
  void addTraceless() { ++traceless_; }

  [[nodiscard]] std::string text() const;
  [[nodiscard]] std::vector<std::string> missedGoals() const;

 private:
  [[nodiscard]] double namedShare() const;

  std::vector<std::string> lines_ = {};
  std::size_t named_ = 0, early_ = 0, late_ = 0, traceless_ = 0;
  // Named when the reports had drifted apart, more than ten minutes after the trace.
  std::size_t gradual_ = 0;
  std::size_t small_ = 0;  // too small to see, and nothing departs
};

}  // namespace brisko::proof
