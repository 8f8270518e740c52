#include <array>

#include "sim/invariants/invariant_checker.h"

namespace brisko::lab {

std::string invariantWords(int number) {
  static constexpr std::array words{
      "An exit gives everything back: the charge keys read open, the cut key connected, and the light is the "
      "system's.",
      "After a tick the hardware is as the state says: allow lets charge, hold stops the charge, discharge "
      "cuts the adapter too.",
      "The adapter is never cut while the charge keys are open.",
      "The adapter is cut only when a tick wanted it: adapter there, discharge supported and working, no "
      "heat, above its target.",
      "Outside of a calibration no tick ends in discharge during a maintenance wake.",
      "Switched off means open: without a calibration the tick ends in allow.",
      "Without an adapter a tick ends in allow, unless heat or a calibration says otherwise.",
      "A battery that is too hot is held.",
      "The charge never rises more than one percent above the limit.",
      "No tick ends in allow at or above the upper bound.",
      "After the target was reached no tick ends in allow before the charge has fallen to the floor.",
      "Only the gate's own keys and the light are ever written.",
      "While nothing changes nothing is written.",
      "After all data was erased no file is created, written or renamed.",
      "The log stays below its cap, has one generation before it, and every line is a time stamp, two blanks "
      "and a text.",
      "Status is published at most every 15 s unless something changed, and is always a whole JSON object.",
      "Samples of the history that say the same are at least 55 s apart, or 300 s.",
      "At most one wake of ours is scheduled; none after a full wake, an exit or when dormant.",
      "Before sleep the band is frozen, or below it one wake is planned 5 to 45 minutes ahead.",
      "Sleep is never delayed and never vetoed: each message gets one answer, at once.",
      "While a sleep is about to begin no tick writes keys, status or history.",
      "A lost adapter cut is written again five times at most, and after the warning there is no discharge "
      "until it is re-armed.",
      "The verdicts on a hold alternate.",
      "macOS's limit is only set once the one before is known, to what the slider offers, and is written "
      "again at most once every 90 s.",
      "An exit puts macOS's limit back to what it was; when idle it is left alone.",
      "What macOS refused is remembered until the exit; a floor of 80 is only kept for a limit below it.",
      "A calibration goes through its phases in their order, one in a tick, and banks only time on the "
      "adapter at full charge.",
      "Protected time grows by at most 60 s a tick, and only on the adapter while held or discharged.",
      "A request is taken once and then withdrawn for good.",
      "When dormant or released nothing is driven and nothing published.",
      "The daemon's ticks run on the main thread and never inside each other; each request has one reply.",
      "Nothing that stands in a file or comes from the hardware ends the process, but for the numbers that "
      "cannot be kept.",
      "A summary never repeats the one before, and a change of state never names the state before.",
  };
  const auto index = static_cast<std::size_t>(number) - 1;
  return index < words.size() ? words[index] : "";
}

}  // namespace brisko::lab
