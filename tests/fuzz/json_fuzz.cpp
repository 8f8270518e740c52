// What the JSON reader takes it can write and reads back the same; every object makes settings, save one with
// a number beyond 64 bits under an integer key, which is meant to end the process.
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "core/settings.h"
#include "fuzz/require.h"

namespace brisko {
namespace {

constexpr std::array integerKeys{"limit",       "thermalLimit", "topUpHours",    "hysteresis",
                                 "historyDays", "calDrain",     "calSoakMinutes"};

bool endsTheProcess(const Json& object) {
  constexpr double beyond = 9223372036854775808.0;  // 2^63
  for (const char* key : integerKeys) {
    const std::optional<double> number = numberAt(object, key);
    if (!number || integerAt(object, key)) continue;
    const double whole = std::trunc(*number);
    if (!(whole >= -beyond && whole < beyond)) return true;
  }
  return false;
}

void tryText(std::string_view text) {
  const std::optional<Json> value = parseJson(text);
  if (!value) return;
  const std::optional<std::string> written = jsonText(*value);
  require(written.has_value());
  const std::optional<Json> again = parseJson(*written);
  require(again.has_value());
  require(*again == *value);
  require(jsonText(*again) == written);

  if (!value->is_object() || endsTheProcess(*value)) return;
  require(parseConfig(*value) == parseConfig(*again));
}

}  // namespace
}  // namespace brisko

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  brisko::tryText({reinterpret_cast<const char*>(data), size});
  return 0;
}
