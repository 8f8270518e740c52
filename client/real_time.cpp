#include "client/real_time.h"

#include <chrono>
#include <csignal>
#include <ctime>

namespace brisko::client {
namespace {

volatile std::sig_atomic_t interrupted = 0;

}  // namespace

double steadyNow() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

void pauseReally(double seconds) {
  const auto whole = static_cast<std::time_t>(seconds);
  const timespec length{whole, static_cast<long>((seconds - static_cast<double>(whole)) * 1e9)};
  static_cast<void>(::nanosleep(&length, nullptr));
}

void catchInterrupt() {
  std::signal(SIGINT, [](int) { interrupted = 1; });
}

bool wasInterrupted() { return interrupted != 0; }

}  // namespace brisko::client
