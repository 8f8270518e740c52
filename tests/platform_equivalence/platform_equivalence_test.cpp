// The same days on both platforms that run in virtual time.

#include <algorithm>
#include <string>
#include <tuple>

#include "process/program.h"
#include "sim/process/log_lines.h"
#include "support/testing.h"

namespace brisko::platform_equivalence_test {
namespace {

using namespace test;

class PlatformEquivalence : public ::testing::TestWithParam<std::tuple<std::string, std::string>> {};

TEST_P(PlatformEquivalence, leavesTheSameTracesOnBothPlatforms) {
  const auto& [gate, seed] = GetParam();
  const Finished simulated = run("brisko-equivalence-simulated", {gate, seed});
  const Finished real = run("brisko-equivalence-macos", {gate, seed});
  ASSERT_EQ(simulated.status, 0) << simulated.errors;
  ASSERT_EQ(real.status, 0) << real.errors;
  EXPECT_THAT(simulated.output, HasSubstr("brisko-daemon started")) << "the days are empty";

  // Reports only the first line that differs, because the output has some megabytes.
  const auto one = sim::linesOf(simulated.output);
  const auto other = sim::linesOf(real.output);
  const auto [differs, there] = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
  EXPECT_TRUE(simulated.output == real.output)
      << "line " << (differs - one.begin()) + 1 << " of " << one.size() << " and " << other.size()
      << ":\nsimulated: " << (differs == one.end() ? "(ended)" : *differs)
      << "\nmacos:     " << (there == other.end() ? "(ended)" : *there);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PlatformEquivalence,
                         ::testing::Combine(::testing::Values("chte", "firmware", "native"),
                                            ::testing::Values("1", "2")));

}  // namespace
}  // namespace brisko::platform_equivalence_test
