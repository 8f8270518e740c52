#include "sim/machine/models.h"

#include <algorithm>
#include <array>

namespace brisko::virtual_mac {
namespace {

// Together the three have every family of charge keys and every key that cuts the adapter. The resistance
// applies to a steady current; it is about twice that of the first instant.
constexpr std::array<Model, 3> allModels{{
    {.name = "air13",
     .title = "MacBook Air 13",
     .designMAh = 4563,
     .fullMAh = 4427,
     .reserveMAh = 127,
     .cycles = 37,
     .maxChargeMA = 4400,
     .resistanceOhm = 0.15,
     .shownFull = 0.963,
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
     .maxChargeMA = 5110,
     .resistanceOhm = 0.15,
     .shownFull = 0.96,
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
     .maxChargeMA = 3440,
     .resistanceOhm = 0.12,
     .shownFull = 0.955,
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
