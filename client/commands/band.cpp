#include <nlohmann/json.hpp>
#include <optional>

#include "base/options.h"
#include "client/commands/command.h"
#include "client/setting_keys.h"
#include "policy/charge_bounds.h"

namespace brisko::client {
namespace {

std::string bandSentence(const Bounds& band) {
  return "Charging stops at " + std::to_string(band.upper) + " % and starts again at " +
         std::to_string(band.lower) + " %.";
}

// The keys for "5" or "70..80"; none when the text is neither.
std::optional<Json> bandKeys(const std::string& text) {
  const SettingKey& limit = *findSetting("limit");
  const SettingKey& width = *findSetting("hysteresis");
  const std::size_t dots = text.find("..");
  if (dots == std::string::npos) {
    const auto points = settingValue(width, text);
    if (!points) return std::nullopt;
    return Json{{"hysteresis", *points}};
  }
  const auto lower = parseInteger(text.substr(0, dots));
  const auto upper = settingValue(limit, text.substr(dots + 2));
  if (!lower || !upper || *lower < 0 || *lower > 100) return std::nullopt;
  const auto points = settingValue(width, std::to_string(upper->get<std::int64_t>() - *lower));
  if (!points) return std::nullopt;
  return Json{{"hysteresis", *points}, {"limit", *upper}};
}

}  // namespace

ExitStatus runBand(const Context& context) {
  const auto& words = context.invocation.words;
  const State state = readState(context.volume);
  const auto bandOf = [&state](const Settings& settings) {
    return bounds(settings.limit, state.job.lower.value_or(-1), settings.hysteresis);
  };
  if (words.empty()) {
    const Bounds band = bandOf(state.settings);
    return showSettings(context, state, bandSentence(band),
                        {{"hysteresis", state.settings.hysteresis}, {"limit", state.settings.limit}});
  }
  const auto keys = bandKeys(words.front());
  if (!keys) {
    return misuse(
        context,
        "the band is a width of 1 to 20 points, or its two edges with a limit from 20 to 100, not \"" +
            words.front() + "\"; for example: brisko band 75..80");
  }
  if (state.job.lower) {
    context.output.complain("the service is started with --lower " + std::to_string(*state.job.lower) +
                            ", which replaces the width of the band; remove it from the job first");
    return ExitStatus::notDone;
  }
  Settings asked = state.settings;
  asked.hysteresis = keys->at("hysteresis").get<std::int64_t>();
  asked.limit = keys->value("limit", asked.limit);
  return changeAndReport(context, state, *keys, bandSentence(bandOf(asked)));
}

}  // namespace brisko::client
