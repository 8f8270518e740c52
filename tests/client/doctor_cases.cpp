#include "client/doctor_cases.h"

#include <nlohmann/json.hpp>

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

void endWith(E& e, std::int64_t code) {
  e.state.system.job->processId.reset();
  e.state.system.job->lastExitCode = code;
}

void addLine(E& e, double ago, const std::string& message) { e.log.value->push_back({now - ago, message}); }

// Charging is allowed, and this power has flowed into the battery for the last minutes.
void charge(E& e, double watts, int minutes = 13) {
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
}

// At 60 %, with this limit of macOS.
void restSwitchedOff(E& e, std::int64_t systemLimit) {
  charge(e, 0);
  e.state.status->enabled = false;
  e.systemLimit = gathered<std::int64_t>(systemLimit);
}

void pauseForHeat(E& e, double seconds) {
  e.state.status->hot = true;
  for (RecentSample& sample : *e.history.value) sample.hot = sample.time >= now - seconds;
}

void driveMacOSLimit(E& e, std::int64_t limit) {
  e.state.status->chargeMode = "macOS";
  e.state.status->upper = limit;
  e.chargingIsStopped = notGathered<bool>("no keys are used");
}

void chargeByFirmware(E& e, std::int64_t level) {
  e.state.status->chargeMode = "bfD0/bfE0/bfF0";
  e.state.status->gateVerified = false;
  e.state.status->pct = level;
}

void calibrate(E& e, CalPhase phase, double since) {
  e.state.status->calibration.phase = phase;
  e.state.status->calibration.phaseSince = now - since;
  e.state.status->calibration.soakSeconds = 3600;
}

// Asleep since eight hours ago with a scheduled wake, charged to this level since.
void sleepBelowTheBand(E& e, std::int64_t level) {
  addLine(e, 9 * hour, "cap 80%  batt 60%  31.0°C  ac  state=allow  LED=blink");
  addLine(e, 8 * hour, "réveil programmé dans 20 min pour reprendre la charge en main");
  for (RecentSample& sample : *e.history.value) {
    if (sample.time > now - 8 * hour) sample.pct = level;
  }
}

void swing(E& e, int times, double every) {
  for (int count = times; count > 0; --count) addLine(e, count * every, "→ state: discharge");
}

// The clock was set forward a moment ago on a Mac that has been up for half an hour.
void leap(E& e) {
  e.state.system.bootedAt = now - 1800;
  e.state.status->ts = now - hour;
}

