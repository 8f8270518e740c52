// The state of a daemon in any bytes, as brisko reads it: a reason that can be printed, with numbers that can
// be true. The first line of an input is the status, the second the settings, and the rest the history.
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "base/json_file.h"
#include "client/daemon_status.h"
#include "client/recent_history.h"
#include "client/setting_keys.h"
#include "client/why.h"
#include "fuzz/bytes.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "policy/charge_bounds.h"
#include "report/terminal_text.h"

namespace brisko::state_fuzz {
namespace {

using client::Answer;
using client::Situation;

std::optional<Json> objectIn(std::string_view text) {
  auto value = parseJson(text);
  return value && value->is_object() ? value : std::nullopt;
}

Situation situationIn(std::string_view text) {
  Bytes bytes(text);
  Situation situation{.now = 1772352000};
  if (const auto status = objectIn(bytes.upTo('\n'))) situation.status = client::daemonStatusIn(*status);
  const auto settings = objectIn(bytes.upTo('\n'));
  if (settings && !client::whyFatal(*settings)) situation.settings = parseConfig(*settings);
  situation.band = bounds(situation.settings.limit, -1, situation.settings.hysteresis);
  const std::string history(bytes.rest());
  situation.recent = client::recentHistory(situation.now, [&history](double) { return history; }).samples;
  return situation;
}

void tryAnswer(const Answer& answer) {
  require(!answer.text.empty() && *client::codeOf(answer.reason) != '\0');
  require(lab::forTerminal(answer.text) == answer.text);
  if (!answer.until) return;
  require(std::isfinite(answer.until->value));
  if (answer.until->aboutMinutes) require(*answer.until->aboutMinutes >= 0);
}

void tryInput(std::string_view input) {
  Situation situation = situationIn(input);
  for (const bool asleep : {false, true}) {
    for (const double since : {0.0, situation.now - 600}) {
      situation.asleep = asleep;
      situation.topUpSince = since;
      tryAnswer(client::why(situation));
    }
  }
}

const FuzzTarget target("state", tryInput);

}  // namespace
}  // namespace brisko::state_fuzz
