// sim/machine/models.h
// The models of Mac that can be made without a dump from a real one.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

[[nodiscard]] std::span<const Model> models();                // "air13", "pro14", "pro16"
[[nodiscard]] const Model* findModel(std::string_view name);  // null when there is none

// The tools' names for what stops charging and what cuts the adapter.
inline constexpr std::array<std::pair<std::string_view, GateKind>, 4> gateNames{{
    {"chte", GateKind::chte},
    {"ch0b0c", GateKind::ch0b0c},
    {"firmware-band", GateKind::firmwareBand},
    {"none", GateKind::none},
}};
inline constexpr std::array<std::pair<std::string_view, CutKind>, 4> cutNames{{
    {"chie", CutKind::chie},
    {"ch0i", CutKind::ch0i},
    {"ch0j", CutKind::ch0j},
    {"none", CutKind::none},
}};
template <typename Kind, std::size_t count>
std::optional<Kind> kindNamed(const std::array<std::pair<std::string_view, Kind>, count>& names,
                              std::string_view name) {
  for (const auto& [known, kind] : names) {
    if (known == name) return kind;
  }
  return std::nullopt;
}

}  // namespace brisko::virtual_mac
