#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "base/options.h"
#include "hardware/charge_gate.h"
#include "native/native_limit.h"
#include "platform/system_power.h"
#include "sim/invariants/observed.h"
#include "sim/invariants/preconditions.h"
#include "sim/invariants/rule.h"
#include "state/calibration_state.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::JournalEntry;
using virtual_mac::LimitPreference;

constexpr std::int64_t lowestOnSlider = 80;

bool isOnSlider(std::int64_t limit) { return limit >= lowestOnSlider && limit <= 100 && limit % 5 == 0; }

bool isLimitSet(const JournalEntry& entry) { return entry.command == virtual_mac::journalLimitSet; }

std::int64_t percentSet(const JournalEntry& entry) { return static_cast<std::int32_t>(entry.key); }

// The number in a written preference; none when it is not a whole number.
std::optional<std::int64_t> preferenceWritten(const JournalEntry& entry, LimitPreference which) {
  if (entry.command != virtual_mac::journalPreference || entry.key != static_cast<std::uint32_t>(which)) {
    return std::nullopt;
  }
  if (entry.bytes[0] != static_cast<std::uint8_t>(virtual_mac::PreferenceKind::integer)) return std::nullopt;
  std::int64_t value = 0;
  std::memcpy(&value, &entry.bytes[1], sizeof value);
  return value;
}

// --- What macOS's limit is set to

constexpr Invariant limitWrites{24,
                                "macOS's limit is only set once the one before is known, to what the slider "
                                "offers, and is written again at most once every 90 s."};

class WhatIsSet final : public Rule {
 public:
  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated& violated) override {
    check(tick.journalFrom, tick.journalTo, observation, violated);
  }
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    check(iteration.journalFrom, iteration.journalTo, observation, violated);
  }

 private:
  static void check(std::uint64_t from, std::uint64_t to, const Observation& observation,
                    const Violated& violated) {
    forEntries(observation, from, to, [&](const JournalEntry& entry) {
      if (!isNativeWrite(entry)) return true;
      if (!gNativeBefore) violated(limitWrites, "macOS's limit was touched before the one before was known");
      if (isLimitSet(entry) && !isOnSlider(percentSet(entry))) {
        violated(limitWrites, "the client was given " + std::to_string(percentSet(entry)));
      }
      const auto value = preferenceWritten(entry, LimitPreference::limitValue);
      if (value && (*value < 1 || *value > 100)) {
        violated(limitWrites, "a preference of " + std::to_string(*value) + " was written");
      }
      return true;
    });
  }
};

// With the guard "menu", while macOS charges to full because its user asked for that.
bool waitsForFullCharge(const virtual_mac::Machine& machine) {
  const double until = std::max(machine.limit.held.fullUntil, machine.limit.coming.fullUntil);
  return gGuards.menu && gNativeFullUntil && until > virtual_mac::wallClock(machine);
}

// How often a target is written again. Uses the wall clock throughout, as macOS's own dates do; if the clock
// was set, the rule cannot tell whether a write came too soon.
class WrittenAgain final : public Rule {
 public:
  void tickBegins(const Observation& observation, const Violated&) override {
    before_ = gNativeWritten;
    // After a sleep macOS gets its full time again.
    const bool wakes = firstEntry(observation, observation.processSummary().journalSeen,
                                  observation.journal().written, [](const JournalEntry& entry) {
                                    return isReceived(entry, platform::PowerMessage::systemHasPoweredOn);
                                  }) != nullptr;
    if (wakes) waitsSince_ = observation.machine().now + observation.machine().system.wallOffset;
  }

  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated& violated) override {
    if (!gateIsMacOSLimit() || !gNativeWritten) return;
    const double now = tick.at + observation.machine().system.wallOffset;
    const bool plugged = adapterIsSeen(observation.machine());
    // On battery macOS shows no limit, nor while it charges to full.
    if (!plugged || waitsForFullCharge(observation.machine())) waitsSince_ = now;
    const bool writes = firstEntry(observation, tick.journalFrom, tick.journalTo, isNativeWrite) != nullptr;
    if (observation.disturbances().clockSteppedAt >= tickedAt_) clockWasSet_ = true;
    tickedAt_ = tick.at;
    if (gNativeWritten != before_) {
      clockWasSet_ = false;
      confirmed_ = wroteAfterDrift_ = false;
      waitsSince_ = writtenAt_ = now;
      return;
    }
    if (writes) check(now, violated);
    if (!writes && plugged &&
        limitShown(observation.machine()) == (*gNativeWritten == 100 ? 0 : *gNativeWritten)) {
      confirmed_ = true;
      wroteAfterDrift_ = false;
    }
  }

 private:
  void check(double now, const Violated& violated) {
    if (confirmed_) {
      if (wroteAfterDrift_) violated(limitWrites, "what macOS took back was written again a second time");
      wroteAfterDrift_ = true;
      return;
    }
    if (now - writtenAt_ < 90 && !clockWasSet_)
      violated(limitWrites, "the limit was written again within 90 s");
    if (now - waitsSince_ >= 600) violated(limitWrites, "a limit that macOS refuses was written again");
    writtenAt_ = now;
    clockWasSet_ = false;
  }

  double tickedAt_ = never;             // machine time of the tick before
  bool clockWasSet_ = false;            // since the last write
  std::optional<std::int64_t> before_;  // gNativeWritten as the tick began
  double writtenAt_ = 0;
  double waitsSince_ = 0;
  bool confirmed_ = false;  // macOS showed the target at least once
  bool wroteAfterDrift_ = false;
};

