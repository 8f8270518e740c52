// sim/what_if/agreement.h
// How far the days, played as they were set, agree with their history, and so how far what is played with
// other settings can be trusted.
#pragma once

#include <cstdint>
#include <string>

#include "sim/replay/trace.h"
#include "sim/what_if/figures.h"

namespace brisko::lab {

enum class Trust : std::uint8_t { good, fair, poor };

struct Agreement {
  double withinThree = 1;  // share of the time in which the charges are at most three points apart
  double meanApart = 0;    // points
  double sameState = 1;    // share of the time with the same charge state
};

// Both have moments. The time in which the history shows no daemon is not compared.
[[nodiscard]] Agreement agreementOf(const Trace& history, const std::vector<PlayedMoment>& played);

// Good from 95 % of the time on, fair from 80 % on.
[[nodiscard]] Trust trustIn(const Agreement& agreement);
[[nodiscard]] const char* trustWord(Trust trust);

// How far they agree, and how far to trust what follows from it; two sentences.
[[nodiscard]] std::string agreementText(const Agreement& agreement);

}  // namespace brisko::lab
