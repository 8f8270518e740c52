// Tests the self-test: every mutant of a rule makes exactly the matching check fail.

#include <map>
#include <set>
#include <sstream>

#include "process/program.h"
#include "support/testing.h"

namespace brisko::mutant_test {
namespace {

using namespace test;

constexpr const char* total = "212";

const std::map<std::string, Words>& expectedFailures() {
  constexpr const char* lost =
      "aller-retour de la configuration: got Settings(enabled: false, limit: 65, discharge: true, led: "
      "false, "
      "blinkSeconds: 3.5, thermal: true, thermalLimit: 37, topUp: true, topUpHours: 6, hysteresis: 12, "
      "history: false, historyDays: 90, calibrate: true, calDrain: 22, calSoakMinutes: 60, resetStats: "
      "true), "
      "want Settings(enabled: false, limit: 65, discharge: true, led: false, blinkSeconds: 3.5, thermal: "
      "true, thermalLimit: 37, topUp: true, topUpHours: 6, hysteresis: 12, history: false, historyDays: 90, "
      "calibrate: true, calDrain: 22, calSoakMinutes: 45, resetStats: true)";
  static const std::map<std::string, Words> failures{
      {"emptyBand", {"plage vide à limite=20"}},
      {"carriesOnToTheFloor",
       {"sous le plancher : porter la charge jusqu'à la limite: got carryOn(toward: 75), want "
        "carryOn(toward: "
        "80)"}},
      {"carriesOnInTheBand", {"dans la plage : geler: got carryOn(toward: 80), want freeze"}},
      {"carriesOnAtTheFloor", {"pile sur le plancher : geler: got carryOn(toward: 80), want freeze"}},
      {"carriesOnAtTheLimit", {"pile sur la limite : geler: got carryOn(toward: 80), want freeze"}},
      {"carriesOnAboveTheLimit",
       {"au-dessus de la limite : geler, jamais décharger en dormant: got carryOn(toward: 80), want freeze"}},
      {"floorOf75",
       {"réveil programmé à 70% alors que le plancher est à 70",
        "réveil programmé à 71% alors que le plancher est à 70",
        "réveil programmé à 72% alors que le plancher est à 70",
        "réveil programmé à 73% alors que le plancher est à 70",
        "réveil programmé à 74% alors que le plancher est à 70"}},
      {"plansUnplugged", {"débranché : ne rien faire: got carryOn(toward: 80), want leaveAlone"}},
      {"plansSwitchedOff", {"limite éteinte : ne rien faire: got carryOn(toward: 80), want leaveAlone"}},
      {"plansWhileCalibrating",
       {"séquence en cours : ne pas s'en mêler: got carryOn(toward: 80), want leaveAlone"}},
      {"wakesTooSoon", {"durée estimée bornée à 5–45 min (obtenu 3"}},
      {"wakesTooLate", {"durée estimée bornée à 5–45 min (obtenu 120"}},
      {"noWakeIsFull", {"réveil complet, écran allumé : décharger"}},
      {"everyWakeIsFull", {"réveil de maintenance, sans écran : attendre"}},
      {"orangeHold", {""}},
      {"steadyDischarge", {""}},
      {"steadyCharge", {""}},
      {"blinksAtTheTarget", {""}},
      {"unwantedLight", {""}},
      {"lightWithoutAdapter", {""}},
      {"otherReason", {"raison publiée au sondage: got locked, want system-locked"}},
      {"holdsAtTheLimit", {"au-dessus, décharge éteinte : on retient où on est: got 80, want 90"}},
      {"holdSlides", {"la retenue ne glisse pas avec la charge: got 91, want 90"}},
      {"holdsBeforeTheCurrentFlows",
       {"branché à 20 %, charge pas encore ouverte : on attend la charge, on ne la retient pas: got hold, "
        "want allow"}},
      {"holdsWithoutACurrent", {"le cas du client : 30 % sous 80: got hold, want allow"}},
      {"widerMargin", {"sous la marge de repos de macOS : jamais retenue: got hold, want allow"}},
      {"noCurrentIsCharging", {"dans la marge de repos, sans charge : retenue: got allow, want hold"}},
      {"openAtTheLimit", {"à la limite : retenue: got allow, want hold"}},
      {"chargingGoesUnseen", {"dans la marge, en charge : en charge: got hold, want allow"}},
      {"dischargeGoesUnseen", {"au-dessus, macOS redescend : décharge: got hold, want discharge"}},
      {"weakAdapterHolds",
       {"sous la limite, courant négatif : chargeur trop faible, pas une décharge: got hold, want allow"}},
      {"holdsUnplugged", {"débranché : rien à retenir: got hold, want allow"}},
      {"holdsWithoutALimit", {"pas de limite : rien à retenir: got hold, want allow"}},
      {"openWhenTooHot", {"trop chaud : consigne au niveau atteint, retenue: got allow, want hold"}},
      {"batteryTimeCounts",
       {"30 min sur batterie ne comptent pas : une minute après le rebranchement, pas de refus"}},
      {"longerPatience", {"10 min branché sans que macOS tienne : là, c'est un refus"}},
      {"clockStartsOver",
       {"branché : l'attente court: got 2026-09-21 15:43:20 +0000, want 2026-09-21 14:42:20 +0000"}},
      {"losesAField", {lost}},
      {"unreadableConfiguration", {"config illisible après écriture"}},
      {"otherLimit", {"limite par défaut: got 90, want 80"}},
      {"switchedOff", {"limite active par défaut"}},
      {"hotByDefault", {""}},
      {"fullByDefault", {""}},
      {"calibratesByDefault", {""}},
      {"ignoresFractions", {"limite écrite en décimal: got 80, want 70"}},
      {"losesTheLogOnRotation", {"le journal existe après bascule"}},
      {"losesThePreviousLog", {"la génération précédente est gardée"}},
      {"rotatesOnce", {"le journal courant reste sous le plafond"}},
      {"rotatesLate", {"la génération précédente aussi"}},
      {"keepsASecondLog", {"aucune deuxième génération"}},
      {"cutsLines", {"la dernière ligne écrite est lisible"}},
      {"swellsShortLines",
       {"la dernière ligne écrite est lisible", "un journal hérité trop gros bascule dès la première ligne"}},
      {"removesWhatItRepairs",
       {"daemon.log redevient lisible (644)", "daemon.err.log redevient lisible (644)"}},
      {"forgetsInheritedBytes", {"un journal hérité trop gros bascule dès la première ligne"}},
      {"folderStaysShut", {"le dossier du journal redevient traversable (755)"}},
      {"logStaysShut", {"daemon.log redevient lisible (644)"}},
      {"errorLogStaysShut", {"daemon.err.log redevient lisible (644)"}},
      {"followsALinkToAFile", {"un lien n'est pas suivi : sa cible garde ses droits"}},
      {"hidesRepairs", {"chaque réparation est rendue pour être écrite au journal"}},
      {"repairsWhatIsRight", {"rien à réparer au deuxième passage"}},
      {"reportsALink", {"un lien à la place du dossier n'est pas suivi"}},
      {"opensUpBehindALink", {"la cible d'un faux dossier garde ses droits"}},
  };
  return failures;
}

TEST(Mutants, areCaughtByTheSelfTestInTheMatchingCheckAlone) {
  for (const auto& [name, failures] : expectedFailures()) {
    const Finished finished = run("brisko-mutant", {name, "--selftest"});
    EXPECT_EQ(finished.status, 1) << name;
    std::string output =
        "✗ " + std::to_string(failures.size()) + " erreur(s) sur " + total + " vérifications :\n";
    for (const std::string& failure : failures) output += "  - " + failure + "\n";
    EXPECT_EQ(finished.output, output) << name;
    EXPECT_EQ(finished.errors, "") << name;
  }
}

// Mutants that the lab has to catch and the self-test need not.
bool isForTheLab(const std::string& name) { return name.starts_with("watch"); }

// A mutant of something that the self-test does not cover belongs here, with the test that catches it.
TEST(Mutants, areTheListedOnes) {
  std::istringstream names(run("brisko-mutant", {}).output);
  std::set<std::string> listed;
  for (std::string name; std::getline(names, name);) {
    if (isForTheLab(name)) continue;
    EXPECT_TRUE(listed.insert(name).second) << name;
  }
  std::set<std::string> tested;
  for (const auto& [name, failures] : expectedFailures()) tested.insert(name);
  EXPECT_EQ(listed, tested);
}

TEST(Mutants, areRefusedWhenUnknown) {
  const Finished finished = run("brisko-mutant", {"nothing", "--selftest"});
  EXPECT_EQ(finished.status, 64);
  EXPECT_EQ(finished.output, "");
  EXPECT_EQ(finished.errors, "brisko-mutant: unknown mutant nothing\n");
}

}  // namespace
}  // namespace brisko::mutant_test
