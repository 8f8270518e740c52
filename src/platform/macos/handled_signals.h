// platform/macos/handled_signals.h
// Which thread may still write a key after a signal. The main thread handles signals; if it is stuck, the
// standby thread handles them instead, and from then on the main thread must not change anything.
#pragma once

namespace brisko::platform {

// Must be called before every exchange with the controller. Returns at once, or never if another thread
// handles a signal.
void stopIfStandbyTookOver();

}  // namespace brisko::platform
