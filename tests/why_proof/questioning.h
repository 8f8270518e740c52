// tests/why_proof/questioning.h
// Runs the generated scenario of a seed and asks brisko why at random moments, of the virtual Mac's own
// files. After the days of the questions it runs on, so that the last answers can be judged too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/generate/scenario_generator.h"
#include "why_proof/judge.h"

namespace brisko::proof {

struct QuestioningOptions {
  std::int64_t days = 4;  // in which questions are asked
  std::int64_t questionsADay = 40;
  lab::Faults faults = lab::Faults::none;
};

struct Questioning {
  double begin = 0;                      // machine time
  std::vector<Question> questions = {};  // only while the Mac is awake: nobody asks a Mac that sleeps
  std::vector<std::size_t> firstObservation = {};  // for each question, the first one from then on
  std::vector<Observation> observations = {};
  std::vector<Event> events = {};
  std::string failure = {};  // of the scenario itself; empty when it was run to its end
};

[[nodiscard]] Questioning questionSeed(std::uint64_t seed, const QuestioningOptions& options);

}  // namespace brisko::proof
