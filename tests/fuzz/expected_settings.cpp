#include "fuzz/expected_settings.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "fuzz/fatal.h"

namespace brisko {
namespace {

// Looks up one key after another and records whether a value cannot be represented.
class Lookup {
 public:
  explicit Lookup(const Json& object) : object_(object) {}

  [[nodiscard]] bool boolean(const char* key, bool usual) const {
    const Json value = object_.value(key, Json());
    return value.type() == Json::value_t::boolean ? value == true : usual;
  }

  [[nodiscard]] double number(const char* key, double usual) const {
    const Json value = object_.value(key, Json());
    return value.is_number() ? value.get<double>() : usual;
  }

  [[nodiscard]] std::int64_t integer(const char* key, std::int64_t usual) {
    const Json value = object_.value(key, Json());
    switch (value.type()) {
      case Json::value_t::number_integer:
        return *value.get_ptr<const std::int64_t*>();
      case Json::value_t::number_unsigned:
        return fromUnsigned(*value.get_ptr<const std::uint64_t*>());
      case Json::value_t::number_float:
        return fromFloat(*value.get_ptr<const double*>());
      default:
        return usual;
    }
  }

  [[nodiscard]] bool allFit() const { return allFit_; }

 private:
  std::int64_t fromUnsigned(std::uint64_t value) {
    if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return static_cast<std::int64_t>(value);
    }
    allFit_ = false;
    return 0;
  }

  std::int64_t fromFloat(double value) {
    if (fitsInteger(value)) return static_cast<std::int64_t>(value);
    allFit_ = false;
    return 0;
  }

  const Json& object_;
  bool allFit_ = true;
};

}  // namespace

std::optional<Settings> expectedSettings(const Json& object) {
  Lookup in(object);
  const Settings settings{.enabled = in.boolean("enabled", true),
                          .limit = in.integer("limit", 80),
                          .discharge = in.boolean("discharge", false),
                          .led = in.boolean("led", true),
                          .blinkSeconds = in.number("blinkSeconds", 2),
                          .thermal = in.boolean("thermal", false),
                          .thermalLimit = in.integer("thermalLimit", 40),
                          .topUp = in.boolean("topUp", false),
                          .topUpHours = in.integer("topUpHours", 0),
                          .hysteresis = in.integer("hysteresis", 5),
                          .history = in.boolean("history", true),
                          .historyDays = in.integer("historyDays", 365),
                          .calibrate = in.boolean("calibrate", false),
                          .calDrain = in.integer("calDrain", 15),
                          .calSoakMinutes = in.integer("calSoakMinutes", 60),
                          .resetStats = in.boolean("resetStats", false)};
  return in.allFit() ? std::optional(settings) : std::nullopt;
}

}  // namespace brisko
