#include "sim/seam/call_watch.h"

#include <utility>

namespace brisko::virtual_mac {
namespace {

using BeforeCall = std::function<bool(const WatchedCall&)>;

// Exit hooks still make calls, so it is never destroyed.
BeforeCall& beforeCall() {
  static BeforeCall& kept = *new BeforeCall;
  return kept;
}

bool gWatched = false;
thread_local int gUnwatched = 0;  // how many UnwatchedCalls exist

}  // namespace

bool WatchedCall::isKeyWrite() const { return name == smcWriteName; }

void watchCalls(std::function<bool(const WatchedCall&)> before) {
  beforeCall() = std::move(before);
  gWatched = true;
}

bool callsAreWatched() { return gWatched && gUnwatched == 0; }

bool callFails(const WatchedCall& call) {
  if (!callsAreWatched()) return false;
  const UnwatchedCalls itsOwn;
  return beforeCall()(call);
}

UnwatchedCalls::UnwatchedCalls() { ++gUnwatched; }
UnwatchedCalls::~UnwatchedCalls() { --gUnwatched; }

}  // namespace brisko::virtual_mac
