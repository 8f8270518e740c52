// report/ageing.h
// How a lithium-ion cell ages by time alone: faster when it is fuller and warmer. Two published models of two
// kinds of cell, so that an answer is a span and not one false number. A Mac's cells are neither of the two,
// so only the ratio between two ways of using the same battery means anything, and never a lifetime.
#pragma once

#include <array>
#include <cstddef>

namespace brisko::lab {

struct CellModel {
  const char* id;
  const char* cell;
  const char* source;
  const char* doi;
  double exponent;                                // of time: the loss is rate · days^exponent
  double (*rate)(double charge, double celsius);  // share of the capacity when new; `charge` from 0 to 1
};
inline constexpr std::size_t cellModelCount = 2;
[[nodiscard]] const std::array<CellModel, cellModelCount>& cellModels();

// What a cell that was new has aged by, for each model, in the model's own unit, which adds up: the order of
// the days does not matter.
struct Ageing {
  std::array<double, cellModelCount> sums = {};
};

// Some days at this charge, which may be a little outside 0 to 100 %, and this temperature.
void age(Ageing& ageing, double days, double percent, double celsius);

// The lost share of the capacity when new, from 0 to 1.
[[nodiscard]] double lossOf(const Ageing& ageing, std::size_t model);

// How many times as much of its capacity a cell loses in one way as in the other, by each model.
struct AgeingRatio {
  std::array<double, cellModelCount> byModel = {};
  [[nodiscard]] double least() const;
  [[nodiscard]] double most() const;
};
// `other` has aged.
[[nodiscard]] AgeingRatio ageingRatio(const Ageing& one, const Ageing& other);

}  // namespace brisko::lab
