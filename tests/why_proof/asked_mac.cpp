#include "why_proof/asked_mac.h"

#include <csignal>

#include "client/linux/machine_facts.h"

namespace brisko {
namespace {

// As launchd names it.
std::string signalText(int number) {
  const char* name = number == SIGABRT ? "Abort trap" : number == SIGKILL ? "Killed" : "Signal";
  return std::string(name) + ": " + std::to_string(number);
}

}  // namespace

proof::AskedMac& proof::askedMac() {
  static AskedMac mac;
  return mac;
}

// As a Mac's launch service answers.
client::SystemFacts client::readSystem() {
  const proof::AskedMac& mac = proof::askedMac();
  if (mac.machine == nullptr) return {};
  SystemFacts facts = factsOf(*mac.machine);
  facts.job = Job{.installed = mac.serviceIsLoaded};
  if (mac.serviceIsLoaded) facts.job->arguments = mac.arguments;
  if (mac.daemonRuns) facts.job->processId = 1;
  facts.job->lastExitCode = mac.exitStatus;
  if (mac.endSignal) facts.job->lastSignal = signalText(*mac.endSignal);
  return facts;
}

}  // namespace brisko
