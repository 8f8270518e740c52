// The contract of platform/run_loop.h for signals.

#include <csignal>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <signal.h>

#include "platform/clock.h"
#include "platform/run_loop.h"
#include "platform/smc_service.h"
#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::signal_test {
namespace {

using namespace test;
using virtual_mac::ChangeKind;

// Handlers are plain functions, so they record their calls here. Every test runs in a separate process.
std::vector<std::string> gEvents;

void tell(int signal) { gEvents.push_back(signal == SIGINT ? "SIGINT" : "SIGTERM"); }

void recordAndStop(int signal) {
  tell(signal);
  stopMain();
}

// Runs enough iterations for everything that has arrived, then `work`.
void afterAWhile(Work work, int iterations = 5) {
  if (iterations == 0) return work();
  postMain([work = std::move(work), iterations] { afterAWhile(work, iterations - 1); });
}

bool isShutOut(int signal) {
  sigset_t mask;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  return sigismember(&mask, signal) == 1;
}

TEST(SignalContract, aHandlerNeverInterruptsAPieceOfWork) {
  const ContractMachine mac;
  installSignalHandler(SIGTERM, tell);
  postMain([] {
    ::raise(SIGTERM);
    gEvents.emplace_back("end of work");
  });
  postMainAfter(100, [] { stopMain(); });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("end of work", "SIGTERM"));
}

TEST(SignalContract, aHandlerRunsBeforeTheNextPieceOfWork) {
  const ContractMachine mac;
  installSignalHandler(SIGINT, tell);
  postMain([] { ::raise(SIGINT); });
  postMain([] {
    gEvents.emplace_back("next work");
    stopMain();
  });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("SIGINT", "next work"));
}

TEST(SignalContract, aHandledSignalWaitsForTheLoop) {
  const ContractMachine mac;
  installSignalHandler(SIGTERM, tell);
  ::raise(SIGTERM);
  pause(4);
  EXPECT_THAT(gEvents, IsEmpty());
  postMain([] { stopMain(); });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("SIGTERM"));
}

TEST(SignalContract, aHandledSignalDoesNotShortenAPause) {
  ContractMachine mac;
  installSignalHandler(SIGTERM, tell);
  mac.later(1, {.kind = ChangeKind::signal, .number = SIGTERM});
  const double before = uptime();
  pause(4);
  EXPECT_GE(uptime(), before + 4);
}

// The state of the signals under nohup, or in a child of a process that blocks them.
void inheritIgnoredAndBlocked(int signal) {
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  ::sigaction(signal, &ignored, nullptr);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, signal);
  ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

TEST(SignalContract, aHandlerTakesASignalThatWasIgnoredAndBlockedBefore) {
  const ContractMachine mac;
  for (const int signal : {SIGINT, SIGTERM}) {
    inheritIgnoredAndBlocked(signal);
    installSignalHandler(signal, recordAndStop);
    postMain([signal] { ::raise(signal); });
    runMain();
  }
  EXPECT_THAT(gEvents, ElementsAre("SIGINT", "SIGTERM"));
}

TEST(SignalContract, aSourceTakesASignalThatWasIgnoredAndBlockedBefore) {
  const ContractMachine mac;
  inheritIgnoredAndBlocked(SIGTERM);
  addSignalSource(SIGTERM, [] {
    gEvents.emplace_back("source");
    stopMain();
  });
  postMain([] { ::raise(SIGTERM); });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("source"));
}

void raiseTheOtherOne(int signal) {
  EXPECT_TRUE(isShutOut(SIGINT));
  EXPECT_TRUE(isShutOut(SIGTERM));
  tell(signal);
  if (signal == SIGINT) ::raise(SIGTERM);
  gEvents.emplace_back("end of handler");
}

TEST(SignalContract, bothSignalsAreBlockedWhileAHandlerRuns) {
  const ContractMachine mac;
  installSignalHandler(SIGINT, raiseTheOtherOne);
  installSignalHandler(SIGTERM, raiseTheOtherOne);
  postMain([] { ::raise(SIGINT); });
  postMainAfter(100, [] { stopMain(); });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("SIGINT", "end of handler", "SIGTERM", "end of handler"));
}

