// benchmarks/baseline_io.h
// What every tick of a steady hold must do whatever it decides: read and parse the configuration, and query
// the power sources, the capabilities, the temperature and, twice, the adapter.
#pragma once

#include <nlohmann/json.hpp>

#include "base/json_file.h"
#include "base/options.h"
#include "base/volume_path.h"
#include "hardware/adapter.h"
#include "hardware/battery.h"

namespace brisko::bench {

inline bool doBaselineIo() {
  const bool configured = readJsonObject(onVolume(gConfigPath)).has_value();
  const bool powered = powerState().has_value();
  const bool capable = systemCapabilities().has_value();
  const bool warm = readTemp().has_value();
  const bool decided = adapterPresent();
  const bool lit = adapterPresent();
  return configured && powered && capable && warm && decided && lit;
}

}  // namespace brisko::bench
