// Properties of the live run loop alone: other processes, real signals, and as few wake-ups as possible.

#include "platform/run_loop.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/power_sources.h"
#include "platform/smc_service.h"
#include "sim/seam/live/live_folder.h"
#include "support/testing.h"

namespace {

// The number of waits of the run loop in this process, and of those with a non-zero length.
std::atomic<int> gWaits{0};
std::atomic<int> gLongWaits{0};

}  // namespace

// Replaces the C library's function. Unlike processor time, the number of waits does not depend on how busy
// the computer is.
extern "C" int ppoll(pollfd* events, nfds_t count, const timespec* timeout, const sigset_t* mask) {
  gWaits += 1;
  const bool isLong = timeout == nullptr || timeout->tv_sec != 0 || timeout->tv_nsec != 0;
  if (isLong) gLongWaits += 1;
  timespec left = timeout == nullptr ? timespec{} : *timeout;  // the kernel writes the remaining time
  constexpr std::size_t maskBytes = 8;
  return static_cast<int>(
      ::syscall(SYS_ppoll, events, count, timeout == nullptr ? nullptr : &left, mask, maskBytes));
}

namespace brisko::run_loop_test {
namespace {

using namespace test;

using platform::addRepeatingTimer;
using platform::postMain;
using platform::postMainAfter;
using platform::runMain;
using platform::stopMain;
using virtual_mac::ChangeKind;

std::vector<std::string> wakeSockets(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename();
    if (name.starts_with("wake.")) names.push_back(name);
  }
  return names;
}

// Returns when the thread waits: the loop waits long only for its next event.
void untilItWaits(pid_t thread) {
  const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
  for (std::string state; state != "S";) {
    std::ifstream stream(path);
    std::string number;
    std::string name;
    stream >> number;
    std::getline(stream, name, ')');
    stream >> state;
  }
}

// Runs `work` on another thread, and the loop on this one until it is stopped.
template <class Other>
void runBeside(Other work) {
  std::thread other(work);
  runMain();
  other.join();
}

// The same, but `work` begins when the loop waits.
template <class Other>
void runAndWhenItWaits(Other work) {
  runBeside([work, loop = ::gettid()] {
    untilItWaits(loop);
    work();
  });
}

TEST(LiveRunLoop, isWokenByWorkFromAnotherThread) {
  const LiveFolder folder(test::machineFromNow({}, 1));
  folder.name();
  (void)addRepeatingTimer(3600, [] { FAIL() << "waited for the timer"; });
  runAndWhenItWaits([] { postMain([] { stopMain(); }); });
}

TEST(LiveRunLoop, runsAllWorkOfManyThreads) {
  const LiveFolder folder;
  folder.name();
  constexpr int threads = 4;
  constexpr int each = 500;
  int done = 0;
  std::vector<std::thread> others;
  for (int thread = 0; thread < threads; ++thread) {
    others.emplace_back([&done] {
      for (int time = 0; time < each; ++time) {
        platform::postMainAfter(time % 3, [&done] {
          if (++done == threads * each) stopMain();
        });
      }
    });
  }
  runMain();
  for (std::thread& other : others) other.join();
  EXPECT_EQ(done, threads * each);
}

// At real speed with an hour until the timer, only the datagram can wake the loop in time.
TEST(LiveRunLoop, isWokenWhenAToolChangesTheMachine) {
  LiveFolder folder(test::machineFromNow({}, 1));
  folder.name();
  bool told = false;
  ASSERT_TRUE(platform::addPowerSourceNotification([&] {
    told = true;
    stopMain();
  }));
  (void)addRepeatingTimer(3600, [] { FAIL() << "waited for the timer"; });
  runAndWhenItWaits([&] {
    EXPECT_THAT(wakeSockets(folder.path()), SizeIs(1));
    folder.change({.kind = ChangeKind::unplug});
  });
  EXPECT_TRUE(told);
}

TEST(LiveRunLoop, leavesNoDatagramUnreadAfterBeingWoken) {
  LiveFolder folder(test::machineFromNow({}, 1));
  folder.name();
  for (int time = 0; time < 3; ++time) virtual_mac::wakeHolders(folder.path());  // no process uses it yet
  postMain([&] {
    for (int time = 0; time < 50; ++time) virtual_mac::wakeHolders(folder.path());
  });
  postMainAfter(0.02, [] { stopMain(); });
  runMain();
  // An unread datagram would wake it again and again.
  gWaits = 0;
  postMainAfter(0.05, [] { stopMain(); });
  runMain();
  EXPECT_LE(gWaits, 4);
}

TEST(LiveRunLoop, removesTheSocketsOfDeadProcesses) {
  LiveFolder folder;
  folder.name();
  const pid_t child = ::fork();
  if (child == 0) {
    postMain([] { ::raise(SIGKILL); });
    runMain();
  }
  ::waitpid(child, nullptr, 0);
  EXPECT_THAT(wakeSockets(folder.path()), SizeIs(1));
  virtual_mac::wakeHolders(folder.path());
  EXPECT_THAT(wakeSockets(folder.path()), IsEmpty());
}

TEST(LiveRunLoop, takesOverTheSocketOfADeadProcessWithTheSameId) {
  LiveFolder folder(test::machineFromNow({}, 1));
  folder.name();
  std::ofstream(folder.path() + "/wake." + std::to_string(::getpid())) << "left behind";
  ASSERT_TRUE(platform::addPowerSourceNotification([] { stopMain(); }));
  (void)addRepeatingTimer(3600, [] { FAIL() << "waited for the timer"; });
  runAndWhenItWaits([&] { folder.change({.kind = ChangeKind::unplug}); });
}

std::string longName() { return std::string(120, 'x'); }

TEST(LiveRunLoop, isWokenDespiteALongFolderPath) {
  const test::ScratchFolder scratch;
  const std::string path = scratch.path() + "/" + longName() + "/" + longName();
  std::string reason;
  const auto store = virtual_mac::MachineStore::create(path, test::machineFromNow({}, 1), reason);
  ASSERT_NE(store, nullptr) << reason;
  ::setenv("BRISKO_VIRTUAL_MAC", path.c_str(), 1);
  ASSERT_TRUE(platform::addPowerSourceNotification([] { stopMain(); }));
  (void)addRepeatingTimer(3600, [] { FAIL() << "waited for the timer"; });
  runAndWhenItWaits([&] {
    virtual_mac::apply(store->update().machine(), {.kind = ChangeKind::unplug});
    virtual_mac::wakeHolders(path);
  });
}

// A planned change of the machine between two heartbeats at real speed.
TEST(LiveRunLoop, reportsAPlannedChangeWhenItComes) {
  LiveFolder folder(test::machineFromNow({}, 100));
  folder.name();
  ASSERT_TRUE(platform::addPowerSourceNotification([] { stopMain(); }));
  {
    const auto update = folder.store().update();
    virtual_mac::Machine& machine = update.machine();
    ASSERT_TRUE(virtual_mac::plan(machine, machine.now + 5, {.kind = ChangeKind::unplug}));
  }
  (void)addRepeatingTimer(36'000, [] { FAIL() << "waited for the timer"; });
  runMain();
}

TEST(LiveRunLoop, sleepsUntilAPlannedChange) {
  LiveFolder folder(test::machineFromNow({}, 100));
  folder.name();
  ASSERT_TRUE(platform::addPowerSourceNotification([] { stopMain(); }));
  {
    const auto update = folder.store().update();
    virtual_mac::Machine& machine = update.machine();
    ASSERT_TRUE(
        virtual_mac::plan(machine, virtual_mac::machineTime(machine) + 20, {.kind = ChangeKind::unplug}));
  }
  runMain();
  EXPECT_LE(gWaits, 5) << "for 0.2 s of real time";
}

// With nothing due the loop waits for up to an hour at a time.
TEST(LiveRunLoop, reportsAPlannedChangeAlsoWhenNothingElseIsDue) {
  LiveFolder folder(test::machineFromNow({}, 1'000'000));
  folder.name();
  ASSERT_TRUE(platform::addPowerSourceNotification([] { stopMain(); }));
  {
    const auto update = folder.store().update();
    virtual_mac::Machine& machine = update.machine();
    ASSERT_TRUE(virtual_mac::plan(machine, machine.now + 3 * 3600, {.kind = ChangeKind::unplug}));
  }
  runMain();
}

// By a signal from another process.
void runAndTerminateItWhenItWaits() {
  const pid_t daemon = ::getpid();
  runAndWhenItWaits([daemon] {
    const pid_t other = ::fork();
    if (other == 0) {
      ::kill(daemon, SIGTERM);
      ::_exit(0);
    }
    ::waitpid(other, nullptr, 0);
  });
}

int gHandled = 0;

TEST(LiveRunLoop, handlesASignalFromAnotherProcessWhileItWaits) {
  const LiveFolder folder(test::machineFromNow({}, 1));
  folder.name();
  platform::installSignalHandler(SIGTERM, [](int) {
    ++gHandled;
    stopMain();
  });
  (void)addRepeatingTimer(3600, [] { FAIL() << "waited for the timer"; });
  runAndTerminateItWhenItWaits();
  EXPECT_EQ(gHandled, 1);
}

TEST(LiveRunLoop, runsASignalSourceForAnotherProcessWhileItWaits) {
  const LiveFolder folder(test::machineFromNow({}, 1));
  folder.name();
  platform::addSignalSource(SIGTERM, [] { stopMain(); });
  (void)addRepeatingTimer(3600, [] { FAIL() << "waited for the timer"; });
  runAndTerminateItWhenItWaits();
}

TEST(LiveRunLoop, armsNoTimerWhileTheMachineSleeps) {
  LiveFolder folder;
  folder.name();
  auto setAsleep = [&folder](bool asleep) {
    {
      const auto update = folder.store().update();
      virtual_mac::Machine& machine = update.machine();
      virtual_mac::advance(machine, virtual_mac::machineTime(machine));
      machine.system.asleep = asleep;
    }
    virtual_mac::wakeHolders(folder.path());
  };
  const double begin = platform::uptime();
  double firedAt = 0;
  bool postedRanAsleep = false;
  int waitsAsleep = 0;
  (void)addRepeatingTimer(20, [&] {
    firedAt = platform::uptime() - begin;
    stopMain();
  });
  postMainAfter(5, [&] { setAsleep(true); });
  runBeside([&] {
    while (!folder.store().view().machine().system.asleep) continue;
    // 100 s of machine time, in which the timer would have fired five times.
    const double wakeAt = virtual_mac::machineTime(folder.store().view().machine()) + 100;
    gWaits = 0;
    postMain([&] { postedRanAsleep = folder.store().view().machine().system.asleep; });
    while (virtual_mac::machineTime(folder.store().view().machine()) < wakeAt) continue;
    waitsAsleep = gWaits;
    setAsleep(false);
  });
  EXPECT_GE(firedAt, 20);
  EXPECT_FALSE(postedRanAsleep);
  EXPECT_LE(waitsAsleep, 8) << "for 0.1 s of real time";
  const auto look = folder.store().view();
  EXPECT_GE(look.machine().system.sleptSeconds, 100);
}

void stopCharging() {
  platform::SmcRecord write{};
  platform::SmcRecord output;
  constexpr std::array<std::uint8_t, 4> key{'E', 'T', 'H', 'C'};
  std::copy(key.begin(), key.end(), write.begin());
  write[28] = 4;  // bytes
  write[42] = 6;  // write
  write[48] = 1;
  ASSERT_EQ(platform::exchangeSmc(platform::openSmc().connection, write, output).status,
            platform::kernelSuccess);
  ASSERT_EQ(output[40], 0);
}

// A minute of a steady machine with the daemon's two timers. They wake the loop 8 times, or less often where
// they coincide, and the machine itself never wakes it.
TEST(LiveRunLoop, wakesNoMoreOftenThanItsTimersDo) {
  constexpr double speed = 200;
  LiveFolder folder(test::machineFromNow({.percent = 80}, speed));
  folder.name();
  // Held as by the daemon, for an hour.
  stopCharging();
  folder.store().update().machine().realAnchor -= 3600 / speed;
  ASSERT_TRUE(platform::addPowerSourceNotification([] {}));
  (void)addRepeatingTimer(12, [] {});
  (void)addRepeatingTimer(20, [] {});
  postMainAfter(1, [] { stopMain(); });
  runMain();

  gLongWaits = 0;
  postMainAfter(61, [] { stopMain(); });
  runMain();
  EXPECT_LE(gLongWaits, 8 + 1) << "the last one is the end of this test";
  EXPECT_GT(gLongWaits, 2);
}

}  // namespace
}  // namespace brisko::run_loop_test
