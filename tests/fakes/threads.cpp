#include "fakes/threads.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <limits>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

#include <mach/mach.h>
#include <mach/semaphore.h>
#include <mach/sync_policy.h>
#include <mach/task.h>
#include <pthread.h>

#include "fakes/objects.h"
#include "fakes/system.h"
#include "sim/seam/simulated/virtual_time.h"

namespace brisko::fakes {

bool gNextWaitIsAborted = false;

namespace {

constexpr double noDeadline = std::numeric_limits<double>::infinity();
constexpr int signalNumbers = 32;

// Each is a count of signals that no thread has waited for. Signal handlers signal them too. No semaphore has
// the number 0.
std::array<std::atomic<int>, 8> gSemaphores{};
std::size_t gSemaphoresMade = 0;

bool isThere(semaphore_t semaphore) { return semaphore != 0 && semaphore <= gSemaphoresMade; }

bool takeOne(semaphore_t semaphore) {
  if (gSemaphores[semaphore] == 0) return false;
  gSemaphores[semaphore] -= 1;
  return true;
}

// All signals are blocked while the real thread waits; the fake handles those that the thread does not block.
struct Thread {
  sigset_t shutOut{};
  bool ready = true;  // also without a semaphore
  semaphore_t semaphore = 0;
  double deadline = noDeadline;  // uptime
  std::thread real;              // the program's to detach
};

// Threads may wait until the process ends, so it is never destroyed.
struct Threads {
  std::list<Thread> all;
  bool dispatchHasSome = false;
  std::mutex mutex;
  std::condition_variable passed;
  Thread* turn = nullptr;  // the thread that runs; null: the main thread
};
Threads& threads() {
  static Threads& kept = *new Threads;
  return kept;
}

thread_local Thread* gThis = nullptr;

sigset_t allSignals() {
  sigset_t all;
  sigfillset(&all);
  return all;
}

void passTurn(Thread* from, Thread* to) {
  std::unique_lock lock(threads().mutex);
  threads().turn = to;
  threads().passed.notify_all();
  threads().passed.wait(lock, [from] { return threads().turn == from; });
}

void waitForTurn() {
  const sigset_t all = allSignals();
  ::pthread_sigmask(SIG_SETMASK, &all, &gThis->shutOut);
  passTurn(gThis, nullptr);
  ::pthread_sigmask(SIG_SETMASK, &gThis->shutOut, nullptr);
}

// The first clock tick at or after that uptime, so that no wait ends early.
double tickAfter(double uptime) {
  const std::uint64_t nearest = ticksOfSeconds(uptime);
  return secondsOfTicks(secondsOfTicks(nearest) < uptime ? nearest + 1 : nearest);
}

bool isOver(double deadline) {
  return deadline <= virtual_mac::virtualUptime() ||
         virtual_mac::timeAtUptime(deadline) <= virtual_mac::virtualNow();
}

bool hasSomethingToDo(const Thread& thread) {
  return thread.ready || (thread.semaphore != 0 && gSemaphores[thread.semaphore] > 0) ||
         isOver(thread.deadline);
}

// The handler runs here on behalf of the thread whose wait it ends.
void takeSignals() {
  sigset_t pending;
  ::sigpending(&pending);
  for (int signal = 1; signal < signalNumbers; ++signal) {
    if (sigismember(&pending, signal) == 0) continue;
    auto& all = threads().all;
    const auto taker = std::find_if(all.begin(), all.end(), [signal](const Thread& thread) {
      return sigismember(&thread.shutOut, signal) == 0;
    });
    if (taker == all.end()) continue;
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    ::pthread_sigmask(SIG_BLOCK, &one, nullptr);
    taker->ready = true;
  }
}

// False if no thread has work.
bool runOtherThread() {
  auto& all = threads().all;
  if (all.empty()) return false;
  takeSignals();
  const auto next = std::find_if(all.begin(), all.end(), hasSomethingToDo);
  if (next == all.end()) return false;
  passTurn(nullptr, &*next);
  return true;
}

kern_return_t waitOnMainThread(semaphore_t semaphore) {
  if (std::exchange(gNextWaitIsAborted, false)) return KERN_ABORTED;
  waitInCall([semaphore] { return takeOne(semaphore); });
  return KERN_SUCCESS;
}

kern_return_t waitOnThis(semaphore_t semaphore, double deadline) {
  if (takeOne(semaphore)) return KERN_SUCCESS;
  gThis->semaphore = semaphore;
  gThis->deadline = deadline;
  waitForTurn();
  gThis->semaphore = 0;
  gThis->deadline = noDeadline;
  if (std::exchange(gThis->ready, false)) return KERN_ABORTED;
  return takeOne(semaphore) ? KERN_SUCCESS : KERN_OPERATION_TIMED_OUT;
}

}  // namespace

bool onMainThread() { return gThis == nullptr; }

bool hasOtherThreads() { return threads().dispatchHasSome || !threads().all.empty(); }

void noteDispatchThreads() { threads().dispatchHasSome = true; }

void runOtherThreads() {
  while (runOtherThread()) continue;
}

double firstDeadline() {
  double first = noDeadline;
  for (const Thread& thread : threads().all) first = std::min(first, thread.deadline);
  return first;
}

void waitInCall(const std::function<bool()>& over, double moment) {
  if (!onMainThread()) misuse("only the main thread is held in calls");
  for (;;) {
    virtual_mac::raiseMachineSignals();
    do {
      if (over()) return;
    } while (runOtherThread());
    static_cast<void>(virtual_mac::passToward(std::min(moment, virtual_mac::timeAtUptime(firstDeadline()))));
  }
}

void letMainThreadRun() {
  gThis->ready = true;
  waitForTurn();
  gThis->ready = false;
}

}  // namespace brisko::fakes

