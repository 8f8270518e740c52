#include "client/doctor/diagnosis.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

namespace brisko::client {
namespace {

const char* nameOf(Severity severity) {
  switch (severity) {
    case Severity::error:
      return "error";
    case Severity::warning:
      return "warning";
    case Severity::info:
      break;
  }
  return "info";
}

std::string markOf(Severity severity) {
  switch (severity) {
    case Severity::error:
      return "⛔️";
    case Severity::warning:
      return "⚠️";
    case Severity::info:
      break;
  }
  return "·";
}

std::string countText(std::size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// "D05, D30 (needs root)", each reason once.
std::string notLookedAtText(const std::vector<CheckedResult>& results) {
  std::map<std::string, std::string> idsByReason;
  for (const CheckedResult& each : results) {
    std::string& ids = idsByReason[each.result.text];
    ids += (ids.empty() ? "" : ", ") + std::string(each.check->id);
  }
  std::string text;
  for (const auto& [reason, ids] : idsByReason) {
    text += text.empty() ? "" : "; ";
    text.append(ids).append(" (").append(reason).append(")");
  }
  return text;
}

}  // namespace

Diagnosis diagnose(const Evidence& evidence) {
  Diagnosis diagnosis;
  for (const Check& check : checks()) {
    CheckedResult checked{&check, check.run(evidence)};
    switch (checked.result.outcome) {
      case Outcome::clear:
        ++diagnosis.clear;
        break;
      case Outcome::found:
        diagnosis.findings.push_back(std::move(checked));
        break;
      case Outcome::notLookedAt:
        diagnosis.notLookedAt.push_back(std::move(checked));
        break;
    }
  }
  std::stable_sort(diagnosis.findings.begin(), diagnosis.findings.end(),
                   [](const CheckedResult& left, const CheckedResult& right) {
                     return left.check->severity > right.check->severity;
                   });
  return diagnosis;
}

std::string textOf(const Diagnosis& diagnosis, const OutputStyle& style) {
  constexpr std::size_t cureIndent = 5;
  std::string text;
  for (const CheckedResult& each : diagnosis.findings) {
    std::string line = wrapped(markOf(each.check->severity) + " " + each.check->id + "  " + each.result.text,
                               style.width, cureIndent);
    if (style.color && each.check->severity != Severity::info) line = highlighted(line);
    text += line;
    text +=
        "\n" + wrapped(std::string(cureIndent, ' ') + "→ " + each.cure(), style.width, cureIndent + 2) + "\n";
  }
  if (diagnosis.findings.empty()) text += "Nothing was found.\n";
  text += countText(diagnosis.clear, "check") + " found nothing.\n";
  if (diagnosis.notLookedAt.empty()) return text;
  return text + wrapped("Not looked at: " + notLookedAtText(diagnosis.notLookedAt) + ".", style.width) + "\n";
}

Json jsonOf(const Diagnosis& diagnosis) {
  Json findings = Json::array();
  for (const CheckedResult& each : diagnosis.findings) {
    findings.push_back({{"id", each.check->id},
                        {"title", each.check->title},
                        {"severity", nameOf(each.check->severity)},
                        {"text", each.result.text},
                        {"cure", each.cure()},
                        {"fix", each.check->fix != Fix::none}});
  }
  Json omitted = Json::array();
  for (const CheckedResult& each : diagnosis.notLookedAt)
    omitted.push_back({{"id", each.check->id}, {"why", each.result.text}});
  return {{"schema", "brisko.doctor/1"},
          {"findings", std::move(findings)},
          {"notLookedAt", std::move(omitted)},
          {"clear", diagnosis.clear}};
}

std::string troubleshootingPage() {
  std::vector<std::string> groups;
  for (const Check& check : checks()) {
    if (std::find(groups.begin(), groups.end(), check.group) == groups.end())
      groups.emplace_back(check.group);
  }
  std::string text =
      "# Troubleshooting\n\n"
      "`brisko doctor` makes all these checks in at most three seconds, and prints what it found with the "
      "cure. With\n"
      "`sudo` it can check more. This page lists the checks by symptom; `scripts/troubleshooting.sh` makes "
      "it from "
      "their table.\n";
  for (const std::string& group : groups) {
    text += "\n## " + group + "\n\n| check | symptom | seen by | cause | cure |\n|---|---|---|---|---|\n";
    for (const Check& check : checks()) {
      if (check.group != group) continue;
      text += std::string("| ") + check.id + " " + check.title + " | " + check.symptom + " | " +
              check.seenBy + " | " + check.cause + " | " + check.cure + " |\n";
    }
  }
  return text;
}

}  // namespace brisko::client
