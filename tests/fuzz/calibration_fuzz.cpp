// Every object makes a calibration's record, and what was made of it can be written and reads back the same.
#include <nlohmann/json.hpp>

#include "calibration/calibration_record.h"
#include "fuzz/require.h"

namespace brisko {
namespace {

CalibrationState taken(const Json& object) {
  CalibrationState state;
  takeCalibration(object, state);
  return state;
}

void tryText(std::string_view text) {
  const std::optional<Json> object = parseJson(text);
  if (!object || !object->is_object()) return;
  const CalibrationState state = taken(*object);
  require(state.lastTick == 0);

  const std::optional<std::string> written = jsonText(dict(state));
  require(written.has_value());
  const std::optional<Json> again = parseJson(*written);
  require(again.has_value());
  require(taken(*again) == state);
  require(jsonText(dict(taken(*again))) == written);
}

}  // namespace
}  // namespace brisko

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  brisko::tryText({reinterpret_cast<const char*>(data), size});
  return 0;
}
