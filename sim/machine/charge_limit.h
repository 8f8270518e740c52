// sim/machine/charge_limit.h
// The charge limit of macOS: the preferences that store it, the service that reads and enforces them, the
// client through which programs reach it, and what users and other programs do to it.
//
// Terms: an "order" is what the preferences request. The service reads it when it is told of a change, takes
// it `delay` seconds later and enforces it from then on. The service does nothing while the Mac sleeps or is
// off: what came due meanwhile happens at wake, and at boot the preferences are read again. The hardware
// always enforces the applied limit.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

inline constexpr std::int64_t lowestOffered = 80;  // percent, on the slider and by the client
inline constexpr std::int64_t limitStep = 5;       // percent
inline constexpr double restingMargin = 5;         // percent: charging begins again below the limit less this

// --- For the machine's own files; readings for tools and tests

[[nodiscard]] ChargeLimit freshLimit(bool offered);

// Called at boot: the service reads the preferences.
void startLimitService(Machine& machine);

// The machine time at which the service, or a program that interferes with it, acts next; infinity when
// neither will.
[[nodiscard]] double nextLimitEvent(const Machine& machine);
// Performs that action.
void applyLimitEvent(Machine& machine);

// Whether this macOS has the limit at all.
[[nodiscard]] bool hasLimit(const Machine& machine);
// What the preferences on the disk ask for.
[[nodiscard]] LimitOrder orderOnDisk(const Machine& machine);
// Percent; 0 when there is no limit, and also during a full charge that the user asked for.
[[nodiscard]] std::int64_t enforcedLimit(const Machine& machine);
// The byte of "bfG0".
[[nodiscard]] std::uint8_t shownLimit(const Machine& machine);

// Whether charging is open under a limit (0: none) at `shownLevel`. `limitCharging` is the limit's last
// direction.
[[nodiscard]] bool limitLetsCharge(double limit, double shownLevel, bool limitCharging);

// Users, and other programs with the same powers, set the limit; 100 turns it off.
void setLimitByHand(Machine& machine, std::int64_t percent);
// The user asks for a full charge for this many seconds; 0: no longer.
void askForFullCharge(Machine& machine, double seconds);
// Another program restores the present limit this many seconds after each change; below 0: never.
void guardLimit(Machine& machine, double seconds);

// --- The client in PowerUI, for the seam

// What a program finds when it loads the framework.
[[nodiscard]] LimitClient loadClient(Machine& machine);
void noteClientMade(Machine& machine);

[[nodiscard]] bool clientSaysSupported(Machine& machine);
// None: the answer came with an error.
[[nodiscard]] std::optional<bool> clientSaysEnabled(Machine& machine);
[[nodiscard]] std::optional<std::int64_t> clientSaysLimit(Machine& machine);  // percent
[[nodiscard]] std::optional<bool> setByClient(Machine& machine, Journal& journal, std::int64_t percent);

// --- Preferences, for the seam

inline constexpr std::string_view limitDomain = "com.apple.smartcharging.topoffprotection";
inline constexpr std::string_view limitNotification = "com.apple.smartcharging.defaultschanged";

[[nodiscard]] std::string_view nameOf(LimitPreference preference);
[[nodiscard]] std::optional<LimitPreference> limitPreferenceNamed(std::string_view name);

// The preference as stored on the disk.
[[nodiscard]] const Preference& preferenceOnDisk(const Machine& machine, LimitPreference which);
// A program wrote a preference. Until it synchronises, only that program sees the value.
void notePreferenceWrite(Machine& machine, Journal& journal, LimitPreference which, const Preference& value);
// The program synchronises its writes to the disk. False when nothing can be written.
[[nodiscard]] bool beginSynchronisation(Machine& machine, Journal& journal);
void storePreference(Machine& machine, LimitPreference which, const Preference& value);
// A notification to the whole system; the service listens for one of them.
void notify(Machine& machine, Journal& journal, std::string_view name);

// The text of a journal entry about the limit, e.g. "limit set 80"; empty when the entry is about something
// else.
[[nodiscard]] std::string limitEntryText(const JournalEntry& entry);

}  // namespace brisko::virtual_mac
