// How a cell ages by the two published models, against figures that were computed by hand from their
// formulas.

#include "report/ageing.h"

#include <gtest/gtest.h>

namespace brisko::lab::ageing_test {
namespace {

constexpr std::size_t nmc = 0;
constexpr std::size_t nca = 1;

Ageing constant(double days, double percent, double celsius) {
  Ageing ageing;
  age(ageing, days, percent, celsius);
  return ageing;
}

// A year at 100 % and 25 °C, T = 298.15 K:
//   NMC: V = 4.16, so a = (7.543 · 4.16 − 23.75) · 10^6 · exp(−6976 / 298.15)
//        = 7.62888 · 10^6 · exp(−23.397619) = 5.2603 · 10^-4; · 365^0.75 = 83.506 gives 0.04393.
//   NCA: k = 75.4 · exp(−3340 / 298.15) · exp(353 / 298.15) = 75.4 · exp(−11.202415 + 1.183968)
//        = 3.3605 · 10^-3; · 365^0.512 = 20.507 gives 0.06891.
// 80 % at 25 °C, compared with that:
//   NMC: V = 3.93 + 5/7 · 0.07 = 3.98, so 6.27114 / 7.62888 = 0.82203.
//   NCA: exp(−0.2 · 353 / 298.15) = exp(−0.236794) = 0.78915.
// 80 % at 25 °C, compared with 80 % at 35 °C, 1 / 298.15 − 1 / 308.15 = 1.088432 · 10^-4:
//   NMC: exp(−6976 · 1.088432 · 10^-4) = exp(−0.759290) = 0.46800.
//   NCA: exp(−(3340 − 0.8 · 353) · 1.088432 · 10^-4) = exp(−0.332799) = 0.71691.
TEST(Ageing, isThatOfTheFormulasForConstantChargeAndTemperature) {
  const Ageing full = constant(365, 100, 25);
  EXPECT_NEAR(lossOf(full, nmc), 0.04393, 0.00002);
  EXPECT_NEAR(lossOf(full, nca), 0.06891, 0.00002);

  const AgeingRatio limited = ageingRatio(constant(365, 80, 25), full);
  EXPECT_NEAR(limited.byModel[nmc], 0.82203, 0.00002);
  EXPECT_NEAR(limited.byModel[nca], 0.78915, 0.00002);

  const AgeingRatio cooler = ageingRatio(constant(365, 80, 25), constant(365, 80, 35));
  EXPECT_NEAR(cooler.byModel[nmc], 0.46800, 0.00002);
  EXPECT_NEAR(cooler.byModel[nca], 0.71691, 0.00002);
  EXPECT_DOUBLE_EQ(cooler.least(), cooler.byModel[nmc]);
  EXPECT_DOUBLE_EQ(cooler.most(), cooler.byModel[nca]);
}

// The published table, and both ends and a point of the curve of voltages: the rate of the NMC cell is in the
// ratio of 7.543 V − 23.75.
TEST(Ageing, isLessTheLowerTheCharge) {
  struct Case {
    double percent, nmc, nca;
  };
  for (const Case& each : {Case{80, 0.82, 0.79}, Case{70, 0.72, 0.70}, Case{60, 0.62, 0.62},
                           Case{50, 0.54, 0.55}, Case{100, 1, 1}}) {
    const AgeingRatio ratio = ageingRatio(constant(100, each.percent, 25), constant(100, 100, 25));
    EXPECT_NEAR(ratio.byModel[nmc], each.nmc, 0.006) << each.percent;
    EXPECT_NEAR(ratio.byModel[nca], each.nca, 0.006) << each.percent;
  }
  const double empty = (7.543 * 3.33 - 23.75) / (7.543 * 4.16 - 23.75);
  EXPECT_NEAR(ageingRatio(constant(1, 0, 25), constant(1, 100, 25)).byModel[nmc], empty, 1e-9);
  EXPECT_DOUBLE_EQ(lossOf(constant(1, -3, 25), nmc), lossOf(constant(1, 0, 25), nmc));
  EXPECT_DOUBLE_EQ(lossOf(constant(1, 103, 25), nca), lossOf(constant(1, 100, 25), nca));
}

TEST(Ageing, addsUpInAnyOrderAndMoreSlowlyThanTime) {
  Ageing one;
  age(one, 30, 100, 30);
  age(one, 300, 60, 20);
  Ageing other;
  age(other, 150, 60, 20);
  age(other, 30, 100, 30);
  age(other, 150, 60, 20);
  for (const std::size_t model : {nmc, nca}) {
    EXPECT_NEAR(lossOf(one, model), lossOf(other, model), 1e-12);
    // Twice the time is 2^p times the loss.
    EXPECT_NEAR(lossOf(constant(200, 90, 25), model) / lossOf(constant(100, 90, 25), model),
                model == nmc ? 1.6817928 : 1.4260259, 1e-6);
  }
}

}  // namespace
}  // namespace brisko::lab::ageing_test
