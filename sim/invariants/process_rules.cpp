#include <algorithm>
#include <cmath>
#include <csignal>
#include <string_view>

#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "sim/invariants/observed.h"
#include "sim/invariants/preconditions.h"
#include "sim/invariants/rule.h"
#include "state/calibration_state.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::ClientRequest;
using virtual_mac::JournalEntry;
using virtual_mac::RequestKind;
using virtual_mac::RequestStage;

// --- The calibration

constexpr Invariant calibrationPhases{27,
                                      "A calibration goes through its phases in their order, one in a tick, "
                                      "and banks only time on the adapter at full charge."};

CalPhase nextOf(CalPhase phase) {
  return phase == CalPhase::restore ? CalPhase::idle
                                    : static_cast<CalPhase>(static_cast<std::uint8_t>(phase) + 1);
}

class Calibration final : public Rule {
 public:
  void tickBegins(const Observation&, const Violated& violated) override {
    if (seen_ && phase_ != gCal.phase) violated(calibrationPhases, "the phase changed between two ticks");
    seen_ = true;
    phase_ = gCal.phase;
    banked_ = gCal.soakBanked;
    runs_ = gCal.runs.size();
  }

  void tickEnded(const TickRecord&, const Observation& observation, const Violated& violated) override {
    if (gCal.phase != phase_) checkStep(violated);
    if (gCal.runs.size() != runs_ && gCal.runs.size() > mostRuns) {
      violated(calibrationPhases, std::to_string(gCal.runs.size()) + " runs are kept");
    }
    const double grown = gCal.soakBanked - banked_;
    if (phase_ == CalPhase::soak && gCal.phase == CalPhase::soak && grown != 0) {
      checkBanked(grown, observation, violated);
    } else if (gCal.phase == phase_ && grown != 0) {
      violated(calibrationPhases, std::string("soak was banked while in ") + phaseName(phase_));
    }
    tickedAt_ = observation.machine().now;
    phase_ = gCal.phase;
  }

 private:
  static constexpr std::size_t mostRuns = 40;
  static constexpr double mostBanked = 120;  // seconds, in one tick

  void checkStep(const Violated& violated) const {
    // A calibration may be cancelled, stall or end.
    if (gCal.phase == CalPhase::idle || gCal.phase == nextOf(phase_)) return;
    // If the battery is full already, the first phase ends in the tick that begins it.
    const bool beginsFull = phase_ == CalPhase::idle && gCal.phase == CalPhase::drain && gLastPct > 99;
    if (beginsFull) return;
    violated(calibrationPhases, std::string("from ") + phaseName(phase_) + " to " + phaseName(gCal.phase));
  }

  void checkBanked(double grown, const Observation& observation, const Violated& violated) const {
    if (grown < 0) {
      // When the clock is set back, the time gained that way is subtracted again.
      if (observation.disturbances().clockSteppedBackAt < tickedAt_)
        violated(calibrationPhases, "banked soak was lost");
      return;
    }
    if (grown > mostBanked + std::abs(gCal.soakBanked) * 1e-12) {
      violated(calibrationPhases, std::to_string(grown) + " s of soak were banked in one tick");
    }
    if (!adapterIsSeen(observation.machine())) violated(calibrationPhases, "soak was banked on battery");
    if (gLastPct <= 99) violated(calibrationPhases, "soak was banked at " + std::to_string(gLastPct) + "%");
  }

  bool seen_ = false;
  CalPhase phase_ = CalPhase::idle;
  double banked_ = 0;
  std::size_t runs_ = 0;
  double tickedAt_ = 0;  // machine time of the tick before
};

// --- Dormant or released

constexpr Invariant nothingAtRest{30, "When dormant or released nothing is driven and nothing published."};

class AtRest final : public Rule {
 public:
  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    // In the iteration in which dormancy or a release begins, everything is handed back; in the one in which
    // it ends, it is taken again.
    const bool dormant = wasDormant_ && gDormant;
    const bool becomesDormant = !wasDormant_ && gDormant;
    const bool released = wasReleased_ && gReleased;
    wasDormant_ = gDormant;
    wasReleased_ = gReleased;
    if (!dormant && !released) return;
    const auto replies = [&](RequestKind kind) {
      return firstEntry(observation, iteration.journalFrom, iteration.journalTo,
                        [kind](const JournalEntry& entry) { return isReply(entry, kind); }) != nullptr;
    };
    forEntries(observation, iteration.journalFrom, iteration.journalTo, [&](const JournalEntry& entry) {
      if (isGateWrite(entry)) violated(nothingAtRest, "a key of the gate was written at rest");
      if (dormant && isLightWrite(entry)) violated(nothingAtRest, "the light was written while dormant");
      return true;
    });
    // A repeated request for a release or an erasing hands the limit back once more, and so does deleting the
    // app meanwhile. None of that counts as driving it.
    const bool handsBack =
        replies(RequestKind::releaseCharge) || replies(RequestKind::purgeAllData) || becomesDormant;
    if (released && !handsBack &&
        firstEntry(observation, iteration.journalFrom, iteration.journalTo, isNativeWrite) != nullptr) {
      violated(nothingAtRest, "macOS's limit was written although the charge is released");
    }
    for (const FileChange& change : iteration.files) {
      if (!isWritten(change)) continue;
      const bool published = change.path == statusPath || change.path.starts_with(historyDir);
      if (published) violated(nothingAtRest, change.path + " was written at rest");
      // New settings from the app are stored in this state too.
      const bool asked = replies(RequestKind::applySettings);
      if (dormant && change.path == gConfigPath && !asked)
        violated(nothingAtRest, "a tick wrote the settings at rest");
    }
  }

 private:
  bool wasDormant_ = false;
  bool wasReleased_ = false;
};

