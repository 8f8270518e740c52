#include "calibration/calibration_record.h"

#include <nlohmann/json.hpp>

namespace brisko {

Json dict(const CalRun& run) {
  Json object = {{"at", run.at}};
  const auto add = [&object](const char* key, const std::optional<std::int64_t>& value) {
    if (value) object[key] = *value;
  };
  add("beforeRaw", run.beforeRaw);
  add("afterRaw", run.afterRaw);
  add("beforeNominal", run.beforeNominal);
  add("afterNominal", run.afterNominal);
  add("design", run.design);
  add("cyclesBefore", run.cyclesBefore);
  add("cyclesAfter", run.cyclesAfter);
  return object;
}

Json dict(const CalFailure& failure) {
  return {{"reason", failure.reason}, {"phase", phaseName(failure.phase)}};
}

}  // namespace brisko
