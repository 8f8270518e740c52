#include "report/ageing.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace brisko::lab {
namespace {

constexpr double zeroCelsius = 273.15;  // K

// The open-circuit voltage of the NMC cell, linear between these.
constexpr std::array<std::pair<double, double>, 10> openCircuit{{{0.00, 3.33},
                                                                 {0.08, 3.47},
                                                                 {0.21, 3.59},
                                                                 {0.36, 3.64},
                                                                 {0.50, 3.69},
                                                                 {0.64, 3.81},
                                                                 {0.75, 3.93},
                                                                 {0.82, 4.00},
                                                                 {0.90, 4.07},
                                                                 {1.00, 4.16}}};

double voltageAt(double charge) {
  const auto above = std::find_if(openCircuit.begin() + 1, openCircuit.end() - 1,
                                  [charge](const auto& point) { return charge <= point.first; });
  const auto& [from, low] = *(above - 1);
  const auto& [until, high] = *above;
  return low + (charge - from) / (until - from) * (high - low);
}

double nmcRate(double charge, double celsius) {
  return (7.543 * voltageAt(charge) - 23.75) * 1e6 * std::exp(-6976 / (celsius + zeroCelsius));
}

double ncaRate(double charge, double celsius) {
  const double kelvin = celsius + zeroCelsius;
  return 75.4 * std::exp(-3340 / kelvin) * std::exp(353 * charge / kelvin);
}

constexpr std::array<CellModel, cellModelCount> models{
    {{"nmc", "NMC 111 / graphite (Sanyo UR18650E)",
      "Schmalstieg, Käbitz, Ecker, Sauer, J. Power Sources 257 (2014) 325–334",
      "10.1016/j.jpowsour.2014.02.012", 0.75, nmcRate},
     {"nca", "NCA / graphite (Panasonic NCR18650B)",
      "data of Keil et al., J. Electrochem. Soc. 163 (2016) A1872, fitted by NREL (BLAST-Lite)",
      "10.1149/2.0411609jes", 0.512, ncaRate}}};

}  // namespace

const std::array<CellModel, cellModelCount>& cellModels() { return models; }

void age(Ageing& ageing, double days, double percent, double celsius) {
  const double charge = std::clamp(percent / 100, 0.0, 1.0);
  for (std::size_t model = 0; model < models.size(); ++model)
    ageing.sums.at(model) +=
        std::pow(models.at(model).rate(charge, celsius), 1 / models.at(model).exponent) * days;
}

double lossOf(const Ageing& ageing, std::size_t model) {
  return std::pow(ageing.sums.at(model), models.at(model).exponent);
}

double AgeingRatio::least() const { return *std::min_element(byModel.begin(), byModel.end()); }
double AgeingRatio::most() const { return *std::max_element(byModel.begin(), byModel.end()); }

AgeingRatio ageingRatio(const Ageing& one, const Ageing& other) {
  AgeingRatio ratio;
  for (std::size_t model = 0; model < models.size(); ++model)
    ratio.byModel.at(model) = lossOf(one, model) / lossOf(other, model);
  return ratio;
}

}  // namespace brisko::lab
