// A text is a scenario or causes errors, never both. Each error names the file. The same text causes the same
// errors, which only one text in sixteen is read again for.
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "sim/scenario/scenario.h"

namespace brisko::lab::scenario_fuzz {
namespace {

constexpr const char* file = "nowhere/scenario.json";

void requireSameAgain(std::string_view text, const std::optional<Scenario>& scenario,
                      const Diagnostics& diagnostics) {
  Diagnostics again(file);
  const auto same = readScenario(text, again);
  require(again.texts() == diagnostics.texts());
  require(same.has_value() == scenario.has_value());
  if (!scenario) return;
  require(same->steps.size() == scenario->steps.size() && same->end.size() == scenario->end.size());
}

void tryText(std::string_view text) {
  static unsigned count = 0;
  Diagnostics diagnostics(file);
  const auto scenario = readScenario(text, diagnostics);
  require(scenario.has_value() == diagnostics.none());
  for (const std::string& diagnostic : diagnostics.texts()) require(diagnostic.starts_with(file));
  if (count++ % 16 == 0) requireSameAgain(text, scenario, diagnostics);
  if (!scenario) return;
  require(!scenario->description.empty() && !scenario->steps.empty());
  for (const Step& step : scenario->steps) {
    require(step.place.starts_with("/timeline/"));
    require(!step.at || secondsUntil(*step.at, 1772352000) > 0);
  }
}

const FuzzTarget target("scenario", tryText);

}  // namespace
}  // namespace brisko::lab::scenario_fuzz
