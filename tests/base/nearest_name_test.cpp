#include "base/nearest_name.h"

#include "support/testing.h"

namespace brisko::nearest_name_test {
namespace {

using namespace test;

TEST(NearestName, isTheOneWithTheFewestChanges) {
  EXPECT_EQ(nearestName("timelime", {"time", "timeline"}), "timeline");
  EXPECT_EQ(nearestName("limt", {"light", "limit"}), "limit") << "one letter is missing";
  EXPECT_EQ(nearestName("limmit", {"light", "limit"}), "limit") << "one letter too many";
  EXPECT_EQ(nearestName("limit", {"limit"}), "limit");
}

TEST(NearestName, isTheFirstOfSeveral) { EXPECT_EQ(nearestName("cat", {"bat", "hat"}), "bat"); }

TEST(NearestName, differsInAtMostAThirdOfTheName) {
  EXPECT_EQ(nearestName("abcdef", {"abcdxy"}), "abcdxy") << "2 of 6";
  EXPECT_EQ(nearestName("abcdef", {"abcxyz"}), std::nullopt) << "3 of 6";
  EXPECT_EQ(nearestName("ab", {"ax"}), "ax") << "always at least one";
  EXPECT_EQ(nearestName("ab", {"xy"}), std::nullopt);
  EXPECT_EQ(nearestName("", {"xy"}), std::nullopt);
  EXPECT_EQ(nearestName("ab", {}), std::nullopt);
}

}  // namespace
}  // namespace brisko::nearest_name_test