// --- What is needed at the end of the process

constexpr Invariant limitHandedBack{
    25, "An exit puts macOS's limit back to what it was; when idle it is left alone."};

class ForTheEnd final : public Rule {
 public:
  void tickEnded(const TickRecord& tick, const Observation& observation, const Violated&) override {
    if (!tick.complete || !gateIsMacOSLimit()) return;
    ProcessSummary& processSummary = observation.processSummary();
    processSummary.nativeDriven = true;
    if (!gNativeBefore) return;
    processSummary.nativeIdle = !tick.settings.enabled && gCal.phase == CalPhase::idle && gTopUpSince == 0;
    note(processSummary);
  }
  void iterationEnded(const LoopIteration&, const Observation& observation, const Violated&) override {
    if (observation.processSummary().nativeDriven) note(observation.processSummary());
  }

 private:
  static void note(ProcessSummary& processSummary) {
    processSummary.nativeBeforeKnown = gNativeBefore.has_value();
    processSummary.nativeBefore = gNativeBefore.value_or(0);
  }
};

// --- What macOS refused

constexpr Invariant refusedLimits{
    26, "What macOS refused is remembered until the exit; a floor of 80 is only kept for a limit below it."};

// The percentage that the line about a refusal names; none for other lines.
std::optional<std::int64_t> refusedIn(std::string_view line) {
  constexpr std::string_view beginning = "⚠️ macOS won't hold ";
  if (!messageStartsWith(line, beginning)) return std::nullopt;
  const std::string_view rest = line.substr(line.find(beginning) + beginning.size());
  std::int64_t percent = 0;
  if (std::from_chars(rest.data(), rest.data() + rest.size(), percent).ec != std::errc()) return std::nullopt;
  return percent;
}

class Refusals final : public Rule {
 public:
  void tickEnded(const TickRecord& tick, const Observation&, const Violated& violated) override {
    const bool idle = !tick.settings.enabled && gCal.phase == CalPhase::idle && gTopUpSince == 0;
    if (!tick.complete || !gateIsMacOSLimit() || idle || !gNativeWritten) return;
    const std::int64_t target = *gNativeWritten;
    const std::int64_t limit = tick.settings.limit;
    if (target <= refused_ && target < lowestOnSlider) {
      violated(refusedLimits, std::to_string(target) + "% was written, and " + std::to_string(refused_) +
                                  "% had been refused");
    }
    if (steppedOnly_ && target > lowestOnSlider && target % 5 != 0) {
      violated(refusedLimits, std::to_string(target) + "% was written, and steps between had been refused");
    }
    if (!gNativeFloor) {
      if (floored_ && limit <= *floored_)
        violated(refusedLimits, "the floor is gone for a limit of " + std::to_string(limit));
      return;
    }
    floored_ = std::max(floored_.value_or(limit), limit);
    if (limit >= lowestOnSlider)
      violated(refusedLimits, "there is a floor for a limit of " + std::to_string(limit));
    // A calibration drains below the floor, and limits below 20 are treated as 20. A battery above the limit
    // is held at its present charge, which macOS has not refused yet.
    const bool counts = gCal.phase == CalPhase::idle && limit >= 20 && target <= limit;
    if (counts && target < lowestOnSlider) {
      violated(refusedLimits, std::to_string(target) + "% was written below the floor");
    }
  }

  void iterationEnded(const LoopIteration& iteration, const Observation&, const Violated&) override {
    for (const std::string& line : iteration.lines) {
      const auto percent = refusedIn(line);
      if (!percent) continue;
      if (*percent < lowestOnSlider) refused_ = std::max(refused_, *percent);
      if (*percent > lowestOnSlider) steppedOnly_ = true;
    }
  }

 private:
  std::int64_t refused_ = 0;             // the highest refused limit below 80
  bool steppedOnly_ = false;             // macOS holds steps of 5 only
  std::optional<std::int64_t> floored_;  // the highest configured limit for which there was a floor
};

}  // namespace

void addNativeRules(Rules& rules) {
  rules.push_back(std::make_unique<WhatIsSet>());
  rules.push_back(std::make_unique<WrittenAgain>());
  rules.push_back(std::make_unique<ForTheEnd>());
  rules.push_back(std::make_unique<Refusals>());
}

void checkNativeAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated) {
  const ProcessSummary& processSummary = observation.processSummary();
  // A process that is killed or aborts leaves the limit as it is. Without the client the limit cannot be set.
  const bool reachable = observation.machine().limit.client == virtual_mac::LimitClient::offered;
  if (!end.status || !processSummary.nativeDriven || !processSummary.nativeBeforeKnown || !reachable) return;
  const JournalEntry* last = nullptr;
  forEntries(observation, end.rest.journalFrom, end.rest.journalTo, [&](const JournalEntry& entry) {
    if (isNativeWrite(entry)) last = &entry;
    return true;
  });
  if (processSummary.nativeIdle) {
    if (last != nullptr) violated(limitHandedBack, "macOS's limit was touched although it is left alone");
    return;
  }
  const std::int64_t wanted = isOnSlider(processSummary.nativeBefore) ? processSummary.nativeBefore : 100;
  if (last == nullptr || !isLimitSet(*last) || percentSet(*last) != wanted) {
    violated(limitHandedBack, "macOS's limit was not set back to " + std::to_string(wanted));
  }
}

}  // namespace brisko::lab
