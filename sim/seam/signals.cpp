#include "sim/seam/signals.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "sim/seam/news.h"

namespace brisko::virtual_mac {

namespace {

struct NotedSignal {
  int number;
  std::function<void()> work;
};

// Used until the process ends, so it is never destroyed.
struct Signals {
  std::vector<int> handled;
  std::vector<NotedSignal> noted;
};
Signals& signals() {
  static Signals& kept = *new Signals;
  return kept;
}

// Bit n: signal n arrived. Several arrivals before the next check count as one.
std::atomic<std::uint64_t> gArrived{0};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

std::uint64_t bitOf(int signal) { return std::uint64_t{1} << static_cast<unsigned>(signal); }

void noteArrival(int signal) { gArrived.fetch_or(bitOf(signal)); }

sigset_t handledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals().handled) sigaddset(&set, signal);
  return set;
}

}  // namespace

void handleSignal(int signal, void (*handler)(int)) {
  std::vector<int>& handled = signals().handled;
  if (std::find(handled.begin(), handled.end(), signal) == handled.end()) handled.push_back(signal);
  const sigset_t shutOut = handledSignals();
  ::pthread_sigmask(SIG_BLOCK, &shutOut, nullptr);

  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaddset(&action.sa_mask, SIGINT);
  sigaddset(&action.sa_mask, SIGTERM);
  ::sigaction(signal, &action, nullptr);
}

void noteSignal(int signal, std::function<void()> work) {
  signals().noted.push_back({signal, std::move(work)});
  handleSignal(signal, noteArrival);
}

std::vector<std::function<void()>> arrivedSignalWork() {
  std::vector<std::function<void()>> arrived;
  if (gArrived.load(std::memory_order_relaxed) == 0) return arrived;
  const std::uint64_t bits = gArrived.exchange(0);
  for (const NotedSignal& noted : signals().noted) {
    if ((bits & bitOf(noted.number)) != 0) arrived.push_back(noted.work);
  }
  return arrived;
}

sigset_t maskWhileWaiting() {
  sigset_t mask;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  for (const int signal : signals().handled) sigdelset(&mask, signal);
  return mask;
}

void letPendingSignalsIn() {
  const std::vector<int>& handled = signals().handled;
  static NewsReader reader;
  if (handled.empty() || !reader.mayHaveNews()) return;
  // Checking first costs one system call instead of two in nearly every iteration.
  sigset_t pending;
  ::sigpending(&pending);
  const bool any = std::any_of(handled.begin(), handled.end(),
                               [&pending](int signal) { return sigismember(&pending, signal) == 1; });
  if (!any) return;
  const sigset_t letIn = handledSignals();
  ::pthread_sigmask(SIG_UNBLOCK, &letIn, nullptr);
  ::pthread_sigmask(SIG_BLOCK, &letIn, nullptr);
}

void raiseSignals(std::uint32_t bits) {
  if (bits != 0) expectNews();
  for (int signal = 1; bits >> static_cast<unsigned>(signal) != 0 && signal < 32; ++signal) {
    if ((bits >> static_cast<unsigned>(signal) & 1U) != 0) ::raise(signal);
  }
}

}  // namespace brisko::virtual_mac
