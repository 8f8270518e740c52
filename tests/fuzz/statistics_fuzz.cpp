// Any file is read as statistics or leaves them unchanged, and they can be written again, except a total
// beyond 64 bits, which must end the process, and an infinite time, which leaves the file unchanged.
#include <cmath>
#include <nlohmann/json.hpp>

#include "base/json_file.h"
#include "base/paths.h"
#include "fuzz/fatal.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "fuzz/volume.h"
#include "records/statistics.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"

namespace brisko::statistics_fuzz {
namespace {

constexpr double someTotal = 123;
constexpr double someStart = 1.75e9;

void forget() {
  gProtectedSeconds = someTotal;
  gStatsSince = someStart;
  gTopUpSince = 7;
  gAtLimit = true;
  gNativeBefore = 85;
}

bool isUntouched() {
  return gProtectedSeconds == someTotal && gStatsSince == someStart && gTopUpSince == 7 && gAtLimit == true &&
         gNativeBefore == 85;
}

bool isAsIn(const Json& object) {
  const auto at = [&object](const char* key) { return object.value(key, Json()); };
  const auto fraction = [&](const char* key, double usual) {
    return at(key).is_number_float() ? at(key).get<double>() : usual;
  };
  const Json total = at("protectedSeconds");
  const Json limit = at("nativeBefore");
  const bool isLimit =
      limit.is_number_integer() && !(limit.is_number_unsigned() && limit.get<std::uint64_t>() >> 63U != 0);
  return gProtectedSeconds == (total.is_number() ? total.get<double>() : 0) &&
         gStatsSince == fraction("since", someStart) && gTopUpSince == fraction("topUpSince", 0) &&
         gAtLimit.has_value() == at("atLimit").is_boolean() && (!gAtLimit || at("atLimit") == *gAtLimit) &&
         gNativeBefore.has_value() == isLimit && (!isLimit || limit.dump() == std::to_string(*gNativeBefore));
}

// What is written reads back the same, with the fraction of a second dropped and an unknown limit left out.
void tryWriting(const Volume& volume, std::string_view text) {
  const bool ended = endsTheProcess(writeStats);
  require(ended == !fitsInteger(gProtectedSeconds));
  if (ended) return;
  if (!std::isfinite(gStatsSince) || !std::isfinite(gTopUpSince)) {
    return require(volume.read(statsPath) == text);
  }
  const double total = std::trunc(gProtectedSeconds);
  const double since = gStatsSince;
  const double topUp = gTopUpSince;
  const bool atLimit = gAtLimit.value_or(false);
  const auto nativeBefore = gNativeBefore;
  forget();
  readStats();
  require(gProtectedSeconds == total && gStatsSince == since && gTopUpSince == topUp);
  require(gAtLimit == atLimit && gNativeBefore == nativeBefore);
  require(volume.read(statsPath).has_value());
}

void tryText(std::string_view text) {
  static const Volume volume;
  volume.write(statsPath, text);
  forget();
  readStats();
  const std::optional<Json> object = parseJson(text);
  if (!object || !object->is_object()) return require(isUntouched());
  require(isAsIn(*object));
  tryWriting(volume, text);
}

const FuzzTarget target("statistics", tryText);

}  // namespace
}  // namespace brisko::statistics_fuzz
