// Cutting a story down to what matters.

#include "sim/generate/shrink.h"

#include <algorithm>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace brisko::lab {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Le;

// A story of a hundred happenings, an hour apart, named by their numbers.
Story longStory() {
  Story story{.sentence = "Long.", .seconds = 101 * 3600};
  story.mac = {{"model", "pro14"}, {"percent", 42}};
  story.daemon = {{"arguments", {"--limit", "70"}}};
  story.settings = {{"limit", 80}, {"discharge", true}};
  story.before = {"light-taken"};
  for (int number = 1; number <= 100; ++number)
    story.happenings.push_back({number * 3600, std::to_string(number)});
  return story;
}

std::vector<std::string> namesIn(const Story& story) {
  std::vector<std::string> names;
  for (const Happening& happening : story.happenings) names.push_back(happening.action.get<std::string>());
  return names;
}

bool has(const Story& story, const std::string& name) {
  const auto names = namesIn(story);
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::int64_t timeOf(const Story& story, const std::string& name) {
  for (const Happening& happening : story.happenings) {
    if (happening.action == name) return happening.at;
  }
  return -1;
}

// Goes wrong at the time that `when` tells, below 0 not at all.
using When = std::function<double(const Story&)>;

TryOut tryOutOf(const When& when, std::size_t* most = nullptr) {
  return [when, most](const std::vector<Story>& candidates) -> std::optional<StillWrong> {
    if (most != nullptr) *most = std::max(*most, candidates.size());
    for (std::size_t index = 0; index < candidates.size(); ++index) {
      const double seconds = when(candidates[index]);
      if (seconds >= 0 && seconds <= static_cast<double>(candidates[index].seconds))
        return StillWrong{index, seconds};
    }
    return std::nullopt;
  };
}

Shrunk shrunkWith(const When& when, const ShrinkBounds& bounds = {}) {
  const Story story = longStory();
  return shrink(story, when(story), bounds, tryOutOf(when));
}

TEST(Shrinking, leavesTheFewThatMatterInTheirOrder) {
  const Shrunk shrunk = shrunkWith([](const Story& story) {
    return has(story, "17") && has(story, "58") ? static_cast<double>(timeOf(story, "58")) + 5 : -1.0;
  });
  EXPECT_THAT(namesIn(shrunk.story), ElementsAre("17", "58"));
  EXPECT_LT(shrunk.tries, 200U);
}

TEST(Shrinking, leavesNothingWhenNothingMatters) {
  const Shrunk shrunk = shrunkWith([](const Story&) { return 10.0; });
  EXPECT_THAT(namesIn(shrunk.story), IsEmpty());
  EXPECT_THAT(shrunk.story.seconds, Le(80));
}

TEST(Shrinking, endsSoonAfterItWentWrong) {
  const Shrunk shrunk = shrunkWith([](const Story& story) {
    return has(story, "30") ? static_cast<double>(timeOf(story, "30")) + 7200 : -1.0;
  });
  EXPECT_EQ(namesIn(shrunk.story), std::vector<std::string>{"30"});
  EXPECT_LE(shrunk.story.seconds, timeOf(shrunk.story, "30") + 7300);
}

TEST(Shrinking, keepsTheTimesThatMatter) {
  // Two hours have to lie between the two.
  const Shrunk shrunk = shrunkWith([](const Story& story) {
    const std::int64_t pause = timeOf(story, "40") - timeOf(story, "20");
    return has(story, "20") && has(story, "40") && pause >= 7200 ? static_cast<double>(timeOf(story, "40"))
                                                                 : -1.0;
  });
  EXPECT_THAT(namesIn(shrunk.story), ElementsAre("20", "40"));
  EXPECT_EQ(timeOf(shrunk.story, "20"), 60);
  EXPECT_EQ(timeOf(shrunk.story, "40"), 60 + 7200);
}

TEST(Shrinking, takesTheMacAndTheSettingsBackToWhatIsUsual) {
  const Shrunk shrunk = shrunkWith([](const Story& story) {
    return story.settings && story.settings->contains("discharge") ? 100.0 : -1.0;
  });
  EXPECT_EQ(shrunk.story.settings, (StoryJson{{"discharge", true}}));
  EXPECT_TRUE(shrunk.story.mac.empty());
  EXPECT_TRUE(shrunk.story.daemon.empty());
  EXPECT_TRUE(shrunk.story.before.empty());
}

TEST(Shrinking, goesOnlyOnWithWhatStillGoesWrong) {
  const auto when = [](const Story& story) { return story.happenings.size() % 7 == 2 ? 360000.0 : -1.0; };
  const Story story = longStory();
  const Shrunk shrunk = shrink(story, 360000.0, {}, tryOutOf(when));
  EXPECT_EQ(shrunk.story.happenings.size() % 7, 2U);
}

TEST(Shrinking, isBoundedInItsTries) {
  const Shrunk shrunk =
      shrunkWith([](const Story& story) { return story.happenings.size() > 49 ? 360000.0 : -1.0; },
                 {.tries = 20, .atOnce = 1});
  EXPECT_LE(shrunk.tries, 20U);
  EXPECT_GT(shrunk.story.happenings.size(), 49U);
}

TEST(Shrinking, triesOutNoMoreAtOnceThanItMay) {
  std::size_t most = 0;
  const When when = [](const Story& story) { return has(story, "50") ? 180001.0 : -1.0; };
  static_cast<void>(shrink(longStory(), 180001.0, {.atOnce = 3}, tryOutOf(when, &most)));
  EXPECT_EQ(most, 3U);
}

}  // namespace
}  // namespace brisko::lab
