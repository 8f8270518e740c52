#include "records/statistics.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "core/checked.h"
#include "core/json_file.h"
#include "core/process_flags.h"
#include "core/volume_path.h"
#include "native/native_limit_state.h"
#include "platform/clock.h"
#include "policy/charge_state.h"
#include "policy/tick_state.h"
#include "records/paths.h"

namespace brisko {

void readStats() {
  const auto object = readJsonObject(onVolume(statsPath));
  if (!object) return;
  gProtectedSeconds = numberAt(*object, "protectedSeconds").value_or(0);
  gStatsSince = doubleAt(*object, "since").value_or(gStatsSince);
  gTopUpSince = doubleAt(*object, "topUpSince").value_or(0);
  gAtLimit = booleanAt(*object, "atLimit");
  gNativeBefore = integerAt(*object, "nativeBefore");
}

void writeStats() {
  if (gPurged) return;
  Json object = {
      {"protectedSeconds", checkedInteger(gProtectedSeconds)},
      {"since", gStatsSince},
      {"topUpSince", gTopUpSince},
      {"atLimit", gAtLimit.value_or(false)},
  };
  if (gNativeBefore) object["nativeBefore"] = *gNativeBefore;
  writeJsonFile(onVolume(statsPath), object);
}

void statisticsTick() {
  constexpr double mostPerTick = 60.0;  // seconds
  const double now = platform::wallNow();
  const double elapsed = now - gLastStatsTick;
  gLastStatsTick = now;
  if (!isProtecting()) return;
  gProtectedSeconds += std::min(elapsed, mostPerTick);
  writeStats();
}

}  // namespace brisko
