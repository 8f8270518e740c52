#include "diagnostics/self_test.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include "base/files.h"
#include "base/json_file.h"
#include "base/log.h"
#include "base/options.h"
#include "base/settings.h"
#include "base/standard_output.h"
#include "diagnostics/checks.h"
#include "diagnostics/probe.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/led.h"
#include "native/native_limit.h"
#include "platform/host.h"
#include "policy/charge_bounds.h"
#include "power/sleep.h"

namespace brisko {
namespace {

// ---- Rules ---------------------------------------------------------------------------------------------

void testBounds() {
  constexpr std::int64_t noneGiven = -1;
  for (std::int64_t limit = 20; limit <= 100; ++limit) {
    bool empty = false;
    for (std::int64_t hysteresis = 0; hysteresis <= 25; ++hysteresis) {
      const Bounds band = bounds(limit, noneGiven, hysteresis);
      empty = empty || band.lower >= band.upper;
    }
    expect(!empty, "plage vide à limite=" + std::to_string(limit));
  }
}

void testPlans() {
  constexpr Bounds band{.upper = 80, .lower = 75};
  expectEqual(planSleep({.pct = 60, .band = band}), SleepPlan::carryOn(80),
              "sous le plancher : porter la charge jusqu'à la limite");
  expectEqual(planSleep({.pct = 77, .band = band}), SleepPlan::freeze(), "dans la plage : geler");
  expectEqual(planSleep({.pct = 75, .band = band}), SleepPlan::freeze(), "pile sur le plancher : geler");
  expectEqual(planSleep({.pct = 80, .band = band}), SleepPlan::freeze(), "pile sur la limite : geler");
  expectEqual(planSleep({.pct = 90, .band = band}), SleepPlan::freeze(),
              "au-dessus de la limite : geler, jamais décharger en dormant");
  expectEqual(planSleep({.pct = 60, .band = band, .adapterPresent = false}), SleepPlan::leaveAlone(),
              "débranché : ne rien faire");
  expectEqual(planSleep({.pct = 60, .band = band, .enabled = false}), SleepPlan::leaveAlone(),
              "limite éteinte : ne rien faire");
  expectEqual(planSleep({.pct = 60, .band = band, .calibrating = true}), SleepPlan::leaveAlone(),
              "séquence en cours : ne pas s'en mêler");
}

// A wake serves a charge that continues in sleep, so it is planned only below the floor.
void testWakePoint() {
  constexpr Bounds band{.upper = 75, .lower = 70};
  for (std::int64_t pct = 0; pct < band.upper; ++pct) {
    const bool planned = planSleep({.pct = pct, .band = band}).target().has_value();
    expect(planned == (pct < band.lower),
           "réveil programmé à " + std::to_string(pct) + "% alors que le plancher est à 70");
  }
}

void testChargeDuration() {
  constexpr std::int64_t designMAh = 5000;
  for (const std::int64_t amperageMA : {20'000, 2'000, 500}) {
    const std::int64_t minutes = minutesToCharge(60, 80, designMAh, amperageMA);
    expect(minutes >= 5 && minutes <= 45,
           "durée estimée bornée à 5–45 min (obtenu " + std::to_string(minutes));
  }
}

void testSleepPlan() {
  testPlans();
  testWakePoint();
  testChargeDuration();
}

void testWakeKind() {
  constexpr std::uint32_t processor = 1;
  constexpr std::uint32_t network = 8;
  expect(isFullWake(processor | capabilityGraphics | network), "réveil complet, écran allumé : décharger");
  expect(!isFullWake(processor | network), "réveil de maintenance, sans écran : attendre");
}

void testLedMode() {
  constexpr const char* noText = "";
  const LedInputs below{.adapterPresent = true, .pct = 60, .shownTarget = 80};
  const LedInputs reached{.adapterPresent = true, .pct = 80, .shownTarget = 80};
  const LedInputs unwanted{.wanted = false, .adapterPresent = true, .pct = 80, .shownTarget = 80};
  const LedInputs unplugged{.adapterPresent = false, .pct = 80, .shownTarget = 80};
  expect(ledMode(ChargeState::hold, reached) == LedMode::green, noText);
  expect(ledMode(ChargeState::discharge, reached) == LedMode::blink, noText);
  expect(ledMode(ChargeState::allow, below) == LedMode::blink, noText);
  expect(ledMode(ChargeState::allow, reached) == LedMode::orange, noText);
  expect(ledMode(ChargeState::hold, unwanted) == LedMode::system, noText);
  expect(ledMode(ChargeState::hold, unplugged) == LedMode::system, noText);
}

void testProbeReason() {
  expectEqual(publishedReason(GateFailure::lockedByMacOS), "system-locked", "raison publiée au sondage");
}

// ---- macOS's own limit ---------------------------------------------------------------------------------

void testHoldPoint() {
  expectEqual(nativeHoldPoint({.plugged = true, .pct = 90, .upper = 80}), 90,
              "au-dessus, décharge éteinte : on retient où on est");
  expectEqual(nativeHoldPoint({.plugged = true, .pct = 91, .upper = 80, .holdAt = 90}), 90,
              "la retenue ne glisse pas avec la charge");
}

struct StateCase {
  NativeStateInputs inputs;
  ChargeState want;
  const char* label;
};

void testNativeStates() {
  constexpr auto allow = ChargeState::allow;
  constexpr auto hold = ChargeState::hold;
  constexpr auto discharge = ChargeState::discharge;
  const StateCase cases[] = {
      {{.plugged = true, .pct = 20, .target = 80, .currentMA = 0, .state = hold},
       allow,
       "branché à 20 %, charge pas encore ouverte : on attend la charge, on ne la retient pas"},
      {{.plugged = true, .pct = 30, .target = 80, .state = hold}, allow, "le cas du client : 30 % sous 80"},
      {{.plugged = true, .pct = 74, .target = 80, .currentMA = 60, .state = hold},
       allow,
       "sous la marge de repos de macOS : jamais retenue"},
      {{.plugged = true, .pct = 77, .target = 80, .currentMA = 0, .state = allow},
       hold,
       "dans la marge de repos, sans charge : retenue"},
      {{.plugged = true, .pct = 80, .target = 80, .currentMA = 0, .state = hold},
       hold,
       "à la limite : retenue"},
      {{.plugged = true, .pct = 77, .target = 80, .currentMA = 1500, .state = hold},
       allow,
       "dans la marge, en charge : en charge"},
      {{.plugged = true, .pct = 90, .target = 80, .currentMA = -1000, .state = hold},
       discharge,
       "au-dessus, macOS redescend : décharge"},
      {{.plugged = true, .pct = 60, .target = 80, .currentMA = -1000, .state = hold},
       allow,
       "sous la limite, courant négatif : chargeur trop faible, pas une décharge"},
      {{.plugged = false, .pct = 80, .target = 80, .currentMA = -500, .state = hold},
       allow,
       "débranché : rien à retenir"},
      {{.plugged = true, .pct = 100, .target = 100, .currentMA = 0, .state = hold},
       allow,
       "pas de limite : rien à retenir"},
      {{.plugged = true, .pct = 77, .target = 77, .currentMA = 0, .state = hold},
       hold,
       "trop chaud : consigne au niveau atteint, retenue"},
  };
  for (const StateCase& each : cases) {
    expectEqual(stateName(nativeChargeState(each.inputs)), stateName(each.want), each.label);
  }
}

void testWaitClock() {
  constexpr double start = 1'790'000'000;
  constexpr double minute = 60;
  constexpr double replugged = start + 30 * minute;
  double since = start;
  for (int step = 1; step < 30; ++step) since = nativeAttemptClock(since, false, start + step * minute);
  since = nativeAttemptClock(since, true, replugged);
  expect(!nativeRefusalDue(since, replugged + minute),
         "30 min sur batterie ne comptent pas : une minute après le rebranchement, pas de refus");
  expect(nativeRefusalDue(since, replugged + 11 * minute),
         "10 min branché sans que macOS tienne : là, c'est un refus");
  expectEqualDates(nativeAttemptClock(since, true, replugged + 60 * minute), since,
                   "branché : l'attente court");
}

void testNativeLimit() {
  testHoldPoint();
  testNativeStates();
  testWaitClock();
}

// ---- Files ---------------------------------------------------------------------------------------------

// A file or folder of this process below the temporary folder, removed at the end of the scope. Whatever an
// earlier run left there is removed first. Anything that somebody else put there is never used, because
// others may write to that folder too.
class TemporaryPath {
 public:
  explicit TemporaryPath(const std::string& name)
      : path_(platform::temporaryDirectory() + "/brisko-selftest-" + name) {
    remove();
  }
  ~TemporaryPath() { remove(); }
  TemporaryPath(const TemporaryPath&) = delete;
  TemporaryPath& operator=(const TemporaryPath&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string path(const char* name) const { return path_ + "/" + name; }

 private:
  void remove() const {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string path_;
};

std::string processText() { return std::to_string(platform::processId()); }

// Each creates something that did not exist before, with exactly that mode; false on failure.
bool makeFolder(const std::string& path, mode_t mode) {
  return ::mkdir(path.c_str(), mode) == 0 && ::chmod(path.c_str(), mode) == 0;
}

bool makeFile(const std::string& path, mode_t mode, std::string_view bytes = "") {
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  return file && ::fchmod(file.number(), mode) == 0 && writeAll(file.number(), bytes);
}

bool makeLink(const std::string& path, const std::string& target) {
  std::error_code error;
  std::filesystem::create_symlink(target, path, error);
  return !error;
}

bool exists(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

// 0 when there is no file.
std::uintmax_t sizeOf(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  return error ? 0 : size;
}

bool hasMode(const std::string& path, mode_t mode) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && (status.st_mode & 07777) == mode;
}

// Every field differs from its default.
constexpr Settings unusual{.enabled = false,
                           .limit = 65,
                           .discharge = true,
                           .led = false,
                           .blinkSeconds = 3.5,
                           .thermal = true,
                           .thermalLimit = 37,
                           .topUp = true,
                           .topUpHours = 6,
                           .hysteresis = 12,
                           .history = false,
                           .historyDays = 90,
                           .calibrate = true,
                           .calDrain = 22,
                           .calSoakMinutes = 45,
                           .resetStats = true};

std::optional<Settings> afterRoundTrip(const Settings& settings) {
  const TemporaryPath file(processText() + ".json");
  if (!makeFile(file.path(), 0600)) return std::nullopt;
  const std::string inForce = std::exchange(gConfigPath, file.path());
  writeConfig(settings, std::nullopt, std::nullopt, std::nullopt);
  auto read = readConfig(gConfigPath);
  gConfigPath = inForce;
  return read;
}

void testConfigRoundTrip() {
  if (const auto read = afterRoundTrip(unusual)) {
    expectEqual(*read, unusual, "aller-retour de la configuration");
  } else {
    expect(false, "config illisible après écriture");
  }
  const Settings defaults = parseConfig(Json::object());
  expectEqual(defaults.limit, 80, "limite par défaut");
  expect(defaults.enabled, "limite active par défaut");
  constexpr const char* noText = "";
  expect(!defaults.thermal && !defaults.topUp && !defaults.calibrate, noText);
  expectEqual(parseConfig({{"limit", 70.0}}).limit, 70, "limite écrite en décimal");
}

// While an object of this class exists, the log is written to another folder.
class LogElsewhere {
 public:
  LogElsewhere(const std::string& folder, std::int64_t cap) { LogFile::reset(folder, cap); }
  ~LogElsewhere() { LogFile::reset(LogFile::defaultDirectory, LogFile::defaultCap); }
  LogElsewhere(const LogElsewhere&) = delete;
  LogElsewhere& operator=(const LogElsewhere&) = delete;
};

constexpr std::int64_t smallCap = 5000;  // bytes

// The shortest log that is rotated twice: whole lines fill the cap exactly.
void testRotation(const TemporaryPath& folder) {
  constexpr int linesAtCap = 50;
  const std::string line = std::string(static_cast<std::size_t>(smallCap) / linesAtCap - 1, '.') + "\n";
  const std::string current = folder.path("daemon.log");
  const std::string previous = folder.path("daemon.log.1");
  const LogElsewhere log(folder.path(), smallCap);
  bool alwaysThere = true;
  for (int count = 0; count <= 2 * linesAtCap; ++count) {
    LogFile::append(line);
    alwaysThere = alwaysThere && exists(current);
  }
  expect(alwaysThere, "le journal existe après bascule");
  expect(exists(previous), "la génération précédente est gardée");
  expect(sizeOf(current) <= smallCap, "le journal courant reste sous le plafond");
  expect(sizeOf(previous) <= smallCap, "la génération précédente aussi");
  expect(!exists(folder.path("daemon.log.2")), "aucune deuxième génération");
  constexpr std::string_view last = "dernière ligne\n";
  LogFile::append(last);
  expect(readWholeFile(current).value_or("").ends_with(last), "la dernière ligne écrite est lisible");
}

void testInheritedLog(const std::string& folder) {
  const std::string inherited(static_cast<std::size_t>(smallCap) + 1, '.');
  const bool made = makeFolder(folder, 0700) && makeFile(folder + "/daemon.log", 0600, inherited);
  const LogElsewhere log(folder, smallCap);
  if (made) LogFile::append("première ligne\n");
  expect(made && readWholeFile(folder + "/daemon.log.1") == inherited &&
             sizeOf(folder + "/daemon.log") <= smallCap,
         "un journal hérité trop gros bascule dès la première ligne");
}

void testLogRotation() {
  const TemporaryPath folder("log-" + processText());
  if (!makeFolder(folder.path(), 0700)) return expect(false, "le journal existe après bascule");
  testRotation(folder);
  testInheritedLog(folder.path("inherited"));
}

bool namesAll(const std::vector<std::string>& repairs, const std::vector<std::string>& paths) {
  return std::all_of(paths.begin(), paths.end(), [&](const std::string& path) {
    return std::any_of(repairs.begin(), repairs.end(),
                       [&](const std::string& repair) { return repair.starts_with(path + " "); });
  });
}

void testRepair(const std::string& folder, const std::string& target) {
  const LogElsewhere log(folder, LogFile::defaultCap);
  const std::vector<std::string> repairs = LogFile::repairPermissions();
  expect(hasMode(folder, 0755), "le dossier du journal redevient traversable (755)");
  expect(hasMode(folder + "/daemon.log", 0644), "daemon.log redevient lisible (644)");
  expect(hasMode(folder + "/daemon.err.log", 0644), "daemon.err.log redevient lisible (644)");
  expect(hasMode(target, 0600), "un lien n'est pas suivi : sa cible garde ses droits");
  expect(namesAll(repairs, {folder, "daemon.log", "daemon.err.log"}),
         "chaque réparation est rendue pour être écrite au journal");
  expect(LogFile::repairPermissions().empty(), "rien à réparer au deuxième passage");
}

void testRepairOfLink(const std::string& link, const std::string& target) {
  const LogElsewhere log(link, LogFile::defaultCap);
  expect(LogFile::repairPermissions().empty(), "un lien à la place du dossier n'est pas suivi");
  expect(hasMode(target, 0700), "la cible d'un faux dossier garde ses droits");
}

void testLogPermissions() {
  const TemporaryPath scratch("perms-" + processText());
  const std::string folder = scratch.path("logs");
  const std::string file = scratch.path("file");
  const std::string otherFolder = scratch.path("folder");
  const std::string link = scratch.path("link");
  const bool made = makeFolder(scratch.path(), 0700) && makeFolder(folder, 0700) &&
                    makeFile(folder + "/daemon.log", 0600) && makeFile(folder + "/daemon.err.log", 0600) &&
                    makeFile(file, 0600) && makeLink(folder + "/daemon.log.1", file) &&
                    makeFolder(otherFolder, 0700) && makeLink(link, otherFolder);
  if (!made) return expect(false, "le dossier du journal redevient traversable (755)");
  testRepair(folder, file);
  testRepairOfLink(link, otherFolder);
}

}  // namespace

std::int32_t runSelfTests() {
  testBounds();
  testSleepPlan();
  testWakeKind();
  testLedMode();
  testProbeReason();
  testNativeLimit();
  testConfigRoundTrip();
  testLogRotation();
  testLogPermissions();
  writeStandardOutput(summaryOfChecks());
  return failures.empty() ? 0 : 1;
}

}  // namespace brisko
