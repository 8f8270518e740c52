// tests/fakes/system.h
// The parts of the system below the frameworks that several fakes use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

#include "platform/smc_service.h"

namespace brisko::fakes {

// One tick is the resolution of the virtual Mac's clock, so converting between the two loses nothing.
[[nodiscard]] std::uint64_t ticksOfSeconds(double uptime);
[[nodiscard]] double secondsOfTicks(std::uint64_t ticks);

// The error with which F_GETPATH fails for every file. 0: it succeeds.
extern int gGetPathError;

// Major version of the SDK with which the program appears to be linked. By default one older than that of
// macOS 26, which is the harder case.
extern std::int64_t gLinkedSdk;

// A kernel variable that cannot be read. None by default.
extern std::string_view gUnreadableVariable;

// The function of the system that fails. None by default.
extern std::string_view gFailing;

// Whether the code that signed the program names a team. True by default.
extern bool gSignedByATeam;

// Whether a signal ends the main thread's next wait for a semaphore.
extern bool gNextWaitIsAborted;

// Runs once, right after the next file was opened.
extern std::function<void()> gAfterOpen;

// The size that the controller's driver reports for a successful answer; the bytes beyond it are left
// unchanged. All by default.
extern std::size_t gAnswerBytes;

// Whether the system notifies of power source changes. True by default.
extern bool gNotifiesOfPowerSources;

// Called with the request after the controller has handled it and before the call returns.
extern std::function<void(const platform::SmcRecord& asked)> gBeforeAnswer;

// Called with the data of each write, to any descriptor.
extern std::function<void(std::string_view bytes)> gBeforeWrite;

}  // namespace brisko::fakes
