#include "sim/scenario/call_faults.h"

#include <array>
#include <csignal>
#include <sstream>
#include <utility>

#include <unistd.h>

#include "base/files.h"
#include "base/process_flags.h"
#include "sim/file_calls/file_calls.h"
#include "sim/machine/machine_store.h"
#include "sim/process/scratch.h"
#include "state/calibration_state.h"
#include "state/charge_state_record.h"
#include "state/sleep_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::Change;
using virtual_mac::ChangeKind;
using virtual_mac::WatchedCall;

// The history has a file for each day, and all of them are one kind of file.
std::string textOf(const WatchedCall& call) {
  std::string text(call.name);
  if (call.subject.empty()) return text;
  text += ' ';
  const std::string& root = virtual_mac::attachedMachine()->volumeRoot();
  const bool isPath = call.subject.starts_with(root + '/');
  for (const char character : isPath ? call.subject.substr(root.size()) : call.subject)
    text += isPath && character >= '0' && character <= '9' ? '#' : character;
  return text;
}

// What keeps such calls failing, in the machine itself, where the invariants see it too. The change does
// nothing if the machine has no such fault.
Change lastingFaultOf(const WatchedCall& call) {
  Change change{.key = call.key, .status = platform::kernelError};
  if (call.isKeyWrite()) {
    change.kind = ChangeKind::keyOnWrite;
    change.number = static_cast<double>(virtual_mac::OnWrite::kernelError);
  } else if (call.key != 0) {
    change.kind = ChangeKind::keyReadStatus;
  } else if (call.name == "powerSources") {
    change.kind = ChangeKind::powerSources;
    change.number = static_cast<double>(virtual_mac::PowerSourceFault::noSnapshot);
  } else if (call.name == "registryProperties" || call.name == "registryProperty") {
    change.kind = ChangeKind::property;
    change.number = static_cast<double>(virtual_mac::PropertyFault::missing);
    change.text = virtual_mac::shortText(call.subject);
  }
  return change;
}

std::string allOf(int file) {
  std::string text;
  std::array<char, 65536> part{};
  for (;;) {
    const ssize_t count = ::pread(file, part.data(), part.size(), static_cast<off_t>(text.size()));
    if (count <= 0) return text;
    text.append(part.data(), static_cast<std::size_t>(count));
  }
}

// A record is a line of four fields with tabs between them.
std::vector<CallPoint> pointsIn(const std::string& records) {
  std::vector<CallPoint> points;
  std::istringstream lines(records);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    CallPoint point;
    std::string number;
    std::string isKeyWrite;
    std::getline(fields, number, '\t');
    std::getline(fields, isKeyWrite, '\t');
    std::getline(fields, point.call, '\t');
    std::getline(fields, point.state, '\t');
    point.number = std::stoull(number);
    point.isKeyWrite = isKeyWrite == "1";
    points.push_back(std::move(point));
  }
  return points;
}

}  // namespace

const char* nameOf(CallFault fault) {
  switch (fault) {
    case CallFault::fromThenOn:
      return "from-then-on";
    case CallFault::killed:
      return "killed";
    case CallFault::once:
      break;
  }
  return "once";
}

CallFaults::CallFaults() : records_(sim::namelessFile()) {}

CallFaults::CallFaults(CallPoint point, CallFault fault)
    : point_(std::move(point)), fault_(fault), records_(-1) {}

CallFaults::~CallFaults() {
  if (records_ >= 0) ::close(records_);
}

void CallFaults::processBegins(std::function<void(const WatchedCall&)> fails, std::function<void()> killed) {
  fails_ = std::move(fails);
  killed_ = std::move(killed);
  hasStarted_ = false;
  occurrences_.clear();
  virtual_mac::watchFileCalls();
  virtual_mac::watchCalls([this](const WatchedCall& call) { return noteCall(call); });
}

void CallFaults::iterationEnded() { hasStarted_ = true; }

bool CallFaults::noteCall(const WatchedCall& call) {
  const std::uint64_t number = ++shared_->calls;
  if (!point_) {
    record(call);
    return false;
  }
  if (number == point_->number) return fail(call);
  if (number < point_->number || fault_ != CallFault::fromThenOn || textOf(call) != point_->call)
    return false;
  fails_(call);
  return true;
}

void CallFaults::record(const WatchedCall& call) const {
  const std::string text = textOf(call);
  const std::string state = stateNow();
  std::uint64_t& occurrences = occurrences_[text + '\t' + state];
  if (++occurrences > mostOccurrences && !call.isKeyWrite()) return;
  static_cast<void>(writeAll(records_, std::to_string(shared_->calls) + '\t' +
                                           (call.isKeyWrite() ? "1" : "0") + '\t' + text + '\t' + state +
                                           '\n'));
}

bool CallFaults::fail(const WatchedCall& call) {
  shared_->failedAt = virtual_mac::attachedMachine()->view().machine().now;
  shared_->differed = textOf(call) != point_->call || stateNow() != point_->state;
  if (fault_ != CallFault::killed) {
    fails_(call);
    if (fault_ == CallFault::fromThenOn) {
      virtual_mac::apply(virtual_mac::attachedMachine()->update().machine(), lastingFaultOf(call));
    }
    return true;
  }
  killed_();
  ::raise(SIGKILL);
  return true;
}

std::string CallFaults::stateNow() const {
  if (!hasStarted_) return "starting";
  std::string state = gPurged ? "erased" : gDormant ? "dormant" : gReleased ? "released" : stateName(gState);
  if (gCal.phase != CalPhase::idle) state += std::string(", calibration ") + phaseName(gCal.phase);
  if (gSleepPendingSince) state += ", sleep announced";
  return state;
}

// A call occurs the first three times in the scenario, not in each of its processes.
std::vector<CallPoint> CallFaults::points() const {
  std::vector<CallPoint> points;
  std::map<std::string, std::uint64_t> occurrences;
  for (CallPoint& point : pointsIn(allOf(records_))) {
    if (++occurrences[point.call + '\t' + point.state] <= mostOccurrences || point.isKeyWrite)
      points.push_back(std::move(point));
  }
  return points;
}

std::uint64_t CallFaults::kinds() const {
  std::map<std::string, bool> kinds;
  for (const CallPoint& point : points()) kinds[point.call + '\t' + point.state] = true;
  return kinds.size();
}

std::optional<double> CallFaults::failedAt() const {
  if (shared_->failedAt < 0) return std::nullopt;
  return shared_->failedAt;
}

}  // namespace brisko::lab