// Of every check what it finds, and what is on the other side of its boundary.
const std::vector<Case>& installationCases() {
  static const std::vector<Case> all{
      {"D01", "nothing there",
       [](E& e) {
         e.installed = gathered(InstalledFiles{});
         e.state.system.job = Job{};
       },
       "not installed"},
      {"D01", "started by hand", [](E& e) { e.installed = gathered(InstalledFiles{}); }, nothing},
      {"D02", "a job without its program", [](E& e) { e.installed.value->program = false; },
       "not the program"},
      {"D02", "a program without its job", [](E& e) { e.installed.value->job = false; }, "not the job"},
      {"D02", "a file left behind",
       [](E& e) { e.installed.value->unfinished = {"/Library/Brisko/brisko-daemon.new"}; },
       "brisko-daemon.new"},
      {"D03", "unknown to launchd", [](E& e) { e.state.system.job = Job{}; }, "does not know the job"},
      {"D03", "unknown because it is disabled",
       [](E& e) {
         e.state.system.job = Job{};
         e.jobDisabled = gathered(true);
       },
       nothing},
      {"D03", "loaded without a process", [](E& e) { e.state.system.job->processId.reset(); },
       "does not run"},
      {"D03", "without a process on a Mac that has just started",
       [](E& e) {
         e.state.system.job->processId.reset();
         e.state.system.bootedAt = now - 89;
       },
       nothing},
      {"D03", "without a process for a reason that another check names", [](E& e) { endWith(e, 2); },
       nothing},
      {"D03", "without a process because of a number",
       [](E& e) {
         e.state.system.job->processId.reset();
         e.statistics = gathered<std::string>("{\"protectedSeconds\":1e19}");
       },
       nothing},
      {"D03", "ended again and again for a reason that no check names",
       [](E& e) {
         e.state.system.job->processId.reset();
         e.state.system.job->lastSignal = "Segmentation fault: 11";
       },
       "last ended by: Segmentation fault: 11."},
      {"D03", "started again while we looked",
       [](E& e) {
         e.laterJob = e.state.system.job;
         e.state.system.job->processId.reset();
       },
       nothing},
      {"D03", "still not started again at the end",
       [](E& e) {
         e.state.system.job->processId.reset();
         e.laterJob = e.state.system.job;
       },
       "does not run"},
      {"D04", "disabled", [](E& e) { e.jobDisabled = gathered(true); }, "disabled"},
      {"D05", "switched off",
       [](E& e) {
         e.state.system.job = Job{};
         e.backgroundAllowed = gathered(false);
       },
       "System Settings"},
      {"D05", "switched off, and running until the next restart",
       [](E& e) { e.backgroundAllowed = gathered(false); }, nothing},
      {"D09", "a broken signature",
       [](E& e) {
         e.signature = gathered(SignatureVerdict{false, "invalid signature"});
       },
       "invalid signature"},
      {"D09", "killed, and the signature not looked at",
       [](E& e) {
         e.signature = notGathered<SignatureVerdict>("timed out");
         e.state.system.job->processId.reset();
         e.state.system.job->lastSignal = "Killed: 9";
       },
       "timed out"},
      {"D09", "killed once, and running again", [](E& e) { e.state.system.job->lastSignal = "Killed: 9"; },
       nothing},
      {"D10", "in quarantine", [](E& e) { e.quarantined = gathered(true); }, "quarantine"},
      {"D11", "an Intel processor", [](E& e) { e.appleSilicon = gathered(false); }, "Apple silicon"},
      {"D12", "a program of a user", [](E& e) { e.rights.value->front().owner = 501; }, "does not belong"},
      {"D12", "a program of another group", [](E& e) { e.rights.value->front().group = 20; },
       "does not belong"},
      {"D12", "a program that its group may change", [](E& e) { e.rights.value->front().mode = 0775; },
       "mode 775"},
      {"D12", "a folder that all may change", [](E& e) { e.rights.value->back().mode = 0757; }, "mode 757"},
      {"D40", "another version runs", [](E& e) { e.installedVersion = gathered<std::string>("0.9.10"); },
       "0.9.10 is installed"},
      {"D40", "replaced since the start", [](E& e) { e.programChangedAt = gathered(now - 19 * hour); },
       "replaced"},
  };
  return all;
}

