// The contract of platform/preferences.h.

#include "platform/preferences.h"

#include <cstdint>
#include <string>

#include "platform/clock.h"
#include "platform/smart_charge_client.h"
#include "sim/machine/charge_limit.h"
#include "support/child.h"
#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::preferences_test {
namespace {

using namespace test;
using virtual_mac::ChangeKind;
using virtual_mac::limitDomain;
using virtual_mac::limitNotification;

class PreferencesContract : public ::testing::Test {
 protected:
  static std::string feature() { return "MCLFeatureState"; }
  static std::string limit() { return "mclLimitValue"; }
  static std::string until() { return "MCLTempDisabledUntilDate"; }

  static std::optional<Value> read(const std::string& key) { return preference(limitDomain, key); }
  static std::optional<std::int64_t> integer(const std::string& key) {
    const auto value = read(key);
    return value ? value->asInteger() : std::nullopt;
  }
  static void write(const std::string& key, std::optional<Value> value) {
    setPreference(limitDomain, key, std::move(value));
  }
  // The value that another process reads.
  static std::string elsewhere(const std::string& key) {
    return inChild([&key] {
             const auto value = integer(key);
             tell(value ? std::to_string(*value) : "none");
           })
        .output;
  }
  [[nodiscard]] std::int64_t enforced() const { return virtual_mac::enforcedLimit(mac.record()); }
  // A call of the seam advances the machine to the present.
  static void pass(double seconds) {
    pause(seconds);
    (void)smartChargeLimitSupported();
  }

  ContractMachine mac{{.macOS = 27}};
};

TEST_F(PreferencesContract, holdsNothingAtFirst) {
  EXPECT_FALSE(read(feature()).has_value());
  EXPECT_FALSE(read(limit()).has_value());
  EXPECT_FALSE(read(until()).has_value());
}

TEST_F(PreferencesContract, showsTheProcessWhatItWrote) {
  write(feature(), 1);
  write(limit(), 75);
  write(until(), Date{1772352930.5});
  EXPECT_EQ(integer(feature()), 1);
  EXPECT_EQ(integer(limit()), 75);
  EXPECT_EQ(read(until())->asDate(), Date{1772352930.5});
}

TEST_F(PreferencesContract, keepsTheKindOfAValue) {
  write(limit(), true);
  EXPECT_EQ(read(limit())->asBoolean(), true);
  EXPECT_FALSE(read(limit())->asInteger().has_value());
  write(limit(), 80.5);
  EXPECT_EQ(read(limit())->asDouble(), 80.5);
  write(limit(), "80");
  ASSERT_NE(read(limit())->asText(), nullptr);
  EXPECT_EQ(*read(limit())->asText(), "80");
  write(until(), 12);
  EXPECT_FALSE(read(until())->asDate().has_value());
  ASSERT_TRUE(synchronizePreferences(limitDomain));
  EXPECT_EQ(*read(limit())->asText(), "80") << "also on the disk";
  EXPECT_EQ(integer(until()), 12);
}

TEST_F(PreferencesContract, removesAKeyThatIsSetToNothing) {
  write(limit(), 75);
  ASSERT_TRUE(synchronizePreferences(limitDomain));
  write(limit(), std::nullopt);
  EXPECT_FALSE(read(limit()).has_value());
  EXPECT_EQ(mac.record().limit.preferences[1].integer, 75) << "not on the disk yet";
  ASSERT_TRUE(synchronizePreferences(limitDomain));
  EXPECT_FALSE(read(limit()).has_value());
  EXPECT_EQ(mac.record().limit.preferences[1], virtual_mac::Preference{});
}

TEST_F(PreferencesContract, isVisibleToOthersWhenSynchronised) {
  EXPECT_EQ(inChild([] {
              write(limit(), 75);
              tell(std::to_string(integer(limit()).value_or(0)));
            }).output,
            "75");
  EXPECT_FALSE(read(limit()).has_value()) << "what it did not synchronise is lost";
  (void)inChild([] {
    write(limit(), 70);
    (void)synchronizePreferences(limitDomain);
  });
  EXPECT_EQ(integer(limit()), 70);
}

TEST_F(PreferencesContract, readsWhatOthersWroteMeanwhile) {
  write(limit(), 75);
  ASSERT_TRUE(synchronizePreferences(limitDomain));
  mac.change({.kind = ChangeKind::limit, .number = 90});
  EXPECT_EQ(integer(limit()), 90);
  EXPECT_EQ(elsewhere(limit()), "90");
}

TEST_F(PreferencesContract, writesTheWholeDomainAtOnce) {
  write(feature(), 1);
  write(limit(), 75);
  ASSERT_TRUE(synchronizePreferences(limitDomain));
  EXPECT_EQ(elsewhere(feature()), "1");
  EXPECT_EQ(elsewhere(limit()), "75");
}

TEST_F(PreferencesContract, reportsWhenSynchronisingFailsAndWritesItTheNextTime) {
  mac.change({.kind = ChangeKind::preferencesFail, .number = 1});
  write(limit(), 75);
  EXPECT_FALSE(synchronizePreferences(limitDomain));
  EXPECT_EQ(mac.record().limit.preferences[1], virtual_mac::Preference{});
  EXPECT_EQ(integer(limit()), 75) << "the process still sees its own";
  mac.change({.kind = ChangeKind::preferencesFail, .number = 0});
  EXPECT_TRUE(synchronizePreferences(limitDomain));
  EXPECT_EQ(elsewhere(limit()), "75");
}

TEST_F(PreferencesContract, leavesOtherDomainsAndKeysAlone) {
  setPreference("com.example.other", limit(), 75);
  write("mclLimitValues", 75);
  EXPECT_FALSE(read(limit()).has_value());
  EXPECT_FALSE(preference("com.example.other", limit()).has_value());
  EXPECT_TRUE(synchronizePreferences("com.example.other"));
  EXPECT_EQ(mac.record().limit.preferences[1], virtual_mac::Preference{});
}

TEST_F(PreferencesContract, synchronisesOneDomainAlone) {
  write(limit(), 75);
  EXPECT_TRUE(synchronizePreferences("com.example.other"));
  EXPECT_EQ(mac.record().limit.preferences[1], virtual_mac::Preference{});
}

TEST_F(PreferencesContract, tellsTheSystemWithANotification) {
  write(feature(), 1);
  write(limit(), 75);
  ASSERT_TRUE(synchronizePreferences(limitDomain));
  pass(10);
  EXPECT_EQ(enforced(), 0) << "it was not notified";
  postNotification(limitNotification);
  pass(10);
  EXPECT_EQ(enforced(), 75);
}

TEST_F(PreferencesContract, survivesABoot) {
  write(limit(), 75);
  ASSERT_TRUE(synchronizePreferences(limitDomain));
  virtual_mac::Machine machine = mac.record();
  virtual_mac::shutDown(machine);
  virtual_mac::boot(machine);
  EXPECT_EQ(machine.limit.preferences[1].integer, 75);
}

TEST(PreferencesWithoutAMachine, areEmpty) {
  setPreference(limitDomain, "mclLimitValue", 75);
  EXPECT_FALSE(preference(limitDomain, "mclLimitValue").has_value());
  EXPECT_FALSE(synchronizePreferences(limitDomain));
  postNotification(limitNotification);
}

}  // namespace
}  // namespace brisko::platform::preferences_test
