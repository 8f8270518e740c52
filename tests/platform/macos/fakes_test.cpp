// The errors in a program's use of the system that the fakes detect. Every other test here relies on that.

#include <csignal>
#include <cstdlib>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/pwr_mgt/IOPMLib.h>
#include <dispatch/dispatch.h>

#include "fakes/objects.h"
#include "platform/macos/cf_value.h"
#include "platform/macos/owned.h"
#include "platform/run_loop.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::fakes_test {
namespace {

using namespace test;
using fakes::unreleased;
using platform::firstService;
using platform::Owned;
using platform::OwnedService;
using platform::stringOf;

// Long enough to be mistaken for an object.
alignas(16) constexpr char plainText[64] = "TeamIdentifier";

CFStringRef keptText() {
  const Owned<CFStringRef> text = stringOf("forgotten");
  CFRetain(text.get());
  return text.get();
}

TEST(Fakes, reportNothingIfEverythingIsReleased) {
  const test::VirtualMac mac;
  EXPECT_EQ(unreleased(), "");
  {
    const Owned<CFStringRef> text = stringOf("held");
    EXPECT_EQ(unreleased(), "1 CFString ");
  }
  EXPECT_EQ(unreleased(), "");
}

TEST(Fakes, countEveryReference) {
  const CFStringRef text = keptText();
  CFRetain(text);
  EXPECT_EQ(unreleased(), "2 CFString ");
  CFRelease(text);
  CFRelease(text);
}

TEST(Fakes, countTheReferencesToConstants) {
  CFRetain(kCFBooleanTrue);
  EXPECT_EQ(unreleased(), "1 CFBoolean ");
  CFRelease(kCFBooleanTrue);
  EXPECT_EQ(unreleased(), "");
}

TEST(Fakes, countServices) {
  const test::VirtualMac mac;
  {
    const OwnedService service = firstService("AppleSMC");
    ASSERT_TRUE(service);
    EXPECT_EQ(unreleased(), "1 io_service_t ");
  }
  EXPECT_EQ(unreleased(), "");
}

TEST(Fakes, allowATimerToBeHeldUntilItIsInvalidated) {
  const platform::TimerToken token = platform::addRepeatingTimer(12, [] {});
  EXPECT_EQ(unreleased(), "");
  platform::invalidateTimer(token);
  EXPECT_EQ(unreleased(), "");
}

void servedInOneModeAlone(CFRunLoopTimerRef, void*) {}

TEST(Fakes, reportSourcesThatAreServedInOneModeOnly) {
  const auto exitAfterwards = [] {
    const Owned<CFRunLoopTimerRef> timer(
        CFRunLoopTimerCreate(kCFAllocatorDefault, 0, 12, 0, 0, servedInOneModeAlone, nullptr));
    CFRunLoopAddTimer(CFRunLoopGetMain(), timer.get(), kCFRunLoopDefaultMode);
  };
  EXPECT_EXIT((exitAfterwards(), std::exit(0)), ExitedWithCode(97), "1 outside the common modes");
}

TEST(FakesDeathTest, reportLeaksAtTheEndOfTheProcess) {
  EXPECT_EXIT((keptText(), std::exit(0)), ExitedWithCode(97), "not released: 1 CFString");
}

TEST(FakesDeathTest, endAProcessThatReleasesTooOften) {
  EXPECT_EXIT(CFRelease(kCFBooleanTrue), KilledBySignal(SIGABRT), "more often than it was retained");
}

TEST(FakesDeathTest, endAProcessThatUsesAPlainTextAsAnObject) {
  const Owned<CFMutableDictionaryRef> matching(IOServiceMatching("AppleSMC"));
  EXPECT_EXIT((void)CFDictionaryGetValue(matching.get(), plainText), KilledBySignal(SIGABRT),
              "this is no object");
}

TEST(FakesDeathTest, endAProcessThatMistakesTheTypeOfAnObject) {
  const Owned<CFStringRef> text = stringOf("a text");
  EXPECT_EXIT((void)CFArrayGetCount(static_cast<CFArrayRef>(static_cast<CFTypeRef>(text.get()))),
              KilledBySignal(SIGABRT), "of another type");
}

TEST(FakesDeathTest, endAProcessThatUsesAServiceAfterItsRelease) {
  const test::VirtualMac mac;
  const io_service_t service = IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("AppleSMC"));
  ASSERT_EQ(IOObjectRelease(service), KERN_SUCCESS);
  EXPECT_EXIT(IOObjectRelease(service), KilledBySignal(SIGABRT), "this is no service");
}

TEST(FakesDeathTest, endAProcessThatReleasesAnActiveSource) {
  const dispatch_source_t source =
      dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, SIGUSR1, 0, dispatch_get_main_queue());
  EXPECT_EXIT(dispatch_release(source), KilledBySignal(SIGABRT), "a suspended source");
  dispatch_resume(source);
  EXPECT_EXIT(dispatch_release(source), KilledBySignal(SIGABRT), "before the end of its cancellation");
}

// On a Mac a signal that is not ignored ends the process, even if a source watches it.
TEST(FakesDeathTest, endAProcessByAWatchedSignalThatIsNotIgnored) {
  const dispatch_source_t source =
      dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, SIGUSR1, 0, dispatch_get_main_queue());
  dispatch_resume(source);
  EXPECT_EXIT(::raise(SIGUSR1), KilledBySignal(SIGUSR1), "");
}

TEST(Fakes, acceptNoAnswerThroughAnotherPort) {
  const test::VirtualMac mac;
  EXPECT_NE(IOAllowPowerChange(0x904, 1), KERN_SUCCESS);
}

}  // namespace
}  // namespace brisko::fakes_test