const std::vector<Case>& processCases() {
  static const std::vector<Case> all{
      {"D06", "a limit beyond 64 bits",
       [](E& e) { e.state.settingsFile.text.bytes = "{\"limit\":99999999999999999999}"; },
       "\"limit\" in /Library/Application Support/Brisko/config.json"},
      {"D06", "a rest that is too long in seconds",
       [](E& e) { e.state.settingsFile.text.bytes = "{\"calSoakMinutes\":200000000000000000}"; },
       "\"calSoakMinutes\""},
      {"D06", "the longest rest",
       [](E& e) { e.state.settingsFile.text.bytes = "{\"calSoakMinutes\":153722867280912930}"; }, nothing},
      {"D06", "statistics beyond 64 bits",
       [](E& e) { e.statistics = gathered<std::string>("{\"protectedSeconds\":1e19}"); }, "stats.json"},
      {"D06", "a calibration beyond 64 bits",
       [](E& e) { e.calibration = gathered<std::string>("{\"soakBanked\":1e300}"); }, "calibration.json"},
      {"D06", "an abort for a number",
       [](E& e) {
         e.state.system.job->processId.reset();
         e.state.system.job->lastSignal = "Abort trap: 6";
         e.errorLog = gathered<std::string>("brisko-daemon: a number does not fit a 64-bit integer\n");
       },
       "A number in one"},
      {"D07", "status 2", [](E& e) { endWith(e, 2); }, "status 2"},
      {"D07", "status 2 once, and running again", [](E& e) { e.state.system.job->lastExitCode = 2; },
       nothing},
      {"D08", "no controller",
       [](E& e) {
         endWith(e, 1);
         e.errorLog = gathered<std::string>("⛔️ Could not open AppleSMC.\n");
       },
       "controller"},
      {"D08", "status 1 for another reason", [](E& e) { endWith(e, 1); }, nothing},
      {"D13", "a status of 71 s", [](E& e) { e.state.status->ts = now - 71; }, "1 min old"},
      {"D13", "a status of 70 s", [](E& e) { e.state.status->ts = now - 70; }, nothing},
      {"D13", "an old status just after a wake",
       [](E& e) {
         e.state.status->ts = now - hour;
         e.state.system.wokeAt = now - 85;
       },
       nothing},
      {"D13", "an old status long after a wake",
       [](E& e) {
         e.state.status->ts = now - hour;
         e.state.system.wokeAt = now - 86;
       },
       "old"},
      {"D13", "no status",
       [](E& e) {
         e.state.status.reset();
         e.state.statusProblem = FileProblem::missing;
       },
       "no status"},
      {"D13", "an old status of a dormant daemon",
       [](E& e) {
         e.state.status->ts = now - hour;
         e.state.resting = Resting::dormant;
       },
       nothing},
      {"D13", "no status, on a full disk",
       [](E& e) {
         e.state.status.reset();
         e.state.statusProblem = FileProblem::unreadable;
         e.space.value->freeBytes = 1e6;
       },
       nothing},
      {"D13", "a status from before the clock was set forward", leap, nothing},
      {"D13", "a status from before the Mac's start, of a daemon that has started since",
       [](E& e) {
         leap(e);
         addLine(e, 1700, usualLog().front().message);
       },
       "old"},
      {"D14", "data erased", [](E& e) { e.state.resting = Resting::purged; }, "erased"},
      {"D15", "app gone", [](E& e) { e.state.resting = Resting::dormant; }, "app was removed"},
      {"D15", "app gone, and the daemon ended",
       [](E& e) {
         e.state.resting = Resting::dormant;
         e.state.system.job->processId.reset();
       },
       nothing},
      {"D16", "released a moment ago",
       [](E& e) {
         e.state.resting = Resting::released;
         addLine(e, 12, "charge released by the app — the service is about to be removed");
       },
       "12 s ago"},
      {"D16", "released long ago",
       [](E& e) {
         e.state.resting = Resting::released;
         addLine(e, 40, "charge released by the app — the service is about to be removed");
       },
       "still runs"},
      {"D17", "two processes",
       [](E& e) {
         e.daemons.value->push_back({977, 501});
       },
       "312 by launchd, 977"},
      {"D17", "an older status after a newer one",
       [](E& e) { e.later->startedAt = *e.state.status->startedAt - 60; }, "take turns"},
      {"D17", "a newer status after an older one",
       [](E& e) { e.later->startedAt = *e.state.status->startedAt + 60; }, nothing},
      {"D38", "a read-only disk", [](E& e) { e.space.value->readOnly = true; }, "read-only"},
      {"D38", "a full disk", [](E& e) { e.space.value->freeBytes = 1e6; }, "full"},
      {"D38", "an empty status",
       [](E& e) {
         e.state.status.reset();
         e.statusIsEmpty = true;
       },
       "status is empty"},
      {"D38", "an empty status that nobody writes",
       [](E& e) {
         e.state.status.reset();
         e.statusIsEmpty = true;
         e.state.system.job->processId.reset();
       },
       nothing},
      {"D38", "a history that has stopped",
       [](E& e) {
         while (e.history.value->back().time >= now - 900) e.history.value->pop_back();
       },
       "history"},
      {"D38", "a history that waits for a Mac that has just woken",
       [](E& e) {
         while (e.history.value->back().time >= now - 900) e.history.value->pop_back();
         e.state.system.wokeAt = now - 900;
       },
       nothing},
      {"D38", "a history that is switched off",
       [](E& e) {
         e.history.value->clear();
         e.state.settings.history = false;
       },
       nothing},
      {"D39", "a history from the future", [](E& e) { e.history.value->back().time = now + 61; }, "set back"},
      {"D39", "a history that is a moment ahead", [](E& e) { e.history.value->back().time = now + 60; },
       nothing},
      {"D39", "a status from the future", [](E& e) { e.state.status->ts = now + 61; }, "set back"},
      {"D39", "a daemon older than its Mac", [](E& e) { e.state.system.bootedAt = now - 10 * hour; },
       "set forward"},
      {"D39", "a status from before the clock was set forward", leap, "set forward"},
      {"D39", "a status from before the Mac's start, of a daemon that has started since",
       [](E& e) {
         leap(e);
         addLine(e, 1700, usualLog().front().message);
       },
       nothing},
      {"D39", "a status from before the Mac's start",
       [](E& e) {
         e.state.system.bootedAt = now - 30;
         e.state.status->ts = now - 60;
       },
       nothing},
  };
  return all;
}

