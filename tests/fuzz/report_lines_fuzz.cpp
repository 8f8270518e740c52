// What a bug report takes over from texts of any bytes: whole lines that could not carry anything of their
// own. Taken over once more, they are the same.
#include <algorithm>
#include <array>
#include <string>

#include "client/report_json.h"
#include "client/report_lines.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "report/terminal_text.h"

namespace brisko::report_lines_fuzz {
namespace {

using client::KeptText;

constexpr std::array<KeptText (*)(std::string_view), 4> lineFilters{
    client::keptLog, client::keptStandardError, client::keptProbe, client::keptSelfTest};
constexpr std::array<KeptText (*)(std::string_view), 8> jsonFilters{
    client::keptStatus,  client::keptConfig, client::keptStatistics, client::keptCalibration,
    client::keptHistory, client::keptJob,    client::keptDoctor,     client::keptBattery};

void requireHarmless(const KeptText& kept) {
  require(lab::forTerminal(kept.text) == kept.text && kept.text.find('\0') == std::string::npos);
  require(!kept.unreadable || kept.text.empty());
}

void requireWholeLines(const KeptText& kept, std::string_view text) {
  requireHarmless(kept);
  require(kept.text.empty() || kept.text.back() == '\n');
  const auto count = [](std::string_view lines) { return std::count(lines.begin(), lines.end(), '\n'); };
  require(count(kept.text) + static_cast<std::ptrdiff_t>(kept.dropped) <= count(text) + 1);
}

void tryInput(std::string_view input) {
  for (const auto keep : lineFilters) {
    const KeptText kept = keep(input);
    requireWholeLines(kept, input);
    const KeptText again = keep(kept.text);
    require(again.text == kept.text && again.dropped == 0);
  }
  requireWholeLines(client::keptPowerLog(input, "2026-03-01"), input);
  requireWholeLines(client::keptPowerSchedule(input), input);
  requireWholeLines(client::keptSignature(input), input);
  for (const auto keep : jsonFilters) {
    const KeptText kept = keep(input);
    requireHarmless(kept);
    // A value in place of one that was dropped is dropped again.
    if (!kept.unreadable) require(keep(kept.text).text == kept.text);
  }
}

const FuzzTarget target("report_lines", tryInput);

}  // namespace
}  // namespace brisko::report_lines_fuzz
