// base/settings.h
// The user's choices and the file that contains them. The app writes it; the daemon reads it again on every
// tick and writes it only to clear the one-shot requests.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/json_file.h"

namespace brisko {

// Stored as in the file, without range checks; the code that uses a number clamps it.
struct Settings {
  bool enabled = true;               // limit the charge at all
  std::int64_t limit = 80;           // percent
  bool discharge = false;            // run down to the limit while on the adapter
  bool led = true;                   // drive the MagSafe light
  double blinkSeconds = 2.0;         // half-period of the blinking light
  bool thermal = false;              // pause charging when the battery is hot
  std::int64_t thermalLimit = 40;    // °C
  bool topUp = false;                // one-shot: charge to full now
  std::int64_t topUpHours = 0;       // how long a Top Up may last; 0: until unplugged
  std::int64_t hysteresis = 5;       // width of the band below the limit, percentage points
  bool history = true;               // record the charge history
  std::int64_t historyDays = 365;    // how long to keep it
  bool calibrate = false;            // one-shot: start a calibration
  std::int64_t calDrain = 15;        // percent that a calibration drains to
  std::int64_t calSoakMinutes = 60;  // how long it rests at full
  bool resetStats = false;           // one-shot: restart the statistics

  bool operator==(const Settings&) const = default;
};

// Never fails: a key that is missing or has another type takes its default. A number beyond 64 bits under an
// integer key is fatal (base/checked.h).
[[nodiscard]] Settings parseConfig(const Json& object);

// All 16 keys, as they are written to the file.
[[nodiscard]] Json configObject(const Settings& settings);

// None when the file is missing, unreadable, not JSON or not an object. A file whose bytes have not changed
// since the last call is not parsed again.
[[nodiscard]] std::optional<Settings> readConfig(const std::string& path);

// The settings in force: those in gConfigPath or, if they cannot be read, the defaults with the limit of the
// command line.
[[nodiscard]] Settings settingsInForce();

// Writes all 16 keys to gConfigPath. A one-shot passed here replaces that of the settings. Does nothing after
// a purge; failures are silent.
void writeConfig(const Settings& settings, std::optional<bool> topUp, std::optional<bool> resetStats,
                 std::optional<bool> calibrate);

}  // namespace brisko
