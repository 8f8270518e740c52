#include "state/tick_observer.h"

namespace brisko {

// Weak, so that a program can bring its own when it is linked. The compiler inlines none of them.

[[gnu::weak]] void tickBegins() {}

[[gnu::weak]] void tickPublished(const Sample& /*sample*/, const Settings& /*cfg*/) {}

[[gnu::weak]] void tickEnded() {}

}  // namespace brisko
