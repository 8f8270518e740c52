// sim/machine/charge_limit.h
// The charge limit of macOS: the preferences that hold it, the service that reads and enforces them, the
// client through which programs reach it, and what people and other programs do to it.
//
// Words: an "order" is what the preferences ask for; it is read when the service is told of a change, taken
// `delay` seconds later and from then on enforced. The service does nothing while the Mac sleeps or is off:
// what came due meanwhile happens at wake, and at boot the preferences are read anew. The hardware itself
// keeps to what is enforced at all times.
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

// ---------------------------------------------------------------------------------------------------------
// For the machine's own files, and readings for tools and tests

[[nodiscard]] ChargeLimit freshLimit(bool offered);

// At boot: the service reads the preferences.
void startLimitService(Machine& machine);

// When the service, or who meddles with it, next acts, as machine time; infinity when nobody does.
[[nodiscard]] double nextLimitEvent(const Machine& machine);
// Lets that happen.
void applyLimitEvent(Machine& machine);

// Whether this macOS has the limit at all.
[[nodiscard]] bool hasLimit(const Machine& machine);
// What the preferences on the disk ask for.
[[nodiscard]] LimitOrder orderOnDisk(const Machine& machine);
// Percent; 0 when there is no limit, also while people wait for a full charge.
[[nodiscard]] std::int64_t enforcedLimit(const Machine& machine);
// The byte of "bfG0".
[[nodiscard]] std::uint8_t shownLimit(const Machine& machine);

// Whether charging is open under a limit (0 none) at `shownLevel`, `limitCharging` being its last direction.
[[nodiscard]] bool limitLetsCharge(double limit, double shownLevel, bool limitCharging);

// People, and other programs with the same powers, set the limit; 100 turns it off.
void setLimitByHand(Machine& machine, std::int64_t percent);
// People ask for a full charge for so long; 0: no longer.
void askForFullCharge(Machine& machine, double seconds);
// Another program puts the limit of this moment back so many seconds after each change; below 0 never.
void guardLimit(Machine& machine, double seconds);

// ---------------------------------------------------------------------------------------------------------
// The client in PowerUI, for the seam

// What a program finds that loads the framework.
[[nodiscard]] LimitClient loadClient(Machine& machine);
void noteClientMade(Machine& machine);

[[nodiscard]] bool clientSaysSupported(Machine& machine);
// None: an error came with the answer.
[[nodiscard]] std::optional<bool> clientSaysEnabled(Machine& machine);
[[nodiscard]] std::optional<std::int64_t> clientSaysLimit(Machine& machine);  // percent
[[nodiscard]] std::optional<bool> setByClient(Machine& machine, Journal& journal, std::int64_t percent);

// ---------------------------------------------------------------------------------------------------------
// Preferences, for the seam

inline constexpr std::string_view limitDomain = "com.apple.smartcharging.topoffprotection";
inline constexpr std::string_view limitNotification = "com.apple.smartcharging.defaultschanged";

[[nodiscard]] std::string_view nameOf(LimitPreference preference);
[[nodiscard]] std::optional<LimitPreference> limitPreferenceNamed(std::string_view name);

// As the disk has it.
[[nodiscard]] const Preference& preferenceOnDisk(const Machine& machine, LimitPreference which);
// A program wrote a preference, which so far is seen by itself alone.
void notePreferenceWrite(Machine& machine, Journal& journal, LimitPreference which, const Preference& value);
// The program brings what it wrote to the disk; nothing comes there when this is false.
[[nodiscard]] bool beginSynchronisation(Machine& machine, Journal& journal);
void storePreference(Machine& machine, LimitPreference which, const Preference& value);
// A notification to the whole system; the service listens for one of them.
void notify(Machine& machine, Journal& journal, std::string_view name);

// ---------------------------------------------------------------------------------------------------------

// What an entry of the journal tells of all this, e.g. "limit set 80"; empty when it is about something else.
[[nodiscard]] std::string limitEntryText(const JournalEntry& entry);

}  // namespace brisko::virtual_mac
