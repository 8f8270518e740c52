// tests/sim/invariants/invariants_fixture.h
// Runs the invariants' rules on ticks whose decisions and writes the test makes itself.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "sim/invariants/fake_observation.h"
#include "sim/invariants/rule.h"
#include "state/charge_state_record.h"
#include "support/on_virtual_mac.h"

namespace brisko::lab {

using TestedAction = std::function<void()>;

class InvariantsFixture : public test::OnVirtualMac {
 protected:
  using test::OnVirtualMac::OnVirtualMac;

  // The rules start with what is on the machine now.
  void startRules(std::initializer_list<void (*)(Rules&)> adders) {
    rules_.clear();
    for (const auto add : adders) add(rules_);
    observation.givenSummary.journalSeen = written();
  }

  // Reports a tick that does `action`; `finish` adds the tick's result to the record.
  void runTick(const TestedAction& action, const std::function<void(TickRecord&)>& finish) {
    TickRecord tick{.at = observation.machine().now, .journalFrom = written(), .before = gState};
    for (const auto& rule : rules_) rule->tickBegins(observation, violated_);
    if (action) action();
    tick.journalTo = written();
    tick.settings = settings;
    tick.linesTo = lines.size();
    finish(tick);
    for (const auto& rule : rules_) rule->tickEnded(tick, observation, violated_);
    ticks_.push_back(tick);
  }

  // Reports an iteration of the run loop with the ticks and log lines since the last one.
  void endIteration(const std::vector<std::string>& files = {}) {
    LoopIteration iteration{.at = observation.machine().now,
                            .journalFrom = observation.givenSummary.journalSeen,
                            .journalTo = written(),
                            .lines = std::exchange(lines, {}),
                            .ticks = std::exchange(ticks_, {})};
    for (const std::string& path : files) iteration.files.push_back({.path = path});
    for (const auto& rule : rules_) rule->iterationEnded(iteration, observation, violated_);
    observation.givenSummary.journalSeen = written();
  }

  // Reports that the process continues after others had their turn.
  void resume() {
    for (const auto& rule : rules_) rule->onResume(observation);
  }

  // Reports an end of the process that follows `action`.
  using CheckAtEnd = void (*)(const ProcessEnd&, const Observation&, const Violated&);
  void endProcess(ProcessEnd end, const TestedAction& action, std::initializer_list<CheckAtEnd> checks) {
    end.rest.journalFrom = written();
    if (action) action();
    end.rest.journalTo = written();
    for (const auto check : checks) check(end, observation, violated_);
  }

  void logs(const std::string& text) { lines.push_back("2026-03-01T08:15:30Z  " + text); }

  // The numbers of the invariants that were violated since the last call.
  std::vector<int> found() { return std::exchange(found_, {}); }

  FakeObservation observation{mac.store()};
  Settings settings;
  std::vector<std::string> lines;

 private:
  [[nodiscard]] std::uint64_t written() const { return observation.journal().written; }

  Rules rules_;
  std::vector<TickRecord> ticks_;
  std::vector<int> found_;
  Violated violated_ = [this](const Invariant& invariant, const std::string&) {
    found_.push_back(invariant.number);
  };
};

}  // namespace brisko::lab
