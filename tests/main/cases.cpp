// Tests with every outcome, for the main function that runs them.

#include <csignal>

#include <gtest/gtest.h>

namespace brisko {
namespace {

int gTestsSoFar = 0;

TEST(Outcomes, passInAProcessOfTheirOwn) { EXPECT_EQ(gTestsSoFar++, 0); }

TEST(Outcomes, passAgain) { EXPECT_EQ(gTestsSoFar++, 0); }

TEST(Outcomes, fail) { FAIL() << "as it was made to"; }

TEST(Outcomes, end) { std::raise(SIGSEGV); }

TEST(Outcomes, areSkipped) { GTEST_SKIP(); }

}  // namespace
}  // namespace brisko
