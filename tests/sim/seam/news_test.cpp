#include "sim/seam/news.h"

#include "support/child.h"
#include "support/testing.h"

namespace brisko::virtual_mac::news_test {
namespace {

TEST(News, areAlwaysExpectedByAProcessThatIsNotAlone) {
  NewsReader reader;
  for (int time = 0; time < 3; ++time) EXPECT_TRUE(reader.mayHaveNews());
}

TEST(News, areExpectedByOneThatIsAloneOnceForEachReasonAndNowAndThen) {
  const auto ended = test::inChild([] {
    beAlone();
    NewsReader reader;
    NewsReader other;
    test::tell(reader.mayHaveNews() ? "1" : "0");
    test::tell(reader.mayHaveNews() ? "1" : "0");
    test::tell(other.mayHaveNews() ? "1" : "0");
    expectNews();
    expectNews();
    for (int time = 0; time < 2; ++time) test::tell(reader.mayHaveNews() ? "1" : "0");
    int asked = 0;
    while (!reader.mayHaveNews() && asked < 1000) ++asked;
    test::tell(" after " + std::to_string(asked));
  });
  EXPECT_EQ(ended.output, "10110 after 254");
}

}  // namespace
}  // namespace brisko::virtual_mac::news_test