const std::vector<Case>& settingsCases() {
  static const std::vector<Case> all{
      {"D18", "forbidden to us", [](E& e) { e.state.statusProblem = FileProblem::notPermitted; },
       "other users only"},
      {"D18", "forbidden to others", [](E& e) { e.statusMode = gathered<std::uint32_t>(0640); }, "Only root"},
      {"D19", "no JSON",
       [](E& e) {
         e.state.settingsFile.object.reset();
         e.state.settingsFile.flaw = "it is not JSON (line 2, column 7)";
         e.state.job.limit = 85;
       },
       "line 2, column 7). The limit is 85 %"},
      {"D19", "no settings at all", [](E& e) { e.state.settingsFile = SettingsFile{}; }, nothing},
      {"D20", "a capital letter",
       [](E& e) {
         setSettings(e, {{"Limit", 65}});
       },
       "\"limit\" was probably"},
      {"D20", "a number as a text",
       [](E& e) {
         setSettings(e, {{"limit", "65"}});
       },
       "\"limit\" is \"65\", not a whole number from 20 to 100"},
      {"D20", "a number for a switch",
       [](E& e) {
         setSettings(e, {{"led", 1}});
       },
       "not on or off"},
      {"D20", "an unknown key",
       [](E& e) {
         setSettings(e, {{"wallpaper", 1}});
       },
       "\"wallpaper\" is unknown"},
      {"D20", "one key",
       [](E& e) {
         setSettings(e, {{"limit", 65.0}});
       },
       nothing},
      {"D21", "a limit of 150",
       [](E& e) {
         setSettings(e, {{"limit", 150}});
       },
       "100 % is in force"},
      {"D21", "a limit of 5",
       [](E& e) {
         setSettings(e, {{"limit", 5}});
       },
       "20 % is in force"},
      {"D21", "an empty band",
       [](E& e) {
         setSettings(e, {{"hysteresis", 0}});
       },
       "; 1 is in force"},
      {"D21", "a band of 30",
       [](E& e) {
         setSettings(e, {{"hysteresis", 30}});
       },
       "; 20 is in force"},
      {"D21", "a threshold that is used as it is",
       [](E& e) {
         setSettings(e, {{"thermalLimit", 90}});
       },
       "a whole number from 25 to 60 is allowed."},
      {"D21", "the edges",
       [](E& e) {
         setSettings(e, {{"limit", 20}, {"hysteresis", 20}});
       },
       nothing},
      {"D22", "a lower edge",
       [](E& e) {
         e.state.system.job->arguments = {installedProgram, "--guard", "night", "--lower", "40"};
       },
       "--lower 40"},
      {"D22", "a value that looks like an option",
       [](E& e) {
         e.state.system.job->arguments = {installedProgram, "--app", "--limit", "70"};
       },
       nothing},
      {"D22", "a job that is not loaded",
       [](E& e) {
         e.state.system.job = Job{};
         e.jobFileArguments = gathered(std::vector<std::string>{installedProgram, "--limit", "70"});
       },
       "--limit 70"},
      {"D23", "settings from after the start", [](E& e) { e.configCreatedAt = gathered(now - 19 * hour); },
       "up to 12 s"},
      {"D35", "a Mac without discharge",
       [](E& e) {
         e.state.settings.discharge = true;
         e.state.status->dischargeSupported = false;
       },
       "cannot discharge"},
      {"D35", "a Mac with discharge", [](E& e) { e.state.settings.discharge = true; }, nothing},
  };
  return all;
}

