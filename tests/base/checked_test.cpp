#include "base/checked.h"

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <limits>

#include <unistd.h>

#include "support/child.h"
#include "support/testing.h"

namespace brisko::checked_test {
namespace {

using namespace test;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr double beyond = 9223372036854775808.0;  // 2^63

TEST(CheckedInteger, dropsTheFractionTowardZero) {
  EXPECT_EQ(checkedInteger(70.9), 70);
  EXPECT_EQ(checkedInteger(-3.7), -3);
  EXPECT_EQ(checkedInteger(0.99), 0);
  EXPECT_EQ(checkedInteger(-0.99), 0);
  EXPECT_EQ(checkedInteger(-0.0), 0);
  EXPECT_EQ(checkedInteger(5e-324), 0);
}

TEST(CheckedInteger, acceptsWhatFits64Bits) {
  EXPECT_EQ(checkedInteger(-beyond), smallest);
  EXPECT_EQ(checkedInteger(std::nextafter(beyond, 0)), 9223372036854774784);
}

TEST(CheckedInteger, endsTheProcessBeyond64Bits) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const double value : {beyond, std::nextafter(-beyond, -infinity), 9.3e18, 18446744073709551615.0,
                             1e300, -1e300, infinity, -infinity, std::nan("")}) {
    EXPECT_EXIT(static_cast<void>(checkedInteger(value)), KilledBySignal(SIGABRT), "^brisko-daemon: .*\n$")
        << value;
  }
}

TEST(FittingInteger, isMissingBeyond64Bits) {
  EXPECT_EQ(fittingInteger(-70.9), -70);
  EXPECT_EQ(fittingInteger(-beyond), smallest);
  EXPECT_EQ(fittingInteger(std::nextafter(beyond, 0)), 9223372036854774784);
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const double value : {beyond, std::nextafter(-beyond, -infinity), infinity, -infinity, std::nan("")}) {
    EXPECT_EQ(fittingInteger(value), std::nullopt) << value;
  }
}

TEST(CheckedProduct, acceptsWhatFits64Bits) {
  EXPECT_EQ(checkedProduct(153722867280912930, 60), 9223372036854775800);
  EXPECT_EQ(checkedProduct(-153722867280912930, 60), -9223372036854775800);
  EXPECT_EQ(checkedProduct(smallest, 1), smallest);
  EXPECT_EQ(checkedProduct(largest, -1), -largest);
  EXPECT_EQ(checkedProduct(smallest, 0), 0);
}

TEST(CheckedProduct, endsTheProcessOnOverflow) {
  EXPECT_EXIT(static_cast<void>(checkedProduct(153722867280912931, 60)), KilledBySignal(SIGABRT),
              "^brisko-daemon: .*\n$");
  EXPECT_EXIT(static_cast<void>(checkedProduct(-153722867280912931, 60)), KilledBySignal(SIGABRT),
              "^brisko-daemon: .*\n$");
  EXPECT_EXIT(static_cast<void>(checkedProduct(smallest, -1)), KilledBySignal(SIGABRT),
              "^brisko-daemon: .*\n$");
}

TEST(CheckedUnsigned32, accepts32BitsAndEndsTheProcessBeyond) {
  EXPECT_EQ(checkedUnsigned32(0), 0U);
  EXPECT_EQ(checkedUnsigned32(4'294'967'295), 4'294'967'295U);
  EXPECT_EXIT(static_cast<void>(checkedUnsigned32(4'294'967'296)), KilledBySignal(SIGABRT),
              "^brisko-daemon: .*\n$");
}

TEST(Fatal, writesOneLineAndEndsByAbort) {
  const auto ended = inChild([] { fatal("no way — out"); });
  EXPECT_EQ(ended.signal, SIGABRT);
  EXPECT_EQ(ended.errors, "brisko-daemon: no way — out\n");
  EXPECT_EQ(ended.output, "");
}

TEST(Fatal, runsNoExitHook) {
  const auto ended = inChild([] {
    std::atexit([] { tell("hook"); });
    static_cast<void>(checkedInteger(1e300));
  });
  EXPECT_EQ(ended.signal, SIGABRT);
  EXPECT_EQ(ended.output, "");
}

TEST(Fatal, cannotBeCaught) {
  const auto ended = inChild([] {
    try {
      static_cast<void>(checkedProduct(largest, 2));
    } catch (...) {
      tell("caught");
    }
    tell("continued");
  });
  EXPECT_EQ(ended.signal, SIGABRT);
  EXPECT_EQ(ended.output, "");
}

TEST(Fatal, endsByAbortWhateverTheStateOfStandardError) {
  const auto closed = inChild([] {
    ::close(STDERR_FILENO);
    fatal("unheard");
  });
  EXPECT_EQ(closed.signal, SIGABRT);

  const auto readerGone = inChild([] {
    int ends[2];
    if (::pipe(ends) != 0) return;
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[0]);
    fatal("unheard");
  });
  EXPECT_EQ(readerGone.signal, SIGABRT);
}

}  // namespace
}  // namespace brisko::checked_test
