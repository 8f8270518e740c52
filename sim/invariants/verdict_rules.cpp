// Rules about what the daemon logs: that it gives up, that a hold works or does not, and the summaries.
#include <charconv>
#include <optional>
#include <string>
#include <string_view>

#include "hardware/charge_gate.h"
#include "sim/invariants/preconditions.h"
#include "sim/invariants/rule.h"

namespace brisko::lab {
namespace {

constexpr std::string_view newState = "→ state: ";

// A full disk swallows the log. The ticks are still reported to the rules, but what the daemon logged about
// them is unknown.
bool isLogged(const Observation& observation) { return !observation.disturbances().diskIsFull; }

// The line without its time stamp.
std::string_view textOf(const std::string& line) {
  constexpr std::size_t stampWidth = 22;  // "2026-03-01T08:15:30Z" and two blanks
  return std::string_view(line).substr(std::min(line.size(), stampWidth));
}

// --- Giving up

constexpr Invariant givesUpLostCut{22,
                                   "A lost adapter cut is written again five times at most, and after the "
                                   "warning there is no discharge until it is re-armed."};

// The keys may do anything here; the rule is about the daemon's conclusions.
class GivesUp final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    if (!isLogged(observation)) {
      attempts_.reset();
      givenUp_ = false;
      return;
    }
    std::size_t line = 0;
    for (const TickRecord& tick : iteration.ticks) {
      for (; line < tick.linesTo; ++line) readLine(textOf(iteration.lines[line]), violated);
      if (!givenUp_ || !tick.complete || tick.sample.state != ChargeState::discharge) continue;
      violated(givesUpLostCut, "a tick ended in discharge, which had been given up and not re-armed");
    }
    for (; line < iteration.lines.size(); ++line) readLine(textOf(iteration.lines[line]), violated);
  }

 private:
  void readLine(std::string_view text, const Violated& violated) {
    if (text.starts_with(newState)) attempts_ = 0;
    if (text.starts_with("⚠️ forced discharge")) givenUp_ = true;
    if (text.starts_with("forced discharge re-armed")) givenUp_ = false;
    if (const auto attempt = attemptIn(text)) check(*attempt, violated);
  }

  static std::optional<int> attemptIn(std::string_view text) {
    constexpr std::string_view before = ", attempt ";
    const std::size_t at = text.find(before);
    if (at == std::string_view::npos || !text.starts_with("adapter cut released")) return std::nullopt;
    int attempt = 0;
    const char* digits = text.data() + at + before.size();
    std::from_chars(digits, text.data() + text.size(), attempt);
    return attempt;
  }

  void check(int attempt, const Violated& violated) {
    constexpr int most = 5;
    if (attempt > most || attempt != attempts_.value_or(attempt - 1) + 1) {
      violated(givesUpLostCut, "attempt " + std::to_string(attempt) + " came after attempt " +
                                   std::to_string(attempts_.value_or(0)));
    }
    attempts_ = attempt;
  }

  std::optional<int> attempts_ = 0;  // in the present discharge; none when the log missed it
  bool givenUp_ = false;
};

// --- The verdicts alternate

constexpr Invariant alternatingVerdicts{23, "The verdicts on a hold alternate."};

class VerdictsAlternate final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    if (!isLogged(observation)) last_.reset();
    if (iteration.lines.empty() || !gateHasKeys()) return;
    for (const std::string& line : iteration.lines) {
      const std::string_view text = textOf(line);
      const bool works = text.starts_with("limit verified: charging");
      if (!works && !text.starts_with("⚠️ the limit has no effect: charging")) continue;
      if (last_ == works)
        violated(alternatingVerdicts, "\"" + std::string(text) + "\" for the second time in a row");
      last_ = works;
    }
  }

 private:
  std::optional<bool> last_;
};

// --- Nothing is logged twice

constexpr Invariant nothingLoggedTwice{
    33, "A summary never repeats the one before, and a change of state never names the state before."};

class LogsNothingTwice final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    if (!isLogged(observation)) {
      summary_.clear();
      state_.clear();
    }
    for (const std::string& line : iteration.lines) {
      const std::string_view text = textOf(line);
      if (text.starts_with("cap ")) checkSummary(text, violated);
      if (gateHasKeys()) readLine(text, violated);
    }
  }

 private:
  void checkSummary(std::string_view text, const Violated& violated) {
    if (text == summary_) violated(nothingLoggedTwice, "\"" + summary_ + "\" twice in a row");
    summary_ = text;
  }

  void readLine(std::string_view text, const Violated& violated) {
    constexpr std::string_view found = ", state=";
    if (text.starts_with("brisko-daemon started")) {
      const std::size_t at = text.rfind(found);
      if (at != std::string_view::npos) state_ = text.substr(at + found.size());
    }
    // Handing everything back opens the gate without logging a state.
    if (text.starts_with("app gone") || text.starts_with("charge released")) state_.clear();
    if (!text.starts_with(newState)) return;
    text.remove_prefix(newState.size());
    if (text == state_)
      violated(nothingLoggedTwice, "\"→ state: " + state_ + "\", which was the state already");
    state_ = text;
  }

  std::string summary_;
  std::string state_;  // the last one logged; "" none
};

}  // namespace

void addVerdictRules(Rules& rules) {
  rules.push_back(std::make_unique<GivesUp>());
  rules.push_back(std::make_unique<VerdictsAlternate>());
  rules.push_back(std::make_unique<LogsNothingTwice>());
}

}  // namespace brisko::lab
