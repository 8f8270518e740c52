// policy/evaluation.h
#pragma once

namespace brisko {

// One pass of the daemon's heart: reads the settings and the battery, decides the charge state, applies it
// and tells what it did. Run by the heartbeat and after everything that can change the decision.
void evaluate();

}  // namespace brisko
