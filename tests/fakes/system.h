// tests/fakes/system.h
// What the fakes share of the system below the frameworks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

#include "platform/smc_service.h"

namespace brisko::fakes {

// One tick is as short as the virtual Mac's own clock can tell, so that nothing is lost between the two.
[[nodiscard]] std::uint64_t ticksOfSeconds(double uptime);
[[nodiscard]] double secondsOfTicks(std::uint64_t ticks);

// With which error F_GETPATH fails for every file. 0: it does not.
extern int gGetPathError;

// Major version of the SDK that the program seems to be linked with. An older one than macOS 26 has, unless a
// test says otherwise: what is right for such a program is right for any.
extern std::int64_t gLinkedSdk;

// A variable of the kernel that cannot be read. None, unless a test says otherwise.
extern std::string_view gUnreadableVariable;

// Runs once, right after the next file was opened.
extern std::function<void()> gAfterOpen;

// How many bytes of a successful answer the controller's driver says that it gives. All, unless a test says
// otherwise; what is missing stays as it was.
extern std::size_t gAnswerBytes;

// Whether the system notifies of power source changes. It does, unless a test says otherwise.
extern bool gNotifiesOfPowerSources;

// Called with what was asked, once the controller has done it and before the call comes back with the answer.
extern std::function<void(const platform::SmcRecord& asked)> gBeforeAnswer;

// Called with what is to be written, on any descriptor.
extern std::function<void(std::string_view bytes)> gBeforeWrite;

}  // namespace brisko::fakes
