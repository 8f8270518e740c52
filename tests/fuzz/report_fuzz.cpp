// A bug report is read as days or refused with a reason, never both. What was read can be reconstructed as a
// valid scenario, and agrees with itself. An input is an archive, or the members of one: each with its name
// in a line of its own and a zero byte at its end.
#include "fuzz/bytes.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "report/ustar.h"
#include "sim/replay/comparison.h"
#include "sim/replay/reconstruct.h"
#include "sim/replay/reported_days.h"
#include "sim/scenario/scenario.h"

namespace brisko::lab::report_fuzz {
namespace {

std::string archiveIn(std::string_view text) {
  std::vector<ArchiveMember> members;
  Bytes bytes(text);
  while (!bytes.atEnd()) {
    Bytes member(bytes.upTo('\0'));
    std::string name = "brisko-report/" + std::string(member.upTo('\n'));
    members.push_back({std::move(name), std::string(member.rest())});
  }
  return ustarArchive(members, 0);
}

void requireOrder(const Trace& trace) {
  for (std::size_t index = 1; index < trace.sightings.size(); ++index)
    require(trace.sightings[index - 1].time <= trace.sightings[index].time);
  for (std::size_t index = 1; index < trace.lines.size(); ++index)
    require(trace.lines[index - 1].time <= trace.lines[index].time);
}

// Reading a scenario takes longer than everything else, so only one in sixteen is read.
void requireValidScenario(const Reconstruction& reconstruction) {
  static unsigned count = 0;
  Diagnostics diagnostics("the replay");
  if (count++ % 16 == 0)
    require(readScenario(scenarioText(reconstruction.scenario), diagnostics).has_value());
  std::int64_t before = 0;
  for (const TimedAction& action : reconstruction.scenario.timedActions) {
    require(action.at >= before && action.at <= reconstruction.scenario.seconds);
    before = action.at;
  }
}

void tryArchive(std::string_view archive) {
  const ReportReading reading = readReport(archive);
  require(reading.days.has_value() == reading.error.empty());
  if (!reading.days) return;
  require(!reading.days->trace.sightings.empty());
  requireOrder(reading.days->trace);
  const Comparison comparison = compare(reading.days->trace, reading.days->trace);
  require(comparison.departures.empty() && comparison.withinThree == comparison.charge.size());
  for (const StateAgreement& agreement : comparison.states) require(agreement.agreed == agreement.reported);
  requireValidScenario(reconstruct(*reading.days));
}

void tryReport(std::string_view text) {
  tryArchive(text);
  tryArchive(archiveIn(text));
}

const FuzzTarget target("report", tryReport);

}  // namespace
}  // namespace brisko::lab::report_fuzz
