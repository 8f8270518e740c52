// client/doctor/diagnosis.h
// All checks over one evidence, and their results as text and as JSON.
#pragma once

#include <vector>

#include "base/json_file.h"
#include "client/doctor/checks.h"
#include "client/output.h"

namespace brisko::client {

struct CheckedResult {
  const Check* check;
  CheckResult result;
  [[nodiscard]] std::string cure() const { return result.cure.empty() ? check->cure : result.cure; }
};

struct Diagnosis {
  std::vector<CheckedResult> findings = {};  // the worst first
  std::vector<CheckedResult> notLookedAt = {};
  std::size_t clear = 0;  // checks that found nothing
};

[[nodiscard]] Diagnosis diagnose(const Evidence& evidence);

// For a terminal: each finding with its cure below, then what the other checks came to.
[[nodiscard]] std::string textOf(const Diagnosis& diagnosis, const OutputStyle& style);

// The object brisko.doctor/1.
[[nodiscard]] Json jsonOf(const Diagnosis& diagnosis);

// docs/troubleshooting.md, from the table of the checks.
[[nodiscard]] std::string troubleshootingPage();

}  // namespace brisko::client
