// sim/replay/reconstruct.h
// Makes a scenario from reported days: the Mac, its daemon, and what happened to them, as far as the report
// shows it. The scenario sets the charge only at the beginning; after that the virtual battery and the real
// daemon are left alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/replay/reported_days.h"
#include "sim/scenario/generated_scenario.h"

namespace brisko::lab {

struct Reconstruction {
  virtual_mac::Machine machine = {};  // as it was when the report was made
  GeneratedScenario scenario = {};    // its Mac has no battery yet: playing takes the machine
  std::string registry = {};          // the battery's registry entry, for a file
  double begin = 0;                   // wall clock
  std::vector<std::string> assumptions = {};
};

// What the days will be played for. With other settings the Mac charges at other times. Only then do its load
// on the adapter, its temperature and the wakes that its daemon had scheduled matter.
enum class Purpose : std::uint8_t { sameAgain, otherSettings };

// The days must be those of a report that was read.
[[nodiscard]] Reconstruction reconstruct(const ReportedDays& days, Purpose purpose = Purpose::sameAgain);

// The text of a scenario's file, whose battery is in the file `registryName` in the same folder.
[[nodiscard]] std::string scenarioFileText(const Reconstruction& reconstruction,
                                           const std::string& registryName);

}  // namespace brisko::lab
