// A text is a scenario or causes errors, never both. The same text causes the same errors, and each error
// names the file.
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "sim/scenario/scenario.h"

namespace brisko::lab::scenario_fuzz {
namespace {

constexpr const char* file = "nowhere/scenario.json";

void tryText(std::string_view text) {
  Diagnostics diagnostics(file);
  const auto scenario = readScenario(text, diagnostics);
  require(scenario.has_value() == diagnostics.none());
  for (const std::string& diagnostic : diagnostics.texts()) require(diagnostic.starts_with(file));

  Diagnostics again(file);
  const auto same = readScenario(text, again);
  require(again.texts() == diagnostics.texts());
  require(same.has_value() == scenario.has_value());
  if (!scenario) return;
  require(!scenario->description.empty() && !scenario->steps.empty());
  require(same->steps.size() == scenario->steps.size() && same->end.size() == scenario->end.size());
  for (const Step& step : scenario->steps) {
    require(step.place.starts_with("/timeline/"));
    require(!step.at || secondsUntil(*step.at, 1772352000) > 0);
  }
}

const FuzzTarget target("scenario", tryText);

}  // namespace
}  // namespace brisko::lab::scenario_fuzz
