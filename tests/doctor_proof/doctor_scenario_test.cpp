// What the doctor finds on virtual Macs with something wrong, after each step of a scenario. All but the
// launch service, commands and the controller's keys is what a person would see.
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "client/doctor/diagnosis.h"
#include "client/doctor/gathering.h"
#include "sim/scenario/run_scenario.h"
#include "support/files.h"
#include "why_proof/asked_scenario.h"

namespace brisko::proof::doctor_scenario_test {
namespace {

using Ids = std::set<std::string>;

struct Case {
  const char* scenario;
  Ids found;  // at any of its steps, and nothing else at none
};

// The findings of all steps at which somebody could sit in front of the Mac.
Ids foundIn(const std::string& name) {
  const std::string path = std::string(BRISKO_SCENARIOS) + "/" + name + ".json";
  lab::Diagnostics diagnostics(path);
  const auto scenario = lab::readScenario(test::contents(path), diagnostics);
  if (!scenario) {
    ADD_FAILURE() << diagnostics.texts().front();
    return {};
  }
  Ids ids;
  lab::RunOptions run;
  run.afterStep = [&](const sim::Simulation& simulation) {
    if (!isFullyAwake(simulation.machine()) || isBeingStarted(simulation)) return;
    showToClient(simulation, *scenario);
    client::Evidence evidence = client::gatherFiles(client::Volume());
    evidence.errorLog = client::gathered(simulation.errors());  // which launchd writes to a file
    for (const client::CheckedResult& each : client::diagnose(evidence).findings) ids.insert(each.check->id);
  };
  const lab::Outcome outcome = runScenario(*scenario, diagnostics, run);
  EXPECT_TRUE(outcome.failures.empty()) << outcome.failures.front();
  return ids;
}

std::string textOf(const Ids& ids) {
  std::string text;
  for (const std::string& id : ids) text += " " + id;
  return text;
}

TEST(DoctorOnAVirtualMac, findsWhatIsWrongWithIt) {
  ::setenv("TZ", "UTC", 1);
  const std::vector<Case> cases{
      {"plugged-in-at-seventy-stops-at-eighty", {}},
      {"the-limit-holds-after-a-restart-of-the-mac", {}},
      {"settings-that-no-computer-can-hold", {"D06"}},
      {"a-mac-without-any-charge-key", {"D07"}},
      {"the-user-has-all-data-erased", {"D14"}},
      {"the-app-in-the-bin", {"D15"}},
      {"the-service-is-removed-by-the-app", {"D01", "D16"}},
      // Its job has --limit.
      {"settings-that-are-invalid-and-then-fixed", {"D19", "D22"}},
      {"charging-continues-although-the-key-was-accepted", {"D24"}},
      {"macos-holds-no-limit-below-eighty", {"D27"}},
      {"an-upgrade-to-a-macos-without-a-limit-of-its-own", {"D29"}},
      {"an-adapter-too-weak-for-the-mac", {"D31"}},
      {"a-hot-car", {"D33"}},
      {"the-adapter-cut-does-nothing", {"D34"}},
      {"a-calibration-without-an-adapter-is-given-up", {"D36"}},
      {"a-night-that-begins-at-twenty", {"D37"}},
      {"a-disk-that-is-full", {"D38"}},
      {"the-clock-is-set-back", {"D39"}},
      // It changes 14 times an hour, and the check begins above 20.
      {"a-late-power-source", {}},
      {"the-adapter-key-is-gone", {"D41"}},
  };
  for (const Case& each : cases)
    EXPECT_EQ(textOf(foundIn(each.scenario)), textOf(each.found)) << each.scenario;
}

}  // namespace
}  // namespace brisko::proof::doctor_scenario_test
