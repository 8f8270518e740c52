// The log's lines on standard output when another thread logs, as for a main thread that is stuck.

#include "base/log_output.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "base/files.h"
#include "fakes/system.h"
#include "support/child.h"

namespace brisko::log_output_test {
namespace {

TEST(LogOutputOfTwoThreads, dropsALineThatComesInTheMiddleOfAnother) {
  const std::string lengthy = std::string(6000, 'a') + "\n";  // more than a pipe accepts in one write
  const auto ended = test::inChild([&lengthy] {
    const int results = ::dup(STDOUT_FILENO);
    int ends[2];
    if (::pipe(ends) != 0) ::_exit(1);
    ::dup2(ends[1], STDOUT_FILENO);
    fakes::gBeforeWrite = [piece = 0](std::string_view) mutable {
      if (++piece == 2) std::thread([] { offerLogLine("left out\n"); }).join();
    };
    offerLogLine(lengthy);
    offerLogLine("next\n");
    std::string text(10'000, '\0');
    text.resize(static_cast<std::size_t>(::read(ends[0], text.data(), text.size())));
    static_cast<void>(writeAll(results, text));
  });
  EXPECT_EQ(ended.output, lengthy + "next\n");
}

}  // namespace
}  // namespace brisko::log_output_test
