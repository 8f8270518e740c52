// What a daemon leaves behind: the lines of its history and of its log.

#include "sim/replay/trace.h"

#include "support/testing.h"

namespace brisko::lab::trace_test {
namespace {

constexpr double midnight = 1772323200;  // 2026-03-01

TEST(Trace, readsEveryPartOfASummary) {
  struct Case {
    const char* line;
    SummarySettings settings;
    std::int64_t percent;
    ChargeState state;
    std::optional<bool> plugged;
    bool hot;
    std::optional<double> temperature;
  };
  const Case cases[] = {
      {"cap 80%  batt 72%  31.5°C  ac  state=allow  LED=orange",
       {.limit = 80},
       72,
       ChargeState::allow,
       true,
       false,
       31.5},
      {"cap off  batt 5%  ?  battery  state=allow  LED=system",
       {.enabled = false},
       5,
       ChargeState::allow,
       false,
       false,
       {}},
      {"cap 100%(TopUp)  batt 100%  20.0°C  ac  state=allow  LED=green",
       {.limit = 100, .topUp = true},
       100,
       ChargeState::allow,
       true,
       false,
       20.0},
      {"cap 75%+discharge+HOT  batt 81%  40.1°C  battery  state=discharge  LED=blink",
       {.limit = 75, .discharge = true},
       81,
       ChargeState::discharge,
       {},
       true,
       40.1},
      {"cap 60%  cal=drain→15%  batt 60%  25.0°C  ac  state=hold  LED=system",
       {.limit = 60, .phase = "drain", .phaseTarget = 15},
       60,
       ChargeState::hold,
       true,
       false,
       25.0},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.line);
    const auto read = readSummary(each.line, 7);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->time, 7);
    EXPECT_EQ(read->settings, each.settings);
    EXPECT_EQ(read->percent, each.percent);
    EXPECT_EQ(read->state, each.state);
    EXPECT_EQ(read->plugged, each.plugged);
    EXPECT_EQ(read->hot, each.hot);
    EXPECT_EQ(read->temperatureC, each.temperature);
    EXPECT_FALSE(read->inHistory);
  }
}

TEST(Trace, refusesASummaryThatWasCutOrChanged) {
  for (const char* line :
       {"cap ", "cap 80", "cap 9999%  batt 72%  ?  ac  state=allow", "cap 80%  batt 72%",
        "cap 80%  batt 72%  hot°C  ac  state=allow", "cap 80%  cal=drain  batt 72%",
        "cap 80%  batt 72%  ?  solar  state=allow", "cap 80%  batt 72%  ?  ac  state=idle"})
    EXPECT_FALSE(readSummary(line, 0)) << line;
}

TEST(Trace, readsASampleWithItsPowerAndRefusesABrokenOne) {
  const auto sample =
      readSample(R"({"g":false,"p":55,"s":"allow","t":1772323260,"ct":305,"wt":-82})", midnight);
  ASSERT_TRUE(sample);
  EXPECT_EQ(sample->percent, 55);
  EXPECT_EQ(sample->plugged, false);
  EXPECT_EQ(sample->watts, -8.2);
  EXPECT_EQ(sample->temperatureC, 30.5);
  EXPECT_TRUE(sample->inHistory);
  for (const char* line :
       {"", "{", R"({"g":false,"p":101,"s":"allow","t":1772323260})",
        R"({"g":false,"p":55,"s":"allow","t":1e300})", R"({"p":55,"s":"allow","t":1772323260})"})
    EXPECT_FALSE(readSample(line, midnight)) << line;
}

TEST(Trace, sortsTheLogIntoSummariesAndOtherLinesAndCountsWhatItCannotRead) {
  Trace trace;
  const std::size_t broken = readLog(
      "2026-03-01T08:00:10Z  → state: hold\n"
      "2026-03-01T08:00:05Z  cap 80%  batt 72%  ?  ac  state=allow  LED=orange\n"
      "no stamp\n"
      "2026-03-01T08:00:06Z  cap nonsense\n"
      "2026-02-30T08:00:06Z  no such day\n"
      "2026-03-01T08:00:01Z  first",
      trace);
  arrange(trace);
  EXPECT_EQ(broken, 3U);
  ASSERT_EQ(trace.sightings.size(), 1U);
  EXPECT_EQ(trace.sightings[0].time, 1772352005);
  ASSERT_EQ(trace.lines.size(), 2U);
  EXPECT_EQ(trace.lines[0].text, "first");
  EXPECT_EQ(trace.lines[1].text, "→ state: hold");
}

// On the way to sleep only the line of the log shows it, without a sample or a summary.
TEST(Trace, takesTheStateFromTheSightingsAndFromTheLinesThatReportAChange) {
  Trace trace;
  trace.sightings = {{.time = 10, .state = ChargeState::discharge}, {.time = 60, .state = ChargeState::hold}};
  trace.lines = {{10, "→ state: discharge"},
                 {43, "→ state: hold (macOS limit 75%)"},
                 {50, "→ state: idle"},
                 {60, "→ state: allow"}};
  const auto states = statesOf(trace);
  ASSERT_EQ(states.size(), 5U) << "one line has no state";
  EXPECT_EQ(states[2].time, 43);
  EXPECT_EQ(states[2].state, ChargeState::hold);
  EXPECT_EQ(states[4].state, ChargeState::allow) << "the line comes after the sample of the same second";
}

TEST(Trace, hasAnOutageFromEachOrderlyEndToTheNextStart) {
  const auto end = [](double time) {
    return LoggedLine{time, "Signal 15: charging, adapter and LED restored, exiting."};
  };
  const auto start = [](double time) { return LoggedLine{time, "brisko-daemon started (event-driven) — …"}; };
  const Trace trace{.lines = {start(1),
                              end(10),
                              start(20),
                              start(25),
                              {30, "restart requested by the app — …"},
                              start(31),
                              end(40)}};
  const auto outages = outagesOf(trace, 50);
  ASSERT_EQ(outages.size(), 3U);
  EXPECT_EQ(outages[0].from, 10);
  EXPECT_EQ(outages[0].until, 20);
  EXPECT_EQ(outages[1].until, 31);
  EXPECT_EQ(outages[2].until, 50) << "the daemon was not started again";
}

}  // namespace
}  // namespace brisko::lab::trace_test
