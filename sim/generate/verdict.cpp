#include "sim/generate/verdict.h"

#include <stdexcept>

#include "sim/scenario/scenario.h"
#include "sim/scenario/strict_json.h"

namespace brisko::lab {

Verdict judge(const Story& story, const GoesOn& goesOn) {
  Complaints complaints("the story");
  const auto scenario = readScenario(scenarioText(story), complaints);
  if (!scenario) throw std::logic_error("the story is no scenario: " + complaints.texts().front());
  const Outcome outcome = runScenario(*scenario, complaints, {.goesOn = goesOn});
  Verdict verdict{.went = outcome.violation   ? Went::wrong
                          : outcome.brokenOff ? Went::brokenOff
                                              : Went::well,
                  .begin = outcome.begin,
                  .seconds = outcome.seconds,
                  .log = outcome.log,
                  .happening = outcome.lastStep};
  if (!outcome.violation) return verdict;
  verdict.invariant = outcome.violation->invariant;
  verdict.at = outcome.violation->at - outcome.begin;
  verdict.seen = outcome.violation->seen;
  return verdict;
}

std::string lineOf(const Verdict& verdict) {
  Json words = {{"went", static_cast<int>(verdict.went)},
                {"begin", verdict.begin},
                {"seconds", verdict.seconds},
                {"invariant", verdict.invariant},
                {"at", verdict.at},
                {"seen", verdict.seen},
                {"log", verdict.log}};
  if (verdict.happening) words["happening"] = *verdict.happening;
  return words.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<Verdict> verdictOf(const std::string& line) {
  const Json words = Json::parse(line, nullptr, false);
  if (!words.is_object() || !words.contains("went")) return std::nullopt;
  Verdict verdict{.went = static_cast<Went>(words.at("went").get<std::uint8_t>()),
                  .begin = words.at("begin"),
                  .seconds = words.at("seconds"),
                  .invariant = words.at("invariant"),
                  .at = words.at("at"),
                  .seen = words.at("seen"),
                  .log = words.at("log")};
  if (words.contains("happening")) verdict.happening = words.at("happening").get<std::size_t>();
  return verdict;
}

}  // namespace brisko::lab