const std::vector<Case>& chargingCases() {
  static const std::vector<Case> all{
      {"D24", "keys without effect", [](E& e) { e.state.status->gateVerified = false; }, "does not obey"},
      {"D24", "macOS's limit without effect",
       [](E& e) {
         driveMacOSLimit(e, 80);
         e.state.status->gateVerified = false;
       },
       "macOS does not enforce"},
      {"D24", "a band of the firmware below its limit", [](E& e) { chargeByFirmware(e, 79); },
       "stops only at the limit"},
      {"D24", "a band of the firmware at its limit", [](E& e) { chargeByFirmware(e, 80); }, "does not obey"},
      {"D24", "not known yet", [](E& e) { e.state.status->gateVerified.reset(); }, nothing},
      {"D25", "opened four times a day",
       [](E& e) {
         for (int count = 0; count < 3; ++count) addLine(e, 100, usualLog().back().message);
         e.otherPrograms.value->push_back("/Applications/Other.app/Contents/MacOS/other");
       },
       "4 times in the last day although the daemon had stopped it. These programs have opened"},
      {"D25", "opened three times a day",
       [](E& e) {
         for (int count = 0; count < 2; ++count) addLine(e, 100, usualLog().back().message);
       },
       nothing},
      {"D25", "open although it is held", [](E& e) { e.chargingIsStopped = gathered(false); },
       "not as the daemon set them"},
      {"D25", "open although it has been held for a moment",
       [](E& e) {
         e.chargingIsStopped = gathered(false);
         e.state.history.stateSince = now - 59;
       },
       nothing},
      {"D25", "a state that changed meanwhile",
       [](E& e) {
         e.chargingIsStopped = gathered(false);
         e.later->state = ChargeState::allow;
       },
       nothing},
      {"D26", "both limits", [](E& e) { e.systemLimit = gathered<std::int64_t>(85); }, "85 % besides"},
      {"D26", "a limit of 100 %", [](E& e) { e.systemLimit = gathered<std::int64_t>(100); }, nothing},
      {"D26", "the daemon's own way",
       [](E& e) {
         driveMacOSLimit(e, 85);
         e.systemLimit = gathered<std::int64_t>(85);
       },
       nothing},
      {"D27", "a limit that macOS refuses",
       [](E& e) {
         driveMacOSLimit(e, 70);
         e.state.status->nativeFloor = 80;
       },
       "70 % on this Mac; 80 % is in force"},
      {"D28", "moved",
       [](E& e) {
         addLine(e, 900, "limit verified: macOS holds 80% (bfG0)");
         addLine(e, 60, "macOS keeps its own limit for now (bfG0 reads 100) — watching, no alarm");
       },
       "of its own"},
      {"D28", "moved and back again",
       [](E& e) {
         addLine(e, 900, "macOS keeps its own limit for now (bfG0 reads 100) — watching, no alarm");
         addLine(e, 60, "limit verified: macOS holds 80% (bfG0)");
       },
       nothing},
      {"D29", "no way left", [](E& e) { e.state.status->chargeMode = "none"; }, "only observes"},
      {"D30", "refused on a managed Mac",
       [](E& e) {
         addLine(e, 60, "macOS limit → 80% ⚠️ refused");
         e.profiles = gathered<std::int64_t>(2);
       },
       "2 configuration profiles"},
      {"D30", "refused, and profiles not looked at",
       [](E& e) {
         addLine(e, 60, "macOS limit → 80% ⚠️ refused");
         e.profiles = notGathered<std::int64_t>(needsRoot);
       },
       "needs root"},
      {"D30", "refused on a Mac that nobody manages",
       [](E& e) { addLine(e, 60, "macOS limit → 80% ⚠️ refused"); }, nothing},
      {"D30", "refused once",
       [](E& e) {
         e.profiles = gathered<std::int64_t>(2);
         addLine(e, 160, "macOS limit → 80% ⚠️ refused");
         addLine(e, 60, "macOS limit → 80%");
       },
       nothing},
      {"D31", "a small adapter", [](E& e) { charge(e, -4); }, "adapter supplies (30 W)"},
      {"D31", "a small adapter for some minutes", [](E& e) { charge(e, -4, 7); }, nothing},
      {"D31", "a charging battery", [](E& e) { charge(e, 20); }, nothing},
      {"D32", "no current",
       [](E& e) {
         charge(e, 0);
         e.battery.value->notChargingReason = (1 << 24) | (1 << 7);
       },
       "bit 7 (no adapter), 24 (held at macOS's own limit)"},
      {"D32", "a small current", [](E& e) { charge(e, 0.6); }, nothing},
      {"D32", "a battery that is nearly full",
       [](E& e) {
         charge(e, 0);
         e.state.status->upper = 100;
         e.state.status->pct = 95;
       },
       nothing},
      {"D32", "the daemon off, at the lower end of macOS's own limit", [](E& e) { restSwitchedOff(e, 65); },
       nothing},
      {"D32", "the daemon off, below what macOS's own limit explains", [](E& e) { restSwitchedOff(e, 66); },
       "no current"},
      {"D32", "the daemon off, without a limit of macOS", [](E& e) { restSwitchedOff(e, 100); },
       "no current"},
      {"D32", "the daemon off, with a limit of macOS that it keeps",
       [](E& e) {
         restSwitchedOff(e, 100);
         e.systemLimit = {};
         e.statistics = gathered<std::string>("{\"nativeBefore\":65}");
       },
       nothing},
      {"D32", "a calibration that macOS's own limit stops",
       [](E& e) {
         restSwitchedOff(e, 65);
         e.state.status->calibration.phase = CalPhase::fill;
       },
       "no current"},
      {"D32", "a Top Up that macOS's own limit stops",
       [](E& e) {
         restSwitchedOff(e, 65);
         e.state.status->topUp = true;
       },
       "no current"},
      {"D32", "the daemon on, and macOS's own limit besides",
       [](E& e) {
         restSwitchedOff(e, 65);
         e.state.status->enabled = true;
       },
       "no current"},
      {"D33", "hot for more than an hour", [](E& e) { pauseForHeat(e, hour + 300); },
       "1 h 5 min, from 40 °C"},
      {"D33", "hot for an hour", [](E& e) { pauseForHeat(e, hour); }, nothing},
      {"D34", "given up", [](E& e) { e.state.status->dischargeFailed = true; }, "gave up"},
      {"D36", "a drain of more than a day", [](E& e) { calibrate(e, CalPhase::drain, 24 * hour + 1); },
       "phase \"drain\""},
      {"D36", "a drain of a day", [](E& e) { calibrate(e, CalPhase::drain, 24 * hour); }, nothing},
      {"D36", "a rest of a day and its length", [](E& e) { calibrate(e, CalPhase::soak, 25 * hour); },
       nothing},
      {"D37", "two above the limit", [](E& e) { sleepBelowTheBand(e, 82); },
       "to 82 %, past the limit of 80 %"},
      {"D37", "one above the limit", [](E& e) { sleepBelowTheBand(e, 81); }, nothing},
      {"D37", "to full on purpose",
       [](E& e) {
         sleepBelowTheBand(e, 78);
         addLine(e, 7 * hour, "cap 100%(TopUp)  batt 78%  31.0°C  ac  state=allow  LED=blink");
         for (RecentSample& sample : *e.history.value) {
           if (sample.time > now - 6 * hour) sample.pct = 100;
         }
       },
       nothing},
      {"D41", "21 changes within an hour", [](E& e) { swing(e, 21, 170); }, "21 times"},
      {"D41", "20 changes within an hour", [](E& e) { swing(e, 20, 170); }, nothing},
      {"D41", "30 changes in more than an hour", [](E& e) { swing(e, 30, 190); }, nothing},
      {"D41", "a Mac that does not show its adapter",
       [](E& e) {
         swing(e, 21, 170);
         e.state.statusObject = std::make_shared<const Json>(Json{{"smcKeys", {"CHIE", "CHTE"}}});
         e.state.settings.discharge = true;
       },
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
