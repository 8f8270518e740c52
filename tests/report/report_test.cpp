// The page with the chart, the values and the log.

#include "report/report.h"

#include <nlohmann/json.hpp>

#include "report/drawn_moments.h"
#include "support/testing.h"

namespace brisko::lab::report_test {
namespace {

using namespace test;

std::string between(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t from = text.find(begin);
  if (from == std::string::npos) return "";
  const std::size_t until = text.find(end, from + begin.size());
  return text.substr(from + begin.size(), until - from - begin.size());
}

std::size_t countOf(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

class Report : public DrawnScenario {
 protected:
  Report() {
    add(0, 70);
    add(60, 80);
  }
  [[nodiscard]] std::string page() const { return reportPage(picture); }
  [[nodiscard]] nlohmann::json data() const {
    return nlohmann::json::parse(
        between(page(), "<script id=\"data\" type=\"application/json\">", "</script>"), nullptr, false);
  }
};

TEST_F(Report, isSelfContained) {
  EXPECT_EQ(countOf(page(), "http"), 1 + countOf(page(), "createElementNS(\"http"))
      << "only the SVG namespace";
  for (const char* word : {"src=", "href=", "@import", "url(http", "fetch("}) {
    EXPECT_THAT(page(), Not(HasSubstr(word)));
  }
}

TEST_F(Report, showsTheDescription) {
  EXPECT_THAT(page(), HasSubstr("<title>A scenario</title>"));
  EXPECT_THAT(page(), HasSubstr("<h1>A scenario</h1>"));
  EXPECT_THAT(page(), HasSubstr("MacBook Air 13, macOS 26. From 1 March 2026 08:00:00 to "));
}

TEST_F(Report, hasTheValuesOfEveryMomentInWords) {
  Moment& moment = add(90, 79.96);
  moment.shown = 80;
  moment.band = Bounds{.upper = 80, .lower = 75};
  moment.state = ChargeState::hold;
  moment.hardware = ChargeState::discharge;
  moment.currentMA = -350.4;
  moment.watts = 12.34;
  moment.temperatureC = 31.25;
  moment.light = Light::system;
  moment.supply = Supply::cut;
  moment.wakefulness = Wakefulness::darkWake;
  moment.occasion = Occasion::topUp;
  EXPECT_THAT(data()["names"], ElementsAre("Time", "Charge", "Gauge", "Band", "Daemon", "Hardware", "Current",
                                           "Power", "Temperature", "Light", "Adapter", "Mac", "Occasion"));
  EXPECT_THAT(data()["moments"][2]["values"],
              ElementsAre("1 March 2026 09:30:00", "80.0 %", "80 %", "75–80 %", "hold", "discharge",
                          "-350 mA", "12.3 W", "31.2 °C", "the system's", "cut", "dark wake", "Top Up"));
  EXPECT_THAT(data()["moments"][0]["values"],
              ElementsAre("1 March 2026 08:00:00", "70.0 %", "", "", "", "", "", "", "", "", "", "", ""));
  EXPECT_EQ(countOf(page(), "<dt>"), 13U);
}

TEST_F(Report, omitsUnknownValues) {
  EXPECT_THAT(data()["names"], ElementsAre("Time", "Charge"));
  EXPECT_THAT(page(), Not(HasSubstr("<dt>Light</dt>")));
}

TEST_F(Report, offersEveryMomentOnTheSlider) {
  EXPECT_THAT(page(), HasSubstr("<input id=\"moment\" type=\"range\" min=\"0\" max=\"1\""));
  EXPECT_THAT(data()["moments"], SizeIs(2));
  EXPECT_EQ(data()["from"], begin);
  EXPECT_EQ(data()["until"], begin + 3600);
}

TEST_F(Report, showsTheLogWithTheActions) {
  picture.log = {{begin, "08:00 first"},
                 {begin + 60, "08:01 ⚠️ second"},
                 {begin + 120, "2026-03-01T08:02:00Z  cap 80%"}};
  picture.events = {{begin + 60, "plug"}, {begin + 60, "wake"}, {begin + 3600, "sleep"}};
  const std::string time = std::to_string(static_cast<long long>(begin) + 60);
  EXPECT_EQ(between(page(), "<ol id=\"lines\">\n", "</ol>"),
            "<li class=\"line\" data-time=\"" + std::to_string(static_cast<long long>(begin)) +
                ".000\">08:00 first</li>\n"
                "<li class=\"event\" data-time=\"" +
                time +
                ".000\">▸ plug</li>\n"
                "<li class=\"event\" data-time=\"" +
                time +
                ".000\">▸ wake</li>\n"
                "<li class=\"warning\" data-time=\"" +
                time +
                ".000\">08:01 ⚠️ second</li>\n"
                "<li class=\"summary\" data-time=\"" +
                std::to_string(static_cast<long long>(begin) + 120) +
                ".000\">2026-03-01T08:02:00Z  cap 80%</li>\n"
                "<li class=\"event\" data-time=\"" +
                std::to_string(static_cast<long long>(begin) + 3600) + ".000\">▸ sleep</li>\n");
}

TEST_F(Report, hasNoLogListWithoutALog) {
  EXPECT_THAT(page(), Not(HasSubstr("<ol")));
  EXPECT_THAT(page(), HasSubstr("<main class=\"without-log\">"));
}

TEST_F(Report, thinsTheSummariesOfALongLogAndReportsIt) {
  const auto fill = [&](std::size_t count) {
    picture.log.clear();
    for (std::size_t index = 0; index < count; ++index) {
      picture.log.push_back({begin + static_cast<double>(index), "2026-03-01T08:00:00Z  cap 80%"});
    }
    picture.log[1000].text = "2026-03-01T08:16:40Z  → state: hold";
  };
  fill(3000);
  EXPECT_EQ(countOf(page(), "<li "), 3000U);
  EXPECT_THAT(page(), Not(HasSubstr("left out")));
  fill(3001);
  EXPECT_EQ(countOf(page(), "<li "), 5U);
  EXPECT_THAT(page(), HasSubstr("2996 lines are left out"));
}

TEST_F(Report, reportsWhenItsCurvesAreThinned) {
  EXPECT_THAT(page(), Not(HasSubstr("The curves go through")));
  for (int minute = 61; minute < 5000; ++minute) add(minute, 80);
  EXPECT_THAT(page(), HasSubstr("of 4941 moments"));
}

TEST_F(Report, escapesEveryText) {
  const std::string evil = "</script></title><script>alert(\"1\")</script>&'";
  picture.title = evil;
  picture.facts = evil;
  picture.log = {{begin, evil}};
  picture.events = {{begin, evil}};
  picture.failures = {evil};
  picture.notes = {evil};
  EXPECT_THAT(page(), Not(HasSubstr("<script>alert")));
  EXPECT_EQ(countOf(page(), "</script>"), 2U);
  EXPECT_FALSE(data().is_discarded());
}

TEST_F(Report, showsWhatFailed) {
  EXPECT_THAT(page(), Not(HasSubstr("<section class=\"failures\">")));
  picture.failures = {"  /timeline/0/see at …\n    expected: true\n    seen:     false"};
  EXPECT_THAT(page(),
              HasSubstr("<pre>  /timeline/0/see at …\n    expected: true\n    seen:     false</pre>"));
}

}  // namespace
}  // namespace brisko::lab::report_test
