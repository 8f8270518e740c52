// Every object is read as settings, except one with a number beyond 64 bits under an integer key, which must
// end the process. The file that the daemon writes contains the same settings, unless one is infinite.
#include <cmath>
#include <nlohmann/json.hpp>

#include "base/checked.h"
#include "base/options.h"
#include "base/settings.h"
#include "fuzz/expected_settings.h"
#include "fuzz/fatal.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "fuzz/volume.h"

namespace brisko::settings_fuzz {
namespace {

void tryOneShots(const Settings& settings) {
  writeConfig(settings, true, std::nullopt, !settings.calibrate);
  Settings changed = settings;
  changed.topUp = true;
  changed.calibrate = !settings.calibrate;
  require(readConfig(gConfigPath) == changed);
}

void trySoakTime(const Settings& settings) {
  // The status contains it in seconds, which must fit 64 bits.
  constexpr std::int64_t most = 153722867280912930;  // minutes
  const bool fits = settings.calSoakMinutes >= -most && settings.calSoakMinutes <= most;
  std::int64_t seconds = 0;
  require(fits != endsTheProcess([&] { seconds = checkedProduct(settings.calSoakMinutes, 60); }));
  require(!fits || seconds / 60 == settings.calSoakMinutes);
}

void tryText(std::string_view text) {
  static const Volume volume;
  volume.write(defaultConfigPath, text);
  std::optional<Settings> settings;
  const bool ended = endsTheProcess([&] { settings = readConfig(gConfigPath); });

  const std::optional<Json> object = parseJson(text);
  if (!object || !object->is_object()) return require(!ended && !settings);
  const std::optional<Settings> wanted = expectedSettings(*object);
  require(ended == !wanted);
  require(settings == wanted);
  if (!settings) return;

  trySoakTime(*settings);
  writeConfig(*settings, std::nullopt, std::nullopt, std::nullopt);
  if (!std::isfinite(settings->blinkSeconds)) return require(volume.read(defaultConfigPath) == text);
  require(readConfig(gConfigPath) == settings);
  const std::optional<Json> written = parseJson(volume.read(defaultConfigPath).value_or(""));
  require(written && written->size() == 16);
  tryOneShots(*settings);
}

const FuzzTarget target("settings", tryText);

}  // namespace
}  // namespace brisko::settings_fuzz
