// state/tick_observer.h
// Called by the daemon at three points of every tick. Here they do nothing; a program that watches the daemon
// brings its own functions under these names when it is linked, as the lab does to check its invariants.
#pragma once

namespace brisko {

struct Sample;    // records/history.h
struct Settings;  // base/settings.h

void tickBegins();
// What the tick publishes; it goes to the history next.
void tickPublished(const Sample& sample, const Settings& cfg);
void tickEnded();

}  // namespace brisko
