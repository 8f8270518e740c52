#include "base/guards.h"

#include "base/options.h"
#include "support/testing.h"

namespace brisko::guards_test {
namespace {

using namespace test;

TEST(GuardList, switchesOnWhatItNames) {
  EXPECT_EQ(guardsIn("night,menu,swing"), (Guards{.night = true, .menu = true, .swing = true}));
  EXPECT_EQ(guardsIn("swing"), Guards{.swing = true});
  EXPECT_EQ(guardsIn("menu,night"), (Guards{.night = true, .menu = true}));
}

TEST(GuardList, ignoresUnknownNamesAndCountsTheRest) {
  EXPECT_EQ(guardsIn("moon,night,,Menu"), Guards{.night = true});
  EXPECT_EQ(guardsIn(",night,"), Guards{.night = true});
  for (const char* list : {"", "none", "nights", " night", "night menu", "NIGHT", ","})
    EXPECT_EQ(guardsIn(list), Guards{}) << list;
}

TEST(GuardList, isNamedInItsOwnOrder) {
  EXPECT_THAT(namesOf(guardsIn("swing,night")), ElementsAre("night", "swing"));
  EXPECT_THAT(namesOf({}), IsEmpty());
}

TEST(GuardOption, takesTheNextArgument) {
  scanArguments({"brisko-daemon", "--guard", "night,swing", "--limit", "70"});
  EXPECT_EQ(gGuards, (Guards{.night = true, .swing = true}));
  EXPECT_EQ(gCliLimit, 70);
}

TEST(GuardOption, countsForTheLastTime) {
  scanArguments({"brisko-daemon", "--guard", "night", "--guard", "menu"});
  EXPECT_EQ(gGuards, Guards{.menu = true});
}

TEST(GuardOption, isIgnoredAsTheLastArgument) {
  scanArguments({"brisko-daemon", "--guard"});
  EXPECT_EQ(gGuards, Guards{});
}

}  // namespace
}  // namespace brisko::guards_test
