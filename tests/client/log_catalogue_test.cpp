#include "client/log_catalogue.h"

#include <algorithm>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/log_reader.h"

namespace brisko::client::log_catalogue_test {
namespace {

using ::testing::Pair;

std::string idOf(std::string_view message) {
  const auto match = findEntry(message);
  return match ? match->entry->id : "";
}

TEST(LogCatalogue, hasAnIdAndAnExplanationForEveryEntry) {
  std::set<std::string> ids;
  for (const LogEntry& entry : logCatalogue()) {
    EXPECT_TRUE(ids.insert(entry.id).second) << entry.id;
    EXPECT_FALSE(entry.id.empty());
    EXPECT_FALSE(entry.explanation.empty()) << entry.id;
    EXPECT_EQ(entry.id.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"), std::string::npos)
        << entry.id;
  }
  EXPECT_GT(ids.size(), 55U);
}

TEST(LogCatalogue, recognisesTheLinesThatResembleEachOther) {
  EXPECT_EQ(idOf("→ state: hold"), "state");
  EXPECT_EQ(idOf("→ state: hold (macOS limit 80%)"), "state-macos-limit");
  EXPECT_EQ(idOf("→ state: elsewhere"), "");
  EXPECT_EQ(idOf("limit verified: charging really does stop"), "limit-verified-charging-really-does-stop");
  EXPECT_EQ(idOf("limit verified: macOS holds 80% (bfG0)"), "limit-verified-macos-holds-bfg0");
  EXPECT_EQ(idOf("limit verified: macOS holds no limit (bfG0)"), "limit-verified-macos-holds-bfg0");
}

TEST(LogCatalogue, namesTheFieldsOfASummary) {
  const auto match = findEntry("cap 80%+discharge+HOT  batt 85%  31.5°C  ac  state=hold  LED=green");
  ASSERT_TRUE(match);
  EXPECT_EQ(match->entry->id, "cap-batt-state-led");
  EXPECT_THAT(match->fields, ::testing::Contains(Pair("charge", "85")));
  EXPECT_THAT(match->fields, ::testing::Contains(Pair("temperature", "31.5°C")));
  EXPECT_THAT(match->fields, ::testing::Contains(Pair("limit% or off", "80%")));
  EXPECT_TRUE(findEntry("cap off  cal=drain→15%  batt 9%  ?  battery  state=discharge  LED=blink"));
}

TEST(LogCatalogue, translatesFrenchLinesWithTheirValues) {
  const std::string french = "veille à 78% — grille fermée pour la nuit (plage 75–80%)";
  const auto match = findEntry(french);
  ASSERT_TRUE(match);
  EXPECT_EQ(englishText(*match, french), "sleep at 78% — charging is stopped for the night (band 75–80%)");
  EXPECT_EQ(englishText(*findEntry("stats reset"), "stats reset"), "stats reset");
}

TEST(LogCatalogue, translatesEveryLineThatIsNotInEnglish) {
  for (const LogEntry& entry : logCatalogue()) {
    const std::string text = entry.parts.front().texts.empty() ? "" : entry.parts.front().texts.front();
    const bool french = text.find("réveil") != std::string::npos ||
                        text.find("veille") != std::string::npos || text.find("système") != std::string::npos;
    EXPECT_EQ(!entry.english.empty(), french) << text;
  }
}

TEST(LogCatalogue, recognisesLinesThatAskForAttention) {
  EXPECT_EQ(
      findEntry("⚠️ forced discharge has no effect: the adapter cut will not stay written — holding "
                "the charge "
                "instead")
          ->entry->severity,
      Severity::warning);
  EXPECT_EQ(findEntry("⛔️ Could not open AppleSMC.")->entry->severity, Severity::error);
  EXPECT_EQ(findEntry("stats reset")->entry->severity, Severity::info);
}

TEST(LogReader, readsTheTimeOfALine) {
  const auto line = logLineIn("2026-03-01T08:15:30Z  → state: hold");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->time, 1772352930);
  EXPECT_EQ(line->message, "→ state: hold");
  for (const char* text :
       {"", "2026-03-01T08:15:30Z", "2026-02-30T08:15:30Z  x", "2026-03-01 08:15:30Z  x", "brisko"})
    EXPECT_FALSE(logLineIn(text)) << text;
}

TEST(LogReader, hidesSummariesThatDifferInChargeAndTemperatureOnly) {
  SummaryFilter filter;
  const auto shows = [&filter](const std::string& message) { return filter.shows(*findEntry(message)); };
  EXPECT_TRUE(shows("cap 80%  batt 70%  30.0°C  ac  state=allow  LED=blink"));
  EXPECT_FALSE(shows("cap 80%  batt 71%  30.5°C  ac  state=allow  LED=blink"));
  EXPECT_TRUE(shows("→ state: hold"));
  EXPECT_TRUE(shows("cap 80%  batt 80%  30.5°C  ac  state=hold  LED=green"));
}

}  // namespace
}  // namespace brisko::client::log_catalogue_test
