// policy/evaluation.h
#pragma once

namespace brisko {

// One tick of the daemon: reads the settings and the battery, decides the charge state, applies it and
// reports the result. Called by the heartbeat and after everything that can change the decision.
void evaluate();

}  // namespace brisko
