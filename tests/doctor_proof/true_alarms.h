// tests/doctor_proof/true_alarms.h
// Which alarms of the doctor are true. An ordinary user has a small adapter, works in the sun, stops the
// service, has all data erased, calibrates a Mac that sleeps, writes numbers that are too large, has a band
// in the job, or a macOS that closes the keys. The machine itself, or what its user did, must show it.
#pragma once

#include "client/doctor/diagnosis.h"
#include "doctor_proof/machine_watch.h"

namespace brisko::proof {

[[nodiscard]] bool isTrue(const client::CheckedResult& alarm, const client::Evidence& evidence,
                          const sim::Simulation& simulation, const MachineWatch& watch);

}  // namespace brisko::proof
