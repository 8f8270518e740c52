#include "sim/generate/verdict.h"

#include <stdexcept>

#include "sim/scenario/scenario.h"
#include "sim/scenario/strict_json.h"

namespace brisko::lab {

Verdict runGenerated(const GeneratedScenario& generated, const ShouldContinue& shouldContinue,
                     const LogKinds* logKinds) {
  Diagnostics diagnostics("the generated scenario");
  const auto scenario = readScenario(scenarioText(generated), diagnostics);
  if (!scenario) throw std::logic_error("the generated scenario is invalid: " + diagnostics.texts().front());
  std::optional<StateWatch> watch;
  if (logKinds != nullptr) watch.emplace();
  const Outcome outcome = runScenario(
      *scenario, diagnostics, {.stateWatch = watch ? &*watch : nullptr, .shouldContinue = shouldContinue});
  Verdict verdict{.result = outcome.violation   ? Result::failed
                            : outcome.cancelled ? Result::cancelled
                                                : Result::passed,
                  .begin = outcome.begin,
                  .seconds = outcome.seconds,
                  .log = outcome.log,
                  .timedAction = outcome.lastStep};
  if (watch) verdict.coverage = coverageOf(outcome, *watch, *logKinds);
  if (!outcome.violation) return verdict;
  verdict.invariant = outcome.violation->invariant.number;
  verdict.invariantText = numbered(outcome.violation->invariant);
  verdict.at = outcome.violation->at - outcome.begin;
  verdict.seen = outcome.violation->seen;
  return verdict;
}

Json jsonOf(const Verdict& verdict) {
  Json words = {{"result", static_cast<int>(verdict.result)},
                {"begin", verdict.begin},
                {"seconds", verdict.seconds},
                {"invariant", verdict.invariant},
                {"text", verdict.invariantText},
                {"at", verdict.at},
                {"seen", verdict.seen},
                {"log", verdict.log}};
  if (verdict.timedAction) words["action"] = *verdict.timedAction;
  return words;
}

Verdict verdictIn(const Json& words) {
  Verdict verdict{.result = static_cast<Result>(words.at("result").get<std::uint8_t>()),
                  .begin = words.at("begin"),
                  .seconds = words.at("seconds"),
                  .invariant = words.at("invariant"),
                  .invariantText = words.at("text"),
                  .at = words.at("at"),
                  .seen = words.at("seen"),
                  .log = words.at("log")};
  if (words.contains("action")) verdict.timedAction = words.at("action").get<std::size_t>();
  return verdict;
}

std::string lineOf(const Verdict& verdict) {
  Json words = jsonOf(verdict);
  if (verdict.coverage != Coverage{}) words["coverage"] = jsonOf(verdict.coverage);
  return words.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<Verdict> verdictOf(const std::string& line) {
  const Json words = Json::parse(line, nullptr, false);
  if (!words.is_object() || !words.contains("result")) return std::nullopt;
  Verdict verdict = verdictIn(words);
  if (words.contains("coverage")) verdict.coverage = coverageIn(words.at("coverage"));
  return verdict;
}

}  // namespace brisko::lab
