#include "client/linux/machine_facts.h"

namespace brisko::client {

SystemFacts factsOf(const virtual_mac::Machine& machine) {
  SystemFacts facts;
  if (machine.adapter.present) facts.adapterWatts = machine.adapter.watts;
  facts.bootedAt = machine.system.bootedAt + machine.system.wallOffset;
  if (machine.sleep.wokenAt >= 0) facts.wokeAt = machine.sleep.wokenAt + machine.system.wallOffset;
  facts.asleep = machine.system.asleep;
  return facts;
}

}  // namespace brisko::client
