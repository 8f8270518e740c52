// Made-up stories: the same everywhere, valid, and with everything in them that can happen.

#include "sim/generate/random_story.h"

#include <algorithm>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/machine/faults.h"
#include "sim/scenario/scenario.h"

namespace brisko::lab {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::StartsWith;

std::string textOf(std::uint64_t seed, std::int64_t days, Faults faults) {
  return scenarioText(randomStory(seed, days, faults));
}

// FNV-1a
std::uint64_t hashOf(const std::string& text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  return hash;
}

std::string nameOfAction(const StoryJson& action) {
  return action.is_string() ? action.get<std::string>() : action.begin().key();
}

std::set<std::string> actionsOf(const Story& story) {
  std::set<std::string> names;
  for (const StoryJson& action : story.before) names.insert(nameOfAction(action));
  for (const Happening& happening : story.happenings) names.insert(nameOfAction(happening.action));
  return names;
}

std::vector<std::string> complaintsAbout(const Story& story) {
  Complaints complaints("story");
  static_cast<void>(readScenario(scenarioText(story), complaints));
  return complaints.texts();
}

// --- The same everywhere

TEST(RandomStory, hasTheSameBytesOnEveryRunAndCompiler) {
  EXPECT_THAT(textOf(17, 1, Faults::none), StartsWith(R"({
  "story": "Seed 17, 1 day, faults none: a student.",
  "judged": "by what always holds",
  "mac": {"model":"pro16","gate":"firmware-band","cut":"ch0i","macOS":26,"chargeLimit":false,"percent":81,"plugged":true,"uptime":2000000,"start":"2026-08-11 15:06"},
  "daemon": {"arguments":["--app","/Applications/Brisko.app","--lower","39"]},
  "settings": {"enabled":false,"limit":80,"discharge":false,"led":true,"blinkSeconds":2.0,"thermal":true,"thermalLimit":36,"topUp":false,"topUpHours":8,"hysteresis":10,"history":false,"historyDays":30,"calibrate":false,"calDrain":15,"calSoakMinutes":20,"resetStats":false},
  "timeline": [
    {"at":"+12 min 9 s","do":{"load":6}},
    {"at":"+1 min 22 s","do":"wake"},
    {"at":"+1 min","do":"plug"},)"));
  std::uint64_t all = 0;
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    for (const Faults faults : {Faults::none, Faults::some, Faults::all}) {
      all = all * 31 + hashOf(textOf(seed, 14, faults));
    }
  }
  EXPECT_EQ(all, 13090910514419529066U)
      << "stories are made up differently than before: every seed now means something else";
}

TEST(RandomStory, differsFromSeedToSeed) {
  std::set<std::string> texts;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) texts.insert(textOf(seed, 1, Faults::none));
  EXPECT_EQ(texts.size(), 50U);
}

TEST(RandomStory, hasTheSameMacAndUserWhateverBefallsThem) {
  const Story calm = randomStory(5, 10, Faults::none);
  const Story struck = randomStory(5, 10, Faults::all);
  EXPECT_EQ(calm.mac, struck.mac);
  EXPECT_GT(struck.happenings.size(), calm.happenings.size());
  for (const Happening& happening : calm.happenings) {
    EXPECT_TRUE(std::any_of(struck.happenings.begin(), struck.happenings.end(), [&](const Happening& one) {
      return one.at == happening.at && one.action == happening.action;
    })) << happening.action;
  }
}

// --- Valid

TEST(RandomStory, isAScenarioWithoutAComplaint) {
  for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
    ASSERT_THAT(complaintsAbout(randomStory(seed, 1, Faults::all)), IsEmpty()) << "seed " << seed;
  }
}

TEST(RandomStory, goesForwardFromItsBeginningToItsEnd) {
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    const Story story = randomStory(seed, 7, Faults::all);
    std::int64_t now = 0;
    for (const Happening& happening : story.happenings) {
      EXPECT_GE(happening.at, now);
      now = happening.at;
    }
    EXPECT_LE(now, story.seconds);
    EXPECT_EQ(story.seconds, 7 * 86400);
  }
}

// --- What happens

TEST(RandomStory, letsEverythingHappenThatIsInTheListOfFaults) {
  std::set<std::string> happened;
  for (std::uint64_t seed = 1; seed <= 150; ++seed) {
    happened.merge(actionsOf(randomStory(seed, 30, Faults::all)));
  }
  for (const virtual_mac::Fault& fault : virtual_mac::faults()) {
    EXPECT_THAT(happened, Contains(std::string(fault.name)));
  }
  for (const std::string& name : ownActionNames()) {
    // A daemon that is always kept alive is never started by hand.
    if (name != "start") {
      EXPECT_THAT(happened, Contains(name));
    }
  }
}

TEST(RandomStory, keepsWhatIsAskedForWithinTheLeastAndTheMost) {
  // Anything else would be complained of; here for what is drawn rarely.
  for (std::uint64_t seed = 1001; seed <= 1020; ++seed) {
    EXPECT_THAT(complaintsAbout(randomStory(seed, 30, Faults::all)), IsEmpty()) << "seed " << seed;
  }
}

TEST(RandomStory, withoutFaultsHasNothingButDailyLife) {
  std::set<std::string> daily(dailyLife().begin(), dailyLife().end());
  for (const char* own : {"settings", "settings-replaced", "settings-file", "ask", "app-deleted", "app-moved",
                          "app-restored", "shutdown", "boot", "load", "unload"}) {
    daily.insert(own);
  }
  for (std::uint64_t seed = 1; seed <= 150; ++seed) {
    for (const std::string& name : actionsOf(randomStory(seed, 30, Faults::none))) {
      EXPECT_THAT(daily, Contains(name)) << "seed " << seed;
    }
  }
}

TEST(RandomStory, withSomeFaultsHasFewerOfThemThanWithAll) {
  std::size_t some = 0;
  std::size_t all = 0;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    const std::size_t none = randomStory(seed, 30, Faults::none).happenings.size();
    some += randomStory(seed, 30, Faults::some).happenings.size() - none;
    all += randomStory(seed, 30, Faults::all).happenings.size() - none;
  }
  EXPECT_GT(some, 50U * 3);
  EXPECT_GT(all, 3 * some);
}

TEST(RandomStory, tellsItsSeedDaysAndFaultsInASentence) {
  EXPECT_THAT(randomStory(17, 30, Faults::some).sentence, StartsWith("Seed 17, 30 days, faults some: a"));
}

}  // namespace
}  // namespace brisko::lab
