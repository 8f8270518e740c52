// platform/macos/handled_signals.h
// Who may still write a key once a signal has come. The main thread takes signals up; when it is stuck
// another thread does so in its place, and from then on the main thread must change nothing any more.
#pragma once

namespace brisko::platform {

// Returns at once, unless another thread has taken up a signal: then never. To be called before every
// exchange with the controller.
void stayIfAnotherTookOver();

}  // namespace brisko::platform
