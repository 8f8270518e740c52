#include "platform/run_loop.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <uv.h>

#include "platform/clock.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/file_events.h"
#include "sim/seam/live/readable.h"
#include "sim/seam/live/real_time.h"
#include "sim/seam/live/wake.h"
#include "sim/seam/moment.h"
#include "sim/seam/power_message_watch.h"
#include "sim/seam/power_source_watch.h"
#include "sim/seam/signals.h"
#include "sim/seam/work_queue.h"

namespace brisko::platform {

namespace {

using virtual_mac::Machine;
using virtual_mac::MachineStore;

// How far ahead, in the machine's seconds, to search for the next notice when nothing is due.
constexpr double longestOutlook = 3600;

// Another component's descriptor, and what to do when it is readable.
struct Readable {
  uv_poll_t handle;
  std::function<bool()> take;
};

constexpr double restSeconds = 1;  // of uptime, after `take` could not take anything

void listen(Readable& readable) {
  ::uv_poll_start(&readable.handle, UV_READABLE, [](uv_poll_t* handle, int, int) {
    auto& ready = *static_cast<Readable*>(handle->data);
    if (ready.take()) return;
    ::uv_poll_stop(handle);
    postMainAfter(restSeconds, [&ready] { listen(ready); });
  });
}

class Loop {
 public:
  Loop() {
    if (::uv_loop_init(&uv_) != 0 || ::uv_async_init(&uv_, &posted_, nullptr) != 0) std::abort();
    if (MachineStore* store = virtual_mac::attachedMachine()) listenForWakes(store->folder());
  }

  void run() {
    {
      const std::lock_guard lock(mutex_);
      runner_ = std::this_thread::get_id();
    }
    stopped_ = false;
    while (!stopped_) iterate();
  }
  void stop() { stopped_ = true; }

  TimerToken addTimer(double intervalSeconds, Work work) {
    return queue_.addTimer(uptime(), intervalSeconds, std::move(work));
  }
  void invalidateTimer(TimerToken token) { queue_.invalidateTimer(token); }

  void whenReadable(int descriptor, std::function<bool()> take) {
    auto readable = std::make_unique<Readable>(Readable{{}, std::move(take)});
    if (::uv_poll_init(&uv_, &readable->handle, descriptor) != 0) return;
    readable->handle.data = readable.get();
    listen(*readables_.emplace_back(std::move(readable)));
  }

  void post(double due, Work work) {
    const std::lock_guard lock(mutex_);
    arrived_.push_back({due, std::move(work)});
    // On the loop's own thread the work is found before the next wait anyway.
    if (std::this_thread::get_id() != runner_) ::uv_async_send(&posted_);
  }

 private:
  struct Arrival {
    double due;
    Work work;
  };

  void iterate() {
    virtual_mac::collectFileEvents();
    takeArrivals();
    observeMachine();
    wait();
    if (stopped_) return;  // by a signal handler
    for (Work& work : virtual_mac::arrivedSignalWork()) queue_.add(uptime(), std::move(work));
    if (virtual_mac::realSecondsUntilUptime(queue_.nextDue()) <= 0) queue_.runFirst(uptime);
  }

  void takeArrivals() {
    std::vector<Arrival> arrived;
    {
      const std::lock_guard lock(mutex_);
      arrived.swap(arrived_);
    }
    for (Arrival& arrival : arrived) queue_.add(arrival.due, std::move(arrival.work));
  }

  // Signals are unblocked only here, so every iteration waits, even if only for zero seconds.
  void wait() {
    listenForFileEvents();
    const bool nothingElse = ::uv_backend_timeout(&uv_) != 0;
    const double seconds = nothingElse ? secondsToNextEvent() : 0;
    const timespec timeout = virtual_mac::realWait(seconds);
    const sigset_t mask = virtual_mac::maskWhileWaiting();
    pollfd events{::uv_backend_fd(&uv_), POLLIN, 0};
    const int ready = ::ppoll(&events, 1, &timeout, &mask);
    if (ready > 0 || !nothingElse) ::uv_run(&uv_, UV_RUN_NOWAIT);
  }