using namespace brisko::fakes;

extern "C" {

int brisko_stand_in_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                                   void* argument) {
  if (attributes != nullptr) misuse("a thread with attributes, of which nothing is known here");
  if (gFailing == "pthread_create") return EAGAIN;
  const sigset_t all = allSignals();
  sigset_t before;
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  Thread& made = threads().all.emplace_back();
  made.shutOut = before;
  made.real = std::thread([&made, start, argument] {
    gThis = &made;
    {
      std::unique_lock lock(threads().mutex);
      threads().passed.wait(lock, [] { return threads().turn == gThis; });
    }
    gThis->ready = false;
    ::pthread_sigmask(SIG_SETMASK, &gThis->shutOut, nullptr);
    start(argument);
    misuse("a thread ends, of which nothing is known here");
  });
  *thread = made.real.native_handle();
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return 0;
}

kern_return_t semaphore_create(task_port_t task, semaphore_t* semaphore, int policy, int value) {
  if (task != mach_task_self() || policy != SYNC_POLICY_FIFO || gSemaphoresMade + 1 == gSemaphores.size()) {
    return KERN_INVALID_ARGUMENT;
  }
  if (gFailing == "semaphore_create") return KERN_INVALID_ARGUMENT;
  *semaphore = static_cast<semaphore_t>(++gSemaphoresMade);
  gSemaphores[*semaphore] = value;
  return KERN_SUCCESS;
}

kern_return_t semaphore_signal(semaphore_t semaphore) {
  if (!isThere(semaphore)) return KERN_INVALID_ARGUMENT;
  gSemaphores[semaphore] += 1;
  return KERN_SUCCESS;
}

kern_return_t semaphore_wait(semaphore_t semaphore) {
  if (!isThere(semaphore)) return KERN_INVALID_ARGUMENT;
  return onMainThread() ? waitOnMainThread(semaphore) : waitOnThis(semaphore, noDeadline);
}

kern_return_t semaphore_timedwait(semaphore_t semaphore, mach_timespec_t time) {
  if (!isThere(semaphore)) return KERN_INVALID_ARGUMENT;
  if (onMainThread())
    misuse("the main thread waits for a semaphore for a while, of which nothing is known here");
  return waitOnThis(semaphore,
                    tickAfter(brisko::virtual_mac::virtualUptime() + time.tv_sec + time.tv_nsec / 1e9));
}
}
