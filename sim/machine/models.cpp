#include "sim/machine/models.h"

#include <algorithm>
#include <array>

namespace brisko::virtual_mac {
namespace {

// Together the three have every family of charge keys and every key that cuts the adapter. The resistance
// applies to a steady current; it is about twice that of the first instant. The charge currents follow what
// the batteries of real Macs asked for and took: about 1.1 C while nearly empty, 0.84 C later, 0.42 C from
// three quarters on. Those of the Pros hardly get warm from it, because they have fans.
constexpr std::array<Model, 3> allModels{{
    {.name = "air13",
     .title = "MacBook Air 13",
     .designMAh = 4563,
     .fullMAh = 4427,
     .reserveMAh = 127,
     .cycles = 37,
     .maxChargeMA = 5100,
     .steps = {{{0.4, 3830}, {0.75, 1920}}},
     .resistanceOhm = 0.15,
     .shownFull = 0.963,
     .chargingWarmthC = 8,
     .adapterWatts = 30,
     .loadWatts = 4.2,
     .gate = GateKind::chte,
     .cut = CutKind::chie,
     .magSafeLight = true},
    {.name = "pro14",
     .title = "MacBook Pro 14",
     .designMAh = 6249,
     .fullMAh = 6137,
     .reserveMAh = 152,
     .cycles = 89,
     .maxChargeMA = 6700,
     .steps = {{{0.4, 5110}, {0.75, 2600}}},
     .resistanceOhm = 0.15,
     .shownFull = 0.96,
     .chargingWarmthC = 3,
     .adapterWatts = 94,
     .loadWatts = 8,
     .gate = GateKind::ch0b0c,
     .cut = CutKind::ch0i,
     .magSafeLight = true},
    {.name = "pro16",
     .title = "MacBook Pro 16",
     .designMAh = 8579,
     .fullMAh = 7585,
     .reserveMAh = 244,
     .cycles = 312,
     .maxChargeMA = 10100,
     .steps = {{{0.4, 7080}, {0.75, 3440}}},
     .resistanceOhm = 0.12,
     .shownFull = 0.9625,
     .chargingWarmthC = 3,
     .adapterWatts = 140,
     .loadWatts = 10,
     .gate = GateKind::firmwareBand,
     .cut = CutKind::ch0j,
     .magSafeLight = true},
}};

}  // namespace

std::span<const Model> models() { return allModels; }

const Model* findModel(std::string_view name) {
  const auto* found = std::find_if(allModels.begin(), allModels.end(),
                                   [name](const Model& model) { return model.name == name; });
  return found == allModels.end() ? nullptr : found;
}

}  // namespace brisko::virtual_mac
