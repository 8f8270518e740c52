// The same days on both platforms that run in virtual time.

#include <algorithm>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process/program.h"

namespace brisko {
namespace {

using test::Finished;
using test::run;
using ::testing::HasSubstr;

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

class PlatformEquivalence : public ::testing::TestWithParam<std::tuple<std::string, std::string>> {};

TEST_P(PlatformEquivalence, leaveTheSameTracesOnBothPlatforms) {
  const auto& [gate, number] = GetParam();
  const Finished simulated = run("brisko-equivalence-simulated", {gate, number});
  const Finished real = run("brisko-equivalence-macos", {gate, number});
  ASSERT_EQ(simulated.status, 0) << simulated.errors;
  ASSERT_EQ(real.status, 0) << real.errors;
  EXPECT_THAT(simulated.output, HasSubstr("brisko-daemon started")) << "the days are empty";

  // Told by its first line: the whole of it is some megabytes.
  const auto one = linesOf(simulated.output);
  const auto other = linesOf(real.output);
  const auto [differs, there] = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
  EXPECT_TRUE(simulated.output == real.output)
      << "line " << (differs - one.begin()) + 1 << " of " << one.size() << " and " << other.size()
      << ":\nsimulated: " << (differs == one.end() ? "(ended)" : *differs)
      << "\nmacos:     " << (there == other.end() ? "(ended)" : *there);
}

INSTANTIATE_TEST_SUITE_P(Numbers, PlatformEquivalence,
                         ::testing::Combine(::testing::Values("chte", "firmware", "native"),
                                            ::testing::Values("1", "2")));

}  // namespace
}  // namespace brisko
