#include "sim/generate/shrink.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace brisko::lab {
namespace {

using Candidates = std::vector<GeneratedScenario>;

class Shrinking {
 public:
  Shrinking(GeneratedScenario scenario, double seconds, const ShrinkBounds& bounds, const TryOut& tryOut)
      : best_(std::move(scenario)), bounds_(bounds), tryOut_(tryOut) {
    cutAfter(best_, seconds);
  }

  Shrunk run() {
    static_cast<void>(acceptFirst({best_}));
    thinOut();
    simplify();
    shortenPauses();
    thinOut();
    return {.scenario = std::move(best_), .tries = tries_};
  }

 private:
  // Removes what comes after the failure, and the time after it.
  static void cutAfter(GeneratedScenario& scenario, double seconds) {
    const auto end = static_cast<std::int64_t>(std::ceil(seconds)) + 1;
    std::erase_if(scenario.timedActions,
                  [&](const TimedAction& timedAction) { return timedAction.at > end; });
    scenario.seconds = std::min(scenario.seconds, end + 60);
  }

  // Tries the candidates in order and continues with the first that still fails.
  bool acceptFirst(const Candidates& candidates) {
    for (std::size_t from = 0; from < candidates.size() && tries_ < bounds_.tries; from += bounds_.atOnce) {
      const std::size_t to = std::min(from + bounds_.atOnce, candidates.size());
      const auto at = [&](std::size_t index) {
        return candidates.begin() + static_cast<std::ptrdiff_t>(index);
      };
      tries_ += to - from;
      const auto wrong = tryOut_(Candidates(at(from), at(to)));
      if (!wrong) continue;
      best_ = candidates[from + wrong->index];
      cutAfter(best_, wrong->seconds);
      return true;
    }
    return false;
  }

  [[nodiscard]] GeneratedScenario without(std::size_t from, std::size_t count) const {
    GeneratedScenario scenario = best_;
    const auto begin = scenario.timedActions.begin() + static_cast<std::ptrdiff_t>(from);
    scenario.timedActions.erase(begin, begin + static_cast<std::ptrdiff_t>(count));
    return scenario;
  }

  // Leaves out runs of timed actions, long runs first. The latest actions matter most, so the earliest are
  // tried first.
  void thinOut() {
    for (std::size_t run = best_.timedActions.size(); run > 0 && tries_ < bounds_.tries;) {
      run = std::min(run, best_.timedActions.size());
      Candidates candidates;
      for (std::size_t from = 0; from < best_.timedActions.size(); from += run) {
        candidates.push_back(without(from, std::min(run, best_.timedActions.size() - from)));
      }
      if (!acceptFirst(candidates)) run /= 2;
    }
  }

  // Tries the object without each of its optional members.
  template <typename Set>
  void dropMembers(const ScenarioJson& object, const Set& set) {
    std::vector<std::string> names;
    for (const auto& [name, value] : object.items()) names.push_back(name);
    for (const std::string& name : names) {
      GeneratedScenario scenario = best_;
      set(scenario, name);
      static_cast<void>(acceptFirst({scenario}));
    }
  }

  void simplify() {
    for (std::size_t index = best_.before.size(); index-- > 0;) {
      GeneratedScenario scenario = best_;
      scenario.before.erase(scenario.before.begin() + static_cast<std::ptrdiff_t>(index));
      static_cast<void>(acceptFirst({scenario}));
    }
    dropMembers(best_.daemon,
                [](GeneratedScenario& scenario, const std::string& name) { scenario.daemon.erase(name); });
    dropMembers(best_.mac,
                [](GeneratedScenario& scenario, const std::string& name) { scenario.mac.erase(name); });
    if (!best_.settings) return;
    GeneratedScenario scenario = best_;
    scenario.settings.reset();
    if (acceptFirst({scenario}) || !best_.settings->is_object()) return;
    dropMembers(*best_.settings,
                [](GeneratedScenario& one, const std::string& name) { one.settings->erase(name); });
  }

  // Moves everything from timed action `index` on `seconds` earlier.
  [[nodiscard]] GeneratedScenario earlier(std::size_t index, std::int64_t seconds) const {
    GeneratedScenario scenario = best_;
    for (std::size_t moved = index; moved < scenario.timedActions.size(); ++moved) {
      scenario.timedActions[moved].at -= seconds;
    }
    scenario.seconds = scenario.timedActions.back().at + (best_.seconds - best_.timedActions.back().at);
    return scenario;
  }

  void shortenPauses() {
    std::int64_t before = 0;
    for (std::size_t index = 0; index < best_.timedActions.size(); ++index) {
      Candidates candidates;
      const std::int64_t pause = best_.timedActions[index].at - before;
      for (const std::int64_t shorter :
           {std::int64_t{60}, std::int64_t{900}, std::int64_t{7200}, pause / 2}) {
        if (shorter < pause && pause > 120) candidates.push_back(earlier(index, pause - shorter));
      }
      static_cast<void>(acceptFirst(candidates));
      if (index < best_.timedActions.size()) before = best_.timedActions[index].at;
    }
  }

  GeneratedScenario best_;
  const ShrinkBounds& bounds_;
  const TryOut& tryOut_;
  std::size_t tries_ = 0;
};

}  // namespace

Shrunk shrink(const GeneratedScenario& scenario, double seconds, const ShrinkBounds& bounds,
              const TryOut& tryOut) {
  return Shrinking(scenario, seconds, bounds, tryOut).run();
}

}  // namespace brisko::lab
