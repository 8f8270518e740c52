#include "lab/invariants/rule.h"

namespace brisko::lab {

void addChargeRules(Rules& rules) { static_cast<void>(rules); }

void judgeChargeAtEnd(const LifeEnd&, const Scene&, const Violated&) {}

}  // namespace brisko::lab