TEST(SignalContract, aHandlerMayStopTheLoop) {
  ContractMachine mac;
  installSignalHandler(SIGTERM, recordAndStop);
  (void)addRepeatingTimer(12, [] { gEvents.emplace_back("heartbeat"); });
  mac.later(30, {.kind = ChangeKind::signal, .number = SIGTERM});
  runMain();
  EXPECT_EQ(gEvents.back(), "SIGTERM");
  if (ContractMachine::timeIsExact()) {
    EXPECT_THAT(gEvents, ElementsAre("heartbeat", "heartbeat", "SIGTERM"));
  }
}

TEST(SignalContract, aHandlerThatStopsTheLoopStopsItBeforeTheNextPieceOfWork) {
  const ContractMachine mac;
  installSignalHandler(SIGTERM, recordAndStop);
  postMain([] { ::raise(SIGTERM); });
  postMain([] { gEvents.emplace_back("next work"); });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("SIGTERM"));
}

TEST(SignalContract, aSignalSourceRunsItsWorkAsAPieceOfWork) {
  const ContractMachine mac;
  addSignalSource(SIGTERM, [] {
    EXPECT_TRUE(isShutOut(SIGTERM));
    gEvents.emplace_back("source");
    stopMain();
  });
  postMain([] {
    ::raise(SIGTERM);
    gEvents.emplace_back("end of work");
  });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("end of work", "source"));
}

TEST(SignalContract, severalSignalsBeforeTheSourceRunsCountAsOne) {
  const ContractMachine mac;
  addSignalSource(SIGTERM, [] { gEvents.emplace_back("source"); });
  postMain([] {
    for (int time = 0; time < 3; ++time) ::raise(SIGTERM);
    afterAWhile([] {
      ::raise(SIGTERM);
      afterAWhile([] { stopMain(); });
    });
  });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("source", "source"));
}

TEST(SignalContract, aSignalSourceKeepsTheProcessAliveDuringAPause) {
  const ContractMachine mac;
  addSignalSource(SIGINT, [] { gEvents.emplace_back("source"); });
  ::raise(SIGINT);
  pause(5);
  EXPECT_THAT(gEvents, IsEmpty());
  afterAWhile([] { stopMain(); });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("source"));
}

TEST(SignalContract, eachSourceHasItsOwnWork) {
  const ContractMachine mac;
  addSignalSource(SIGINT, [] { gEvents.emplace_back("source of SIGINT"); });
  addSignalSource(SIGTERM, [] { gEvents.emplace_back("source of SIGTERM"); });
  postMain([] {
    ::raise(SIGTERM);
    afterAWhile([] { stopMain(); });
  });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("source of SIGTERM"));
}

TEST(SignalContract, aSignalFromAnExchangeIsTakenOnceTheWorkIsDone) {
  ContractMachine mac;
  installSignalHandler(SIGTERM, recordAndStop);
  const SmcConnection connection = openSmc().connection;
  mac.change({.kind = ChangeKind::signalAtExchange, .number = SIGTERM, .status = 2});
  postMain([connection] {
    SmcRecord output;
    for (int time = 0; time < 3; ++time) (void)exchangeSmc(connection, {}, output);
    gEvents.emplace_back("end of work");
  });
  runMain();
  EXPECT_THAT(gEvents, ElementsAre("end of work", "SIGTERM"));
}

void exchangeTwice(SmcConnection connection) {
  std::signal(SIGINT, SIG_DFL);  // whatever this process inherited
  SmcRecord output;
  (void)exchangeSmc(connection, {}, output);
  std::fputs("first exchange done\n", stderr);
  (void)exchangeSmc(connection, {}, output);
  std::fputs("second exchange done\n", stderr);
}

TEST(SignalContractDeathTest, withoutAHandlerASignalEndsTheProcessRightAfterItsExchange) {
  ContractMachine mac;
  const SmcConnection connection = openSmc().connection;
  mac.change({.kind = ChangeKind::signalAtExchange, .number = SIGINT, .status = 2});
  EXPECT_EXIT(exchangeTwice(connection), ::testing::KilledBySignal(SIGINT), "^first exchange done\n$");
}

TEST(SignalContract, aSignalFromBeforeTheControllerWasOpenedHasNoEffect) {
  ContractMachine mac;
  mac.change({.kind = ChangeKind::signal, .number = SIGTERM});
  const SmcConnection connection = openSmc().connection;
  SmcRecord output;
  (void)exchangeSmc(connection, {}, output);
  postMainAfter(100, [] { stopMain(); });
  runMain();
  EXPECT_EQ(mac.record().pendingSignals, 0U);
}

}  // namespace
}  // namespace brisko::platform::signal_test
