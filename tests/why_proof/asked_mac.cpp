#include "why_proof/asked_mac.h"

#include "client/linux/machine_facts.h"

namespace brisko {

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
  return facts;
}

}  // namespace brisko
