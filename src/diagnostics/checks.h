// diagnostics/checks.h
// The self-test's checks of the rules: every check is counted, and a failed one records its label. Labels are
// French sentences that state the rule.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/settings.h"
#include "power/sleep.h"

namespace brisko {

inline int checks = 0;                     // so far
inline std::vector<std::string> failures;  // one text for each failed check, in order

void expect(bool ok, std::string_view label);

// A failed check shows both values after its label; a missing value as "nil".
void expectEqual(std::int64_t got, std::int64_t want, std::string_view label);
void expectEqual(const std::optional<std::int64_t>& got, const std::optional<std::int64_t>& want,
                 std::string_view label);
void expectEqual(std::string_view got, std::string_view want, std::string_view label);
void expectEqual(const SleepPlan& got, const SleepPlan& want, std::string_view label);
void expectEqual(const Settings& got, const Settings& want, std::string_view label);
// Seconds since 1970.
void expectEqualDates(double got, double want, std::string_view label);

// The result of all checks so far, for users; each line ends with a line feed.
[[nodiscard]] std::string summaryOfChecks();

}  // namespace brisko