  // Advances the machine to now, queues its messages as work and raises its signals. While the machine sleeps
  // nothing is delivered; the events arrive at wake, several changes as one.
  void observeMachine() {
    MachineStore* store = virtual_mac::attachedMachine();
    if (store == nullptr) return;
    std::uint32_t signals = 0;
    bool changed = false;
    std::vector<Work> messages;
    {
      const auto update = store->update();
      Machine& machine = update.machine();
      virtual_mac::advance(machine, virtual_mac::machineTime(machine));
      signals = std::exchange(machine.pendingSignals, 0);
      if (!machine.system.asleep) {
        changed = virtual_mac::powerSourceChanged(machine);
        messages = virtual_mac::arrivedPowerMessages(machine);
      }
      *ahead_ = machine;
    }
    virtual_mac::raiseSignals(signals);
    if (changed) queue_.add(uptime(), virtual_mac::notifyPowerSourceChange);
    for (Work& message : messages) queue_.add(uptime(), std::move(message));
  }

  // Real seconds until the first work item is due or the machine has a message. The time of the message is
  // determined on a copy of the machine, so that a machine without messages causes no wake-ups.
  double secondsToNextEvent() {
    const double dueIn = virtual_mac::realSecondsUntilUptime(queue_.nextDue());
    if (virtual_mac::attachedMachine() == nullptr) return dueIn;
    const double outlook = std::min(dueIn * ahead_->speed, longestOutlook);
    if (!(outlook > 0)) return dueIn;  // also when time is paused
    const double now = virtual_mac::machineTime(*ahead_);
    const bool notice = virtual_mac::advanceToNotice(*ahead_, now + outlook);
    if (!notice && outlook < longestOutlook) return dueIn;
    return (ahead_->now - now) / ahead_->speed;
  }

  void listenForWakes(const std::string& folder) {
    wakeSocket_ = virtual_mac::openWakeSocket(folder);
    if (wakeSocket_ < 0 || ::uv_poll_init(&uv_, &wakes_, wakeSocket_) != 0) return;
    wakes_.data = this;
    ::uv_poll_start(&wakes_, UV_READABLE, [](uv_poll_t* handle, int, int) {
      virtual_mac::drainWakeSocket(static_cast<Loop*>(handle->data)->wakeSocket_);
    });
  }

  // Active from the first watch on. Waking up is enough: the next iteration takes the events.
  void listenForFileEvents() {
    const int queue = virtual_mac::fileEventQueue();
    if (queue < 0 || listensForFileEvents_ || ::uv_poll_init(&uv_, &fileEvents_, queue) != 0) return;
    listensForFileEvents_ = true;
    ::uv_poll_start(&fileEvents_, UV_READABLE, [](uv_poll_t*, int, int) {});
  }

  virtual_mac::WorkQueue queue_;
  bool stopped_ = false;
  uv_loop_t uv_{};
  uv_async_t posted_{};
  uv_poll_t wakes_{};
  uv_poll_t fileEvents_{};
  bool listensForFileEvents_ = false;
  std::vector<std::unique_ptr<Readable>> readables_;
  int wakeSocket_ = -1;
  std::unique_ptr<Machine> ahead_ = std::make_unique<Machine>();  // a copy to look ahead with

  std::mutex mutex_;  // guards the members below
  std::vector<Arrival> arrived_;
  std::thread::id runner_;
};

// Exit hooks may still use the loop, so it is never destroyed.
Loop& loop() {
  static Loop& kept = *new Loop;
  return kept;
}

}  // namespace

void runMain() { loop().run(); }

void stopMain() { loop().stop(); }

TimerToken addRepeatingTimer(double intervalSeconds, Work work) {
  return loop().addTimer(intervalSeconds, std::move(work));
}

void invalidateTimer(TimerToken token) { loop().invalidateTimer(token); }

void postMain(Work work) { loop().post(uptime(), std::move(work)); }

void postMainAfter(double seconds, Work work) { loop().post(uptime() + seconds, std::move(work)); }

void installSignalHandler(int signal, void (*handler)(int)) { virtual_mac::handleSignal(signal, handler); }

void addSignalSource(int signal, Work work) { virtual_mac::noteSignal(signal, std::move(work)); }

}  // namespace brisko::platform

namespace brisko::virtual_mac {

void whenReadable(int descriptor, std::function<bool()> take) {
  platform::loop().whenReadable(descriptor, std::move(take));
}

}  // namespace brisko::virtual_mac
