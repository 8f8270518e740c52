#include "lab/invariants/rule.h"

namespace brisko::lab {

void addProcessRules(Rules& rules) { static_cast<void>(rules); }

void judgeProcessAtEnd(const LifeEnd&, const Scene&, const Violated&) {}

}  // namespace brisko::lab
