// A history as a page. How it looks and what its script does is checked in a browser (tests/browser).

#include "report/history_page.h"

#include <nlohmann/json.hpp>

#include "report/drawn_moments.h"
#include "report/xml.h"
#include "support/testing.h"

namespace brisko::lab::history_page_test {
namespace {

using namespace test;

std::size_t countOf(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

class HistoryPage : public InUtc {
 protected:
  HistoryPage() {
    picture.title = "Charge from 1 March 2026";
    picture.facts = "some samples";
    days(7);
  }
  // A sample each hour.
  void days(int count) {
    picture.moments.clear();
    for (int hour = 0; hour < count * 24; ++hour)
      picture.moments.push_back(heldAt(midnight + hour * 3600, 50 + hour % 40));
    summary = summariseHistory(picture.moments);
  }
  [[nodiscard]] HistoryView view() const { return {.picture = picture, .summary = summary}; }
  [[nodiscard]] std::string page() const { return historyPage(view()); }
  [[nodiscard]] nlohmann::json data() const {
    const std::string text = page();
    const std::string begin = "<script id=\"data\" type=\"application/json\">";
    const std::size_t from = text.find(begin) + begin.size();
    return nlohmann::json::parse(text.substr(from, text.find("</script>", from) - from), nullptr, false);
  }
  Picture picture;
  HistorySummary summary;
};

TEST_F(HistoryPage, showsCurvesForUpToTwoWeeksAndThenBars) {
  days(14);
  EXPECT_TRUE(showsCurves(summary));
  EXPECT_THAT(page(), HasSubstr("<path class=\"level\""));
  EXPECT_THAT(historyPicture(view()), HasSubstr("<path class=\"level\""));
  days(15);
  EXPECT_FALSE(showsCurves(summary));
  EXPECT_THAT(page(), Not(HasSubstr("<path class=\"level\"")));
  EXPECT_THAT(page(), HasSubstr("<path class=\"bar\""));
  EXPECT_THAT(historyPicture(view()), HasSubstr("<path class=\"bar\""));
}

TEST_F(HistoryPage, needsNothingFromElsewhere) {
  for (const int count : {7, 30}) {
    days(count);
    // The names of SVG alone.
    EXPECT_EQ(countOf(page(), "http"), countOf(page(), "xmlns=\"http://www.w3.org/2000/svg\"") +
                                           countOf(page(), "createElementNS(\"http"));
    for (const char* word : {"src=", "href=", "@import", "url(http", "fetch("})
      EXPECT_THAT(page(), Not(HasSubstr(word)));
  }
}

TEST_F(HistoryPage, hasThePictureInThreeSizesWithOneSelection) {
  EXPECT_EQ(countOf(page(), "<svg xmlns="), 3U);
  for (const char* name : {"narrow", "medium", "wide"})
    EXPECT_EQ(countOf(page(), std::string("class=\"picture large ") + name + "\""), 1U);
  EXPECT_EQ(countOf(page(), "id=\"discharge-pattern\""), 1U);
  EXPECT_THAT(data()["pictures"], SizeIs(3));
  EXPECT_EQ(data()["pictures"][2]["right"], 986);
  EXPECT_THAT(data()["moments"], SizeIs(7 * 24));
  days(30);
  EXPECT_THAT(data()["moments"], SizeIs(30));
  EXPECT_EQ(data()["names"][0], "Day");
}

TEST_F(HistoryPage, hasALegendForWhatItShows) {
  EXPECT_THAT(page(), HasSubstr("hold: charging is stopped"));
  days(30);
  EXPECT_THAT(page(), HasSubstr("charge of a day, from the lowest to the highest"));
  EXPECT_THAT(page(), Not(HasSubstr("hold: charging is stopped")));
}

TEST_F(HistoryPage, listsTheHoursByCharge) {
  EXPECT_EQ(countOf(page(), "<tr><th scope=\"row\">"), 11U);
  EXPECT_THAT(page(), HasSubstr("<th scope=\"row\">50–59 %</th><td>47 h</td><td>28.1 %</td>"));
}

TEST_F(HistoryPage, hasItsNotes) {
  picture.notes = {"8 lines were left out, being broken."};
  EXPECT_THAT(page(), HasSubstr("<p>8 lines were left out, being broken.</p>"));
  EXPECT_THAT(page(), HasSubstr("<p>Hours count only while something was recorded.</p>"));
}

TEST_F(HistoryPage, canBeToldFromOtherFiles) {
  EXPECT_LT(page().find(historyMark), 200U);
  EXPECT_LT(historyPicture(view()).find(historyMark), 200U);
  EXPECT_TRUE(textsAt(historyPicture(view()), "/s:svg/s:title")) << "no XML";
}

TEST_F(HistoryPage, escapesEveryText) {
  const std::string evil = "</script></title><script>alert(\"1\")</script>&'";
  picture.title = evil;
  picture.facts = evil;
  picture.notes = {evil};
  EXPECT_THAT(page(), Not(HasSubstr("<script>alert")));
  EXPECT_EQ(countOf(page(), "</script>"), 2U);
  EXPECT_FALSE(data().is_discarded());
}

}  // namespace
}  // namespace brisko::lab::history_page_test
