// client/effect_on_charge.h
// Which settings can change the course of the charge. For commands that play days with other settings.
#pragma once

#include <string>

#include "base/json_file.h"
#include "base/settings.h"

namespace brisko::client {

// Why playing days with this setting would show nothing, whatever else is set, as a sentence without its
// point; empty if it may show something. `key` is a known one.
[[nodiscard]] std::string whyNeverMatters(const std::string& key);

// The same for keys that are changed in these settings. `lowerGiven`: the daemon's option --lower replaces
// the width of the band.
[[nodiscard]] std::string whyDoesNotMatter(const Json& keys, const Settings& settings, bool lowerGiven);

}  // namespace brisko::client
