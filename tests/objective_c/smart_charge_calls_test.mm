// How exceptions of the client of macOS's own limit are handled.
#include "platform/macos/smart_charge_calls.h"

#include <gtest/gtest.h>

#include "objective_c/foundation.h"

namespace {

// How the client responds to a message.
enum class Mood { answers, refuses, reportsAnError, raises, cannotBeMade };
Mood gMood = Mood::answers;
std::string gName;
NSInteger gLimit = 100;

void answer() {
  if (gMood == Mood::raises) @throw [[NSError alloc] init];
}

void answer(NSError** error) {
  answer();
  if (gMood == Mood::reportsAnError) *error = [[NSError alloc] init];
}

}  // namespace

@interface PowerUISmartChargeClient : NSObject
@end

@implementation PowerUISmartChargeClient
- (instancetype)initWithClientName:(NSString*)name {
  answer();
  gName = name.UTF8String;
  PowerUISmartChargeClient* none = nil;
  return gMood == Mood::cannotBeMade ? none : self;
}
- (BOOL)isMCLSupported {
  answer();
  return YES;
}
- (BOOL)isMCLCurrentlyEnabled:(NSError**)error {
  answer(error);
  return gLimit < 100;
}
- (int)getMCLLimitWithError:(NSError**)error {
  answer(error);
  return static_cast<int>(gLimit);
}
- (BOOL)setMCLLimit:(NSInteger)percent error:(NSError**)error {
  answer(error);
  if (gMood == Mood::refuses) return NO;
  gLimit = percent;
  return YES;
}
@end

namespace brisko::platform::smart_charge {
namespace {

class SmartChargeCalls : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(initWithClientName("brisko")); }
};

TEST_F(SmartChargeCalls, reachTheClient) {
  EXPECT_EQ(gName, "brisko");
  EXPECT_EQ(isMCLSupported(), true);
  EXPECT_EQ(isMCLCurrentlyEnabled(), false);
  EXPECT_EQ(setMCLLimit(85), true);
  EXPECT_EQ(isMCLCurrentlyEnabled(), true);
  EXPECT_EQ(getMCLLimit(), 85);
}

TEST_F(SmartChargeCalls, returnNothingWhenTheClientRaises) {
  gMood = Mood::raises;
  EXPECT_EQ(isMCLSupported(), std::nullopt);
  EXPECT_EQ(isMCLCurrentlyEnabled(), std::nullopt);
  EXPECT_EQ(getMCLLimit(), std::nullopt);
  EXPECT_EQ(setMCLLimit(85), std::nullopt);
  gMood = Mood::answers;
  EXPECT_EQ(getMCLLimit(), 100);
}

TEST_F(SmartChargeCalls, reportARefusalWithoutAnError) {
  gMood = Mood::refuses;
  EXPECT_EQ(setMCLLimit(85), false);
}

TEST_F(SmartChargeCalls, distinguishAnErrorFromAnAnswer) {
  gMood = Mood::reportsAnError;
  EXPECT_EQ(isMCLCurrentlyEnabled(), std::nullopt);
  EXPECT_EQ(getMCLLimit(), std::nullopt);
  EXPECT_EQ(setMCLLimit(85), false);
}

TEST(SmartChargeClient, isMissingIfItsInitialisationRaises) {
  gMood = Mood::raises;
  EXPECT_FALSE(initWithClientName("brisko"));
}

TEST(SmartChargeClient, isMissingIfItsInitialisationReturnsNil) {
  gMood = Mood::cannotBeMade;
  EXPECT_FALSE(initWithClientName("brisko"));
}

}  // namespace
}  // namespace brisko::platform::smart_charge
