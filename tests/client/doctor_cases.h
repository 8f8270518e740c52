// tests/client/doctor_cases.h
// The evidence of a healthy Mac, and for every check the evidence of its failure and of a case just short of
// it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/doctor/checks.h"

namespace brisko::client::doctor_test {

constexpr double now = 1'772'352'000;
constexpr double hour = 3600;

// A Mac whose charge is held inside the band, and of which everything could be looked at.
[[nodiscard]] Evidence healthy();

void setSettings(Evidence& evidence, Json object);

struct Case {
  const char* id;    // of the check
  const char* name;  // what is special about this Mac
  std::function<void(Evidence&)> change;
  const char* text;  // part of the finding; null when nothing is found
};

constexpr const char* nothing = nullptr;

// In the order of the checks' groups.
[[nodiscard]] std::vector<Case> allCases();

}  // namespace brisko::client::doctor_test
