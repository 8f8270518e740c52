#include "why_proof/tally.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace brisko::proof {
namespace {

using client::Reason;

constexpr double judgedGoal = 0.60;
constexpr double namedGoal = 0.80;
constexpr double closeError = 0.15;
constexpr double closeGoal = 0.50;
constexpr double farError = 0.40;
constexpr double farGoal = 0.90;
constexpr double enoughSamples = 600;  // seconds

double shareOf(std::size_t part, std::size_t whole) {
  return whole == 0 ? 1 : static_cast<double>(part) / static_cast<double>(whole);
}

std::string percentText(double share) { return std::to_string(std::lround(share * 100)) + " %"; }

// A row of the table.
std::string row(const std::string& name, const std::string& answers, const std::string& kept,
                const std::string& broken, const std::string& notJudged) {
  char text[160];
  static_cast<void>(std::snprintf(text, sizeof text, "%-20s %8s %8s %8s %11s\n", name.c_str(),
                                  answers.c_str(), kept.c_str(), broken.c_str(), notJudged.c_str()));
  return text;
}

// "atLimit 95, charging 75", the most frequent first.
std::string listOf(const std::map<std::string, std::size_t>& counts) {
  std::vector<std::pair<std::size_t, std::string>> sorted;
  for (const auto& [code, count] : counts) sorted.emplace_back(count, code);
  std::sort(sorted.rbegin(), sorted.rend());
  std::string text;
  for (const auto& [count, code] : sorted)
    text += (text.empty() ? "" : ", ") + code + " " + std::to_string(count);
  return text;
}

std::size_t sumOf(const std::map<std::string, std::size_t>& counts) {
  std::size_t sum = 0;
  for (const auto& [code, count] : counts) sum += count;
  return sum;
}

bool isCharging(Reason reason) {
  return reason == Reason::charging || reason == Reason::fullOnce || reason == Reason::calibrationFill ||
         reason == Reason::calibrationRefill;
}

std::string timeText(double seconds) {
  const auto minutes = static_cast<long>(seconds / 60);
  char text[60];
  static_cast<void>(std::snprintf(text, sizeof text, "day %ld, %02ld:%02ld", minutes / 1440,
                                  minutes / 60 % 24, minutes % 60));
  return text;
}

}  // namespace

double Tally::Errors::within(double share) const {
  const auto count =
      std::count_if(shares.begin(), shares.end(), [share](double error) { return error <= share; });
  return shareOf(static_cast<std::size_t>(count), shares.size());
}

std::string Tally::Errors::text() const {
  if (shares.empty()) return "none";
  std::vector<double> sorted = shares;
  std::sort(sorted.begin(), sorted.end());
  const auto at = [&](double share) {
    return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
  };
  return std::to_string(sorted.size()) + ": " + percentText(within(closeError)) + " within 15 %, " +
         percentText(within(farError)) + " within 40 % of the time that it took (half within " +
         percentText(at(0.5)) + ", nine tenths within " + percentText(at(0.9)) + ")";
}

void Tally::addMinutes(const Question& question, const Verdict& verdict) {
  const client::Until& until = *question.answer.until;
  if (!isCharging(question.answer.reason) || until.kind != client::UntilKind::percent) return;
  if (question.samplesSpan < enoughSamples) return;
  ++sampled_;
  if (!until.aboutMinutes) return;
  ++sampledNamed_;
  if (verdict.outcome != Outcome::kept || verdict.seconds <= 0) return;
  const double error =
      std::abs(static_cast<double>(*until.aboutMinutes) * 60 - verdict.seconds) / verdict.seconds;
  kept_.shares.push_back(error);
  if (verdict.isUndisturbed) undisturbed_.shares.push_back(error);
}

void Tally::add(std::uint64_t seed, double begin, const Question& question, const Verdict& verdict) {
  const std::string code = codeOf(question.answer.reason);
  for (Counts* counts : {&all_, &byReason_[code]}) {
    ++counts->answers;
    counts->kept += verdict.outcome == Outcome::kept ? 1 : 0;
    counts->broken += verdict.outcome == Outcome::broken ? 1 : 0;
    counts->notJudged += verdict.outcome == Outcome::notJudged ? 1 : 0;
  }
  underFaults_ += question.faultIsInEffect ? 1 : 0;
  if (question.answer.until) {
    ++withUntil_;
    addMinutes(question, verdict);
    if (verdict.outcome == Outcome::notJudged) ++notJudged_[verdict.reason][code];
  } else {
    ++withoutUntil_[code];
  }
  if (verdict.outcome == Outcome::broken) {
    broken_.push_back("seed " + std::to_string(seed) + ", " + timeText(question.at - begin) + ": \"" +
                      question.answer.text + "\" " + verdict.reason);
  }
}

double Tally::judgedShare() const { return shareOf(all_.kept + all_.broken, withUntil_); }

double Tally::namedShare() const { return shareOf(sampledNamed_, sampled_); }

std::string Tally::text() const {
  const auto rowOf = [](const std::string& name, const Counts& counts) {
    return row(name, std::to_string(counts.answers), std::to_string(counts.kept),
               std::to_string(counts.broken), std::to_string(counts.notJudged));
  };
  std::string text = row("", "answers", "kept", "broken", "not judged");
  for (const auto& [name, counts] : byReason_) text += rowOf(name, counts);
  text += rowOf("all", all_);
  text += "\nNot judged, because\n";
  for (const auto& [event, counts] : notJudged_) {
    text += row("", std::to_string(sumOf(counts)), "", "", "").substr(0, 29) + "  " + event + "\n";
    text += std::string(31, ' ') + listOf(counts) + "\n";
  }
  text += "\nName what ends them: " + std::to_string(withUntil_) + ", of which " +
          percentText(judgedShare()) + " were judged\n";
  text += "Name nothing: " + (withoutUntil_.empty() ? "none" : listOf(withoutUntil_)) + "\n";
  text +=
      "Given while a fault was in effect, so that they cannot be broken: " + std::to_string(underFaults_) +
      "\n";
  text += "While charging with ten minutes of samples: " + std::to_string(sampled_) + ", of which " +
          percentText(namedShare()) + " name minutes\n";
  text += "How far these were off, when nothing happened until then: " + undisturbed_.text() + "\n";
  text += "… and whatever happened: " + kept_.text() + "\n";
  for (const std::string& broken : broken_) text += "BROKEN  " + broken + "\n";
  return text;
}

std::vector<std::string> Tally::missedGoals() const {
  std::vector<std::string> missed;
  const auto expect = [&missed](bool reached, const std::string& goal) {
    if (!reached) missed.push_back(goal);
  };
  expect(all_.answers > 0, "there is an answer");
  expect(all_.broken == 0, "no answer is broken");
  expect(judgedShare() >= judgedGoal, "at least 60 % of the answers that name what ends them are judged");
  expect(namedShare() >= namedGoal,
         "at least 80 % of the answers while charging with ten minutes of samples name minutes");
  expect(!undisturbed_.shares.empty(), "minutes that were named can be compared");
  expect(undisturbed_.within(closeError) >= closeGoal, "half of the minutes are within 15 %");
  expect(undisturbed_.within(farError) >= farGoal, "nine tenths of the minutes are within 40 %");
  return missed;
}

}  // namespace brisko::proof
