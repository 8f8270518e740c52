#include "records/statistics.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/checked.h"
#include "base/json_file.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "base/volume_path.h"
#include "hardware/charge_state.h"
#include "platform/clock.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"

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
  Json object;
  object["protectedSeconds"] = checkedInteger(gProtectedSeconds);
  object["since"] = gStatsSince;
  object["topUpSince"] = gTopUpSince;
  object["atLimit"] = gAtLimit.value_or(false);
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