// --- Each request has one reply

class Replies final : public Rule {
 public:
  // Before the daemon listens: nobody is left to answer the requests that an earlier process took.
  void tickBegins(const Observation& observation, const Violated&) override {
    if (met_) return;
    met_ = true;
    for (const ClientRequest& request : observation.machine().control.requests) {
      if (isUnanswered(request)) abandoned_ = std::max(abandoned_, request.number);
    }
  }

  void iterationEnded(const LoopIteration& iteration, const Observation& observation,
                      const Violated& violated) override {
    const auto& control = observation.machine().control;
    if (control.sent == 0 || (!waiting_ && iteration.journalFrom == iteration.journalTo)) return;
    std::optional<std::uint64_t> waiting;
    for (const ClientRequest& request : control.requests) {
      if (request.number == 0) continue;
      if (request.answers > 1)
        violated(ticksAndReplies, std::to_string(request.answers) + " replies to one request");
      if (!isUnanswered(request) || request.number <= abandoned_) continue;
      waiting = std::min(waiting.value_or(request.number), request.number);
    }
    // The work item that replies waits in the queue, but not for time to pass.
    const double uptime = virtual_mac::uptimeOf(observation.machine());
    if (waiting != waiting_) waitsSince_ = uptime;
    waiting_ = waiting;
    if (waiting_ && uptime - waitsSince_ > timeout) violated(ticksAndReplies, "a request has no reply");
  }

 private:
  static constexpr double timeout = 5;  // seconds

  static bool isUnanswered(const ClientRequest& request) {
    return request.number != 0 && request.stage == RequestStage::delivered && request.answers == 0;
  }

  bool met_ = false;
  std::uint64_t abandoned_ = 0;           // number of the last one of an earlier process
  std::optional<std::uint64_t> waiting_;  // number of the first request that waits for its reply
  double waitsSince_ = 0;                 // uptime
};

// --- How a process ends

constexpr Invariant noEndByInput{32,
                                 "Nothing that stands in a file or comes from the hardware ends the process, "
                                 "but for the numbers that cannot be kept."};

// On a full disk the lab may lose the last output of a process.
bool messageStartsWith(const std::string& errors, std::string_view words, const Disturbances& disturbances) {
  return errors.find(words) != std::string::npos || (disturbances.diskIsFull && errors.empty());
}

bool isInTheBook(int status, const std::string& errors, const Disturbances& disturbances) {
  constexpr int misplaced = 1;    // not root, or no controller to talk to
  constexpr int unsupported = 2;  // no way to control the charge
  if (status == 0) return true;
  return (status == misplaced || status == unsupported) && messageStartsWith(errors, "⛔️ ", disturbances);
}

bool wasSent(int signal, const Disturbances& disturbances) {
  return ((disturbances.signalsSent | disturbances.signalsToCome) >> static_cast<unsigned>(signal) & 1U) != 0;
}

// A number that cannot be stored ends the process with a message about it.
bool isFatalByTheBook(int signal, const std::string& errors, const Disturbances& disturbances) {
  return signal == SIGABRT && disturbances.unstorableFiles != 0 &&
         messageStartsWith(errors, "brisko-daemon: ", disturbances);
}

}  // namespace

void addProcessRules(Rules& rules) {
  rules.push_back(std::make_unique<Calibration>());
  rules.push_back(std::make_unique<AtRest>());
  rules.push_back(std::make_unique<Replies>());
}

void checkProcessAtEnd(const ProcessEnd& end, const Observation& observation, const Violated& violated) {
  const Disturbances& disturbances = observation.disturbances();
  const std::string words = end.errors.substr(0, end.errors.find('\n'));
  if (end.status && !isInTheBook(*end.status, end.errors, disturbances)) {
    violated(noEndByInput, "it ended with status " + std::to_string(*end.status) + ": " + words);
  }
  if (end.signal && !wasSent(*end.signal, disturbances) &&
      !isFatalByTheBook(*end.signal, end.errors, disturbances)) {
    violated(noEndByInput, "signal " + std::to_string(*end.signal) + " ended it: " + words);
  }
}

}  // namespace brisko::lab
