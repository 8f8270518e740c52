#include "client/doctor_cases.h"

#include <nlohmann/json.hpp>
#include <type_traits>

namespace brisko::client::doctor_test {
namespace {

// A sample every five minutes over the last day, held at 78 %.
std::vector<RecentSample> heldForADay() {
  std::vector<RecentSample> samples;
  for (double time = now - 24 * hour; time <= now; time += 300)
    samples.push_back(
        {.time = time, .pct = 78, .state = ChargeState::hold, .plugged = true, .watts = 0.0, .hot = false});
  return samples;
}

std::vector<LogLine> usualLog() {
  return {{now - 20 * hour, "brisko-daemon started (event-driven) — config …"},
          {now - 20 * hour, "cap 80%  batt 76%  31.0°C  ac  state=allow  LED=blink"},
          {now - 19 * hour, "→ state: hold"},
          {now - 19 * hour, "limit verified: charging really does stop"},
          {now - 18 * hour, "gate found open during a hold — closing it again (CHTE)"}};
}

using E = Evidence;
using D = DaemonStatus;
using Change = std::function<void(Evidence&)>;

// The part of the evidence whose member a change sets.
template <class Part>
using In = std::type_identity<Part>;
E& partOf(E& e, In<E>) { return e; }
State& partOf(E& e, In<State>) { return e.state; }
SystemFacts& partOf(E& e, In<SystemFacts>) { return e.state.system; }
Job& partOf(E& e, In<Job>) { return *e.state.system.job; }
D& partOf(E& e, In<D>) { return *e.state.status; }
Settings& partOf(E& e, In<Settings>) { return e.state.settings; }
RecentHistory& partOf(E& e, In<RecentHistory>) { return e.state.history; }
InstalledFiles& partOf(E& e, In<InstalledFiles>) { return *e.installed.value; }
VolumeSpace& partOf(E& e, In<VolumeSpace>) { return *e.space.value; }
BatteryFacts& partOf(E& e, In<BatteryFacts>) { return *e.battery.value; }

template <class Part, class Value>
Change set(Value Part::*member, const std::type_identity_t<Value>& value) {
  return [=](E& e) { partOf(e, In<Part>{}).*member = value; };
}

template <class Value>
Change gather(Gathered<Value> E::*member, const std::type_identity_t<Value>& value) {
  return [=](E& e) { e.*member = gathered(value); };
}

template <class Value>
Change notKnown(Gathered<Value> E::*member, const std::string& whyNot) {
  return [=](E& e) { e.*member = notGathered<Value>(whyNot); };
}

template <class... Changes>
Change together(const Changes&... changes) {
  return [=](E& e) { (changes(e), ...); };
}

Change unknownJob() { return set(&SystemFacts::job, Job{}); }
Change noProcess() { return set(&Job::processId, std::nullopt); }
Change exited(std::int64_t code) { return together(noProcess(), set(&Job::lastExitCode, code)); }
Change crashed(const std::string& signal) { return together(noProcess(), set(&Job::lastSignal, signal)); }

Change jobLookedAtAgain() {
  return [](E& e) { e.laterJob = e.state.system.job; };
}

Change noStatus(FileProblem problem = FileProblem::none) {
  return together(set(&State::status, std::nullopt), set(&State::statusProblem, problem));
}
Change statusOf(double secondsAgo) { return set(&D::ts, now - secondsAgo); }

Change settingsFile(const Json& object) {
  return [=](E& e) { setSettings(e, object); };
}
Change settingsBytes(const std::string& bytes) {
  return [=](E& e) { e.state.settingsFile.text.bytes = bytes; };
}

void addLine(E& e, double ago, const std::string& message) { e.log.value->push_back({now - ago, message}); }
Change line(double ago, const std::string& message) {
  return [=](E& e) { addLine(e, ago, message); };
}
Change startLine() { return line(1700, usualLog().front().message); }
Change releaseLine(double ago) {
  return line(ago, "charge released by the app — the service is about to be removed");
}
// Charging, by other programs, while the daemon held it.
Change openedAgain(int times) {
  return [=](E& e) {
    for (int count = 0; count < times; ++count) addLine(e, 100, usualLog().back().message);
  };
}

// Charging is allowed, and this power has flowed into the battery for the last minutes.
Change charging(double watts, int minutes = 13) {
  return [=](E& e) {
    e.state.status->state = ChargeState::allow;
    e.state.status->pct = 60;
    e.later = e.state.status;
    e.chargingIsStopped = gathered(false);
    e.state.history.samples.clear();
    for (int minute = minutes; minute >= 0; --minute)
      e.state.history.samples.push_back({.time = now - minute * 60.0,
                                         .pct = 60,
                                         .state = ChargeState::allow,
                                         .plugged = true,
                                         .watts = watts,
                                         .hot = false});
  };
}

// At 60 %, with this limit of macOS.
Change switchedOff(std::int64_t systemLimit) {
  return together(charging(0), set(&D::enabled, false), gather(&E::systemLimit, systemLimit));
}

Change pausedForHeat(double seconds) {
  return [=](E& e) {
    e.state.status->hot = true;
    for (RecentSample& sample : *e.history.value) sample.hot = sample.time >= now - seconds;
  };
}

Change limitOfMacOS(std::int64_t limit) {
  return together(set(&D::chargeMode, "macOS"), set(&D::upper, limit),
                  notKnown(&E::chargingIsStopped, "no keys are used"));
}

Change chargingByFirmware(std::int64_t level) {
  return together(set(&D::chargeMode, "bfD0/bfE0/bfF0"), set(&D::gateVerified, false), set(&D::pct, level));
}

Change calibrating(CalPhase phase, double since) {
  return [=](E& e) {
    e.state.status->calibration.phase = phase;
    e.state.status->calibration.phaseSince = now - since;
    e.state.status->calibration.soakSeconds = 3600;
  };
}

Change chargedTo(std::int64_t level, double since) {
  return [=](E& e) {
    for (RecentSample& sample : *e.history.value) {
      if (sample.time > now - since) sample.pct = level;
    }
  };
}

// Asleep since eight hours ago with a scheduled wake, charged to this level since.
Change asleepBelowTheBand(std::int64_t level) {
  return together(line(9 * hour, "cap 80%  batt 60%  31.0°C  ac  state=allow  LED=blink"),
                  line(8 * hour, "réveil programmé dans 20 min pour reprendre la charge en main"),
                  chargedTo(level, 8 * hour));
}

Change swinging(int times, double every) {
  return [=](E& e) {
    for (int count = times; count > 0; --count) addLine(e, count * every, "→ state: discharge");
  };
}

// The clock was set forward a moment ago on a Mac that has been up for half an hour.
Change clockLeapt() { return together(set(&SystemFacts::bootedAt, now - 1800), statusOf(hour)); }

Change historyEnded(double secondsAgo) {
  return [=](E& e) {
    while (e.history.value->back().time >= now - secondsAgo) e.history.value->pop_back();
  };
}
Change historyReaches(double time) {
  return [=](E& e) { e.history.value->back().time = time; };
}

// Of every check what it finds, and what is on the other side of its boundary.
const std::vector<Case>& installationCases() {
  static const std::vector<Case> all{
      {"D01", "nothing there", together(gather(&E::installed, {}), unknownJob()), "not installed"},
      {"D01", "started by hand", gather(&E::installed, {}), nothing},
      {"D02", "a job without its program", set(&InstalledFiles::program, false), "not the program"},
      {"D02", "a program without its job", set(&InstalledFiles::job, false), "not the job"},
      {"D02", "a file left behind", set(&InstalledFiles::unfinished, {"/Library/Brisko/brisko-daemon.new"}),
       "brisko-daemon.new"},
      {"D03", "unknown to launchd", unknownJob(), "does not know the job"},
      {"D03", "unknown because it is disabled", together(unknownJob(), gather(&E::jobDisabled, true)),
       nothing},
      {"D03", "loaded without a process", noProcess(), "does not run"},
      {"D03", "without a process on a Mac that has just started",
       together(noProcess(), set(&SystemFacts::bootedAt, now - 89)), nothing},
      {"D03", "without a process for a reason that another check names", exited(2), nothing},
      {"D03", "without a process because of a number",
       together(noProcess(), gather(&E::statistics, "{\"protectedSeconds\":1e19}")), nothing},
      {"D03", "ended again and again for a reason that no check names", crashed("Segmentation fault: 11"),
       "last ended by: Segmentation fault: 11."},
      {"D03", "started again while we looked", together(jobLookedAtAgain(), noProcess()), nothing},
      {"D03", "still not started again at the end", together(noProcess(), jobLookedAtAgain()),
       "does not run"},
      {"D04", "disabled", gather(&E::jobDisabled, true), "disabled"},
      {"D05", "switched off", together(unknownJob(), gather(&E::backgroundAllowed, false)),
       "System Settings"},
      {"D05", "switched off, and running until the next restart", gather(&E::backgroundAllowed, false),
       nothing},
      {"D09", "a broken signature", gather(&E::signature, {false, "invalid signature"}), "invalid signature"},
      {"D09", "killed, and the signature not looked at",
       together(notKnown(&E::signature, "timed out"), crashed("Killed: 9")), "timed out"},
      {"D09", "killed once, and running again", set(&Job::lastSignal, "Killed: 9"), nothing},
      {"D10", "in quarantine", gather(&E::quarantined, true), "quarantine"},
      {"D11", "an Intel processor", gather(&E::appleSilicon, false), "Apple silicon"},
      {"D12", "a program of a user", [](E& e) { e.rights.value->front().owner = 501; }, "does not belong"},
      {"D12", "a program of another group", [](E& e) { e.rights.value->front().group = 20; },
       "does not belong"},
      {"D12", "a program that its group may change", [](E& e) { e.rights.value->front().mode = 0775; },
       "mode 775"},
      {"D12", "a folder that all may change", [](E& e) { e.rights.value->back().mode = 0757; }, "mode 757"},
      {"D40", "another version runs", gather(&E::installedVersion, "0.9.10"), "0.9.10 is installed"},
      {"D40", "replaced since the start", gather(&E::programChangedAt, now - 19 * hour), "replaced"},
  };
  return all;
}

const std::vector<Case>& processCases() {
  static const std::vector<Case> all{
      {"D06", "a limit beyond 64 bits", settingsBytes("{\"limit\":99999999999999999999}"),
       "\"limit\" in /Library/Application Support/Brisko/config.json"},
      {"D06", "a rest that is too long in seconds", settingsBytes("{\"calSoakMinutes\":200000000000000000}"),
       "\"calSoakMinutes\""},
      {"D06", "the longest rest", settingsBytes("{\"calSoakMinutes\":153722867280912930}"), nothing},
      {"D06", "statistics beyond 64 bits", gather(&E::statistics, "{\"protectedSeconds\":1e19}"),
       "stats.json"},
      {"D06", "a calibration beyond 64 bits", gather(&E::calibration, "{\"soakBanked\":1e300}"),
       "calibration.json"},
      {"D06", "an abort for a number",
       together(crashed("Abort trap: 6"),
                gather(&E::errorLog, "brisko-daemon: a number does not fit a 64-bit integer\n")),
       "A number in one"},
      {"D07", "status 2", exited(2), "status 2"},
      {"D07", "status 2 once, and running again", set(&Job::lastExitCode, 2), nothing},
      {"D08", "no controller", together(exited(1), gather(&E::errorLog, "⛔️ Could not open AppleSMC.\n")),
       "controller"},
      {"D08", "status 1 for another reason", exited(1), nothing},
      {"D13", "a status of 71 s", statusOf(71), "1 min old"},
      {"D13", "a status of 70 s", statusOf(70), nothing},
      {"D13", "an old status just after a wake",
       together(statusOf(hour), set(&SystemFacts::wokeAt, now - 85)), nothing},
      {"D13", "an old status long after a wake",
       together(statusOf(hour), set(&SystemFacts::wokeAt, now - 86)), "old"},
      {"D13", "no status", noStatus(FileProblem::missing), "no status"},
      {"D13", "an old status of a dormant daemon",
       together(statusOf(hour), set(&State::resting, Resting::dormant)), nothing},
      {"D13", "no status, on a full disk",
       together(noStatus(FileProblem::unreadable), set(&VolumeSpace::freeBytes, 1e6)), nothing},
      {"D13", "a status from before the clock was set forward", clockLeapt(), nothing},
      {"D13", "a status from before the Mac's start, of a daemon that has started since",
       together(clockLeapt(), startLine()), "old"},
      {"D14", "data erased", set(&State::resting, Resting::purged), "erased"},
      {"D15", "app gone", set(&State::resting, Resting::dormant), "app was removed"},
      {"D15", "app gone, and the daemon ended", together(set(&State::resting, Resting::dormant), noProcess()),
       nothing},
      {"D16", "released a moment ago", together(set(&State::resting, Resting::released), releaseLine(12)),
       "12 s ago"},
      {"D16", "released long ago", together(set(&State::resting, Resting::released), releaseLine(40)),
       "still runs"},
      {"D17", "two processes", gather(&E::daemons, {{312, 1}, {977, 501}}), "312 by launchd, 977"},
      {"D17", "an older status after a newer one",
       [](E& e) { e.later->startedAt = *e.state.status->startedAt - 60; }, "take turns"},
      {"D17", "a newer status after an older one",
       [](E& e) { e.later->startedAt = *e.state.status->startedAt + 60; }, nothing},
      {"D38", "a read-only disk", set(&VolumeSpace::readOnly, true), "read-only"},
      {"D38", "a full disk", set(&VolumeSpace::freeBytes, 1e6), "full"},
      {"D38", "an empty status", together(noStatus(), set(&E::statusIsEmpty, true)), "status is empty"},
      {"D38", "an empty status that nobody writes",
       together(noStatus(), set(&E::statusIsEmpty, true), noProcess()), nothing},
      {"D38", "a history that has stopped", historyEnded(900), "history"},
      {"D38", "a history that waits for a Mac that has just woken",
       together(historyEnded(900), set(&SystemFacts::wokeAt, now - 900)), nothing},
      {"D38", "a history that is switched off",
       together(gather(&E::history, {}), set(&Settings::history, false)), nothing},
      {"D39", "a history from the future", historyReaches(now + 61), "set back"},
      {"D39", "a history that is a moment ahead", historyReaches(now + 60), nothing},
      {"D39", "a status from the future", statusOf(-61), "set back"},
      {"D39", "a daemon older than its Mac", set(&SystemFacts::bootedAt, now - 10 * hour), "set forward"},
      {"D39", "a status from before the clock was set forward", clockLeapt(), "set forward"},
      {"D39", "a status from before the Mac's start, of a daemon that has started since",
       together(clockLeapt(), startLine()), nothing},
      {"D39", "a status from before the Mac's start",
       together(set(&SystemFacts::bootedAt, now - 30), statusOf(60)), nothing},
  };
  return all;
}

const std::vector<Case>& settingsCases() {
  static const std::vector<Case> all{
      {"D18", "forbidden to us", set(&State::statusProblem, FileProblem::notPermitted), "other users only"},
      {"D18", "forbidden to others", gather(&E::statusMode, 0640), "Only root"},
      {"D19", "no JSON",
       [](E& e) {
         e.state.settingsFile.object.reset();
         e.state.settingsFile.flaw = "it is not JSON (line 2, column 7)";
         e.state.job.limit = 85;
       },
       "line 2, column 7). The limit is 85 %"},
      {"D19", "no settings at all", set(&State::settingsFile, {}), nothing},
      {"D20", "a capital letter", settingsFile({{"Limit", 65}}), "\"limit\" was probably"},
      {"D20", "a number as a text", settingsFile({{"limit", "65"}}),
       "\"limit\" is \"65\", not a whole number from 20 to 100"},
      {"D20", "a number for a switch", settingsFile({{"led", 1}}), "not on or off"},
      {"D20", "an unknown key", settingsFile({{"wallpaper", 1}}), "\"wallpaper\" is unknown"},
      {"D20", "one key", settingsFile({{"limit", 65.0}}), nothing},
      {"D21", "a limit of 150", settingsFile({{"limit", 150}}), "100 % is in force"},
      {"D21", "a limit of 5", settingsFile({{"limit", 5}}), "20 % is in force"},
      {"D21", "an empty band", settingsFile({{"hysteresis", 0}}), "; 1 is in force"},
      {"D21", "a band of 30", settingsFile({{"hysteresis", 30}}), "; 20 is in force"},
      {"D21", "a threshold that is used as it is", settingsFile({{"thermalLimit", 90}}),
       "a whole number from 25 to 60 is allowed."},
      {"D21", "the edges", settingsFile({{"limit", 20}, {"hysteresis", 20}}), nothing},
      {"D22", "a lower edge", set(&Job::arguments, {installedProgram, "--guard", "night", "--lower", "40"}),
       "--lower 40"},
      {"D22", "a value that looks like an option",
       set(&Job::arguments, {installedProgram, "--app", "--limit", "70"}), nothing},
      {"D22", "a job that is not loaded",
       together(unknownJob(), gather(&E::jobFileArguments, {installedProgram, "--limit", "70"})),
       "--limit 70"},
      {"D23", "settings from after the start", gather(&E::configCreatedAt, now - 19 * hour), "up to 12 s"},
      {"D35", "a Mac without discharge",
       together(set(&Settings::discharge, true), set(&D::dischargeSupported, false)), "cannot discharge"},
      {"D35", "a Mac with discharge", set(&Settings::discharge, true), nothing},
  };
  return all;
}

const std::vector<Case>& chargingCases() {
  static const std::vector<Case> all{
      {"D24", "keys without effect", set(&D::gateVerified, false), "does not obey"},
      {"D24", "macOS's limit without effect", together(limitOfMacOS(80), set(&D::gateVerified, false)),
       "macOS does not enforce"},
      {"D24", "a band of the firmware below its limit", chargingByFirmware(79), "stops only at the limit"},
      {"D24", "a band of the firmware at its limit", chargingByFirmware(80), "does not obey"},
      {"D24", "not known yet", set(&D::gateVerified, std::nullopt), nothing},
      {"D25", "opened four times a day",
       together(openedAgain(3), gather(&E::otherPrograms, {"/Applications/Other.app/Contents/MacOS/other"})),
       "4 times in the last day although the daemon had stopped it. These programs have opened"},
      {"D25", "opened three times a day", openedAgain(2), nothing},
      {"D25", "open although it is held", gather(&E::chargingIsStopped, false), "not as the daemon set them"},
      {"D25", "open although it has been held for a moment",
       together(gather(&E::chargingIsStopped, false), set(&RecentHistory::stateSince, now - 59)), nothing},
      {"D25", "a state that changed meanwhile",
       together(gather(&E::chargingIsStopped, false), [](E& e) { e.later->state = ChargeState::allow; }),
       nothing},
      {"D26", "both limits", gather(&E::systemLimit, 85), "85 % besides"},
      {"D26", "a limit of 100 %", gather(&E::systemLimit, 100), nothing},
      {"D26", "the daemon's own way", together(limitOfMacOS(85), gather(&E::systemLimit, 85)), nothing},
      {"D27", "a limit that macOS refuses", together(limitOfMacOS(70), set(&D::nativeFloor, 80)),
       "70 % on this Mac; 80 % is in force"},
      {"D28", "moved",
       together(line(900, "limit verified: macOS holds 80% (bfG0)"),
                line(60, "macOS keeps its own limit for now (bfG0 reads 100) — watching, no alarm")),
       "of its own"},
      {"D28", "moved and back again",
       together(line(900, "macOS keeps its own limit for now (bfG0 reads 100) — watching, no alarm"),
                line(60, "limit verified: macOS holds 80% (bfG0)")),
       nothing},
      {"D29", "no way left", set(&D::chargeMode, "none"), "only observes"},
      {"D30", "refused on a managed Mac",
       together(line(60, "macOS limit → 80% ⚠️ refused"), gather(&E::profiles, 2)),
       "2 configuration profiles"},
      {"D30", "refused, and profiles not looked at",
       together(line(60, "macOS limit → 80% ⚠️ refused"), notKnown(&E::profiles, needsRoot)),
       "needs root"},
      {"D30", "refused on a Mac that nobody manages", line(60, "macOS limit → 80% ⚠️ refused"),
       nothing},
      {"D30", "refused once",
       together(gather(&E::profiles, 2), line(160, "macOS limit → 80% ⚠️ refused"),
                line(60, "macOS limit → 80%")),
       nothing},
      {"D31", "a small adapter", charging(-4), "adapter supplies (30 W)"},
      {"D31", "a small adapter for some minutes", charging(-4, 7), nothing},
      {"D31", "a charging battery", charging(20), nothing},
      {"D32", "no current",
       together(charging(0), set(&BatteryFacts::notChargingReason, (1 << 24) | (1 << 7))),
       "bit 7 (no adapter), 24 (held at macOS's own limit)"},
      {"D32", "a small current", charging(0.6), nothing},
      {"D32", "a battery that is nearly full", together(charging(0), set(&D::upper, 100), set(&D::pct, 95)),
       nothing},
      {"D32", "the daemon off, at the lower end of macOS's own limit", switchedOff(65), nothing},
      {"D32", "the daemon off, below what macOS's own limit explains", switchedOff(66), "no current"},
      {"D32", "the daemon off, without a limit of macOS", switchedOff(100), "no current"},
      {"D32", "the daemon off, with a limit of macOS that it keeps",
       together(switchedOff(100), notKnown(&E::systemLimit, "not available here"),
                gather(&E::statistics, "{\"nativeBefore\":65}")),
       nothing},
      {"D32", "a calibration that macOS's own limit stops",
       together(switchedOff(65), [](E& e) { e.state.status->calibration.phase = CalPhase::fill; }),
       "no current"},
      {"D32", "a Top Up that macOS's own limit stops", together(switchedOff(65), set(&D::topUp, true)),
       "no current"},
      {"D32", "the daemon on, and macOS's own limit besides",
       together(switchedOff(65), set(&D::enabled, true)), "no current"},
      {"D33", "hot for more than an hour", pausedForHeat(hour + 300), "1 h 5 min, from 40 °C"},
      {"D33", "hot for an hour", pausedForHeat(hour), nothing},
      {"D34", "given up", set(&D::dischargeFailed, true), "gave up"},
      {"D36", "a drain of more than a day", calibrating(CalPhase::drain, 24 * hour + 1), "phase \"drain\""},
      {"D36", "a drain of a day", calibrating(CalPhase::drain, 24 * hour), nothing},
      {"D36", "a rest of a day and its length", calibrating(CalPhase::soak, 25 * hour), nothing},
      {"D37", "two above the limit", asleepBelowTheBand(82), "to 82 %, past the limit of 80 %"},
      {"D37", "one above the limit", asleepBelowTheBand(81), nothing},
      {"D37", "to full on purpose",
       together(asleepBelowTheBand(78),
                line(7 * hour, "cap 100%(TopUp)  batt 78%  31.0°C  ac  state=allow  LED=blink"),
                chargedTo(100, 6 * hour)),
       nothing},
      {"D41", "21 changes within an hour", swinging(21, 170), "21 times"},
      {"D41", "20 changes within an hour", swinging(20, 170), nothing},
      {"D41", "30 changes in more than an hour", swinging(30, 190), nothing},
      {"D41", "a Mac that does not show its adapter",
       together(swinging(21, 170),
                set(&State::statusObject, std::make_shared<const Json>(Json{{"smcKeys", {"CHIE", "CHTE"}}})),
                set(&Settings::discharge, true)),
       "does not show its adapter"},
  };
  return all;
}

}  // namespace

void setSettings(Evidence& evidence, Json object) {
  evidence.state.settingsFile.text.bytes = object.dump();
  evidence.state.settings = parseConfig(object);
  evidence.state.settingsFile.object = std::make_shared<const Json>(std::move(object));
}

Evidence healthy() {
  Evidence evidence;
  State& state = evidence.state;
  state.now = now;
  state.system.bootedAt = now - 24 * hour;
  state.system.wokeAt = now - 10 * hour;
  state.system.job = Job{.installed = true,
                         .processId = 312,
                         .arguments = {installedProgram, "--guard", "night,menu,swing"},
                         .lastExitCode = std::nullopt,
                         .lastSignal = ""};
  state.status = DaemonStatus{.state = ChargeState::hold,
                              .pct = 78,
                              .ts = now - 6,
                              .plugged = true,
                              .upper = 80,
                              .dischargeSupported = true,
                              .gateVerified = true,
                              .startedAt = now - 20 * hour,
                              .chargeMode = "CHTE",
                              .daemonVersion = "0.9.9"};
  state.statusObject = std::make_shared<const Json>(Json{{"smcKeys", {"CHIE", "CHTE", "AC-W"}}});
  setSettings(evidence, configObject(Settings{}));
  state.history.samples = heldForADay();
  state.history.samples.erase(state.history.samples.begin(), state.history.samples.end() - 4);
  state.history.stateSince = now - 19 * hour;
  evidence.later = state.status;
  evidence.statusMode = gathered<std::uint32_t>(0644);
  evidence.installed = gathered(InstalledFiles{.program = true, .job = true});
  evidence.rights = gathered(
      std::vector<FileRights>{{installedProgram, 0, 0, 0755, true}, {dataFolder, 0, 80, 0755, false}});
  evidence.jobFileArguments = gathered(state.system.job->arguments);
  evidence.jobDisabled = gathered(false);
  evidence.backgroundAllowed = gathered(true);
  evidence.signature = gathered(SignatureVerdict{});
  evidence.quarantined = gathered(false);
  evidence.appleSilicon = gathered(true);
  evidence.installedVersion = gathered<std::string>("0.9.9");
  evidence.programChangedAt = gathered(now - 21 * hour);
  evidence.profiles = gathered<std::int64_t>(0);
  evidence.daemons = gathered(std::vector<DaemonProcess>{{312, 1}});
  evidence.errorLog = gathered<std::string>("");
  evidence.statistics = gathered<std::string>(R"({"protectedSeconds":86400})");
  evidence.calibration = gathered<std::string>(R"({"soakBanked":0.0})");
  evidence.configCreatedAt = gathered(now - 30 * hour);
  evidence.space = gathered(VolumeSpace{.freeBytes = 1e11});
  evidence.log = gathered(usualLog());
  evidence.history = gathered(heldForADay());
  evidence.battery = gathered(BatteryFacts{.notChargingReason = 0, .adapterWatts = 30});
  evidence.chargingIsStopped = gathered(true);
  evidence.systemLimit = gathered<std::int64_t>(0);
  evidence.otherPrograms = gathered(std::vector<std::string>{});
  return evidence;
}

std::vector<Case> allCases() {
  std::vector<Case> all;
  for (const auto* cases : {&installationCases(), &processCases(), &settingsCases(), &chargingCases()})
    all.insert(all.end(), cases->begin(), cases->end());
  return all;
}

}  // namespace brisko::client::doctor_test
