// Reading, running and checking scenarios.

#include "sim/scenario/scenario.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "sim/machine/faults.h"
#include "sim/scenario/run_scenario.h"
#include "sim/scenario/scenario_schema.h"
#include "support/files.h"
#include "support/record_schemas.h"
#include "support/testing.h"

namespace brisko::lab::scenario_test {
namespace {

using namespace test;

std::vector<std::string> diagnosticsFor(const std::string& text) {
  Diagnostics diagnostics("a.json");
  const auto scenario = readScenario(text, diagnostics);
  EXPECT_EQ(scenario.has_value(), diagnostics.none());
  return diagnostics.texts();
}

// A scenario with these steps.
std::string with(const std::string& timeline, const std::string& rest = "") {
  return R"({"description": "Somebody tries the lab.", )" + rest + R"("timeline": [)" + timeline + "]}";
}

std::vector<std::string> failuresOf(const std::string& text) {
  Diagnostics diagnostics("a.json");
  const auto scenario = readScenario(text, diagnostics);
  EXPECT_THAT(diagnostics.texts(), IsEmpty());
  return scenario ? runScenario(*scenario, diagnostics).failures : std::vector<std::string>{"not read"};
}

// --- The files

TEST(ScenarioFile, isReportedWithTheLineIfItIsNotJson) {
  EXPECT_THAT(diagnosticsFor("{\n  \"description\": \"x\",\n  \"timeline\" []}"),
              ElementsAre("a.json:3: not valid JSON: Missing a colon after a name of object member."));
  EXPECT_THAT(diagnosticsFor(""), ElementsAre("a.json:1: not valid JSON: The document is empty."));
  EXPECT_THAT(diagnosticsFor(std::string("{}\n\0", 4)), ElementsAre("a.json:2: not valid JSON"));
  EXPECT_THAT(diagnosticsFor("{\"description\": \"\xFF\"}"),
              ElementsAre(StartsWith("a.json:1: not valid JSON: ")));
  EXPECT_THAT(diagnosticsFor("[]"),
              ElementsAre("a.json:1: expected an object that describes a scenario, not []"));
}

// The errors in a scenario with these keys in its Mac, on line 3, and in its step, on line 4.
std::vector<std::string> diagnosticsOf(const std::string& mac, const std::string& step) {
  return diagnosticsFor("{\n\"description\": \"x\", \"mac\":\n{" + mac + "}, \"timeline\": [\n{" + step +
                        "}], \"end\": {\"running\": true}}");
}

TEST(ScenarioFile, reportsTheLineThePlaceAndWhatWasExpected) {
  struct Mistake {
    const char* mac;
    const char* step;
    const char* message;
  };
  for (
      const auto& [mac, step, message] : {
          Mistake{
              R"("gate": "chtx")", "",
              R"(3: /mac/gate: expected chte, ch0b0c, firmware-band or none, not "chtx"; did you mean "chte"?)"},
          Mistake{R"("gate": "door")", "",
                  R"(3: /mac/gate: expected chte, ch0b0c, firmware-band or none, not "door")"},
          Mistake{R"("percent": 120)", "", "3: /mac/percent: expected a number from 0 to 100, not 120"},
          Mistake{R"("macOS": 10)", "", "3: /mac/macOS: expected a whole number from 11 to 99, not 10"},
          Mistake{R"("light": 1)", "", "3: /mac/light: expected true or false, not 1"},
          Mistake{R"("start": "2026-02-30 08:00")", "", "3: /mac/start: there is no such date"},
          Mistake{R"("start": "today")", "",
                  R"(3: /mac/start: expected a date and time in UTC like "2026-03-01 08:00", not "today")"},
          Mistake{
              "", R"("at": "soon")",
              R"(4: /timeline/0/at: expected a time like "+90 s", "+1 h 30 min", "21:30" or "+1 day 07:00", not "soon")"},
          Mistake{"", R"("at": "24:00")", "4: /timeline/0/at: there is no such time"},
          Mistake{"", R"("look": {})", "4: /timeline/0/look: unknown key; known are at, do, note and see"},
          Mistake{"", R"("sea": {})", R"(4: /timeline/0/sea: unknown key; did you mean "see"?)"},
          Mistake{"", R"("see": {"adapterCurt": true})",
                  R"(4: /timeline/0/see/adapterCurt: unknown key; did you mean "adapterCut"?)"},
          Mistake{"", R"("see": {"percent": [90, 80]})",
                  "4: /timeline/0/see/percent: expected the least first, and then the most, not [90,80]"},
          Mistake{"", R"("see": {"log": {"count": {"a/b": -1}}})",
                  "4: /timeline/0/see/log/count/a~1b: expected a whole number from 0, not -1"},
          Mistake{
              "", R"("do": "sleeep")",
              R"(4: /timeline/0/do: expected the name of an action ("brisko-lab actions" lists them), an object )"
              R"(with one name and its value, or a list of actions, not "sleeep"; did you mean "sleep"?)"},
          Mistake{"", R"("do": ["wake", {"temperatur": 20}])",
                  R"(4: /timeline/0/do/1/temperatur: unknown key; did you mean "temperature"?)"},
          Mistake{"", R"("do": {"dance": 20})", "4: /timeline/0/do/dance: unknown key"},
          Mistake{"", R"("do": "charge")",
                  R"(4: /timeline/0/do: needs a value, as an object with "charge" and its value)"},
          Mistake{"", R"("do": {"unplug": 1})",
                  R"(4: /timeline/0/do/unplug: takes no value; write it as a text, "unplug")"},
          Mistake{"", R"("do": {"plug": 301})",
                  R"(4: /timeline/0/do/plug: plug takes a number from 0 to 300 (W), not "301")"},
          Mistake{"", R"("do": {"key-written": {}})",
                  R"(4: /timeline/0/do/key-written: needs "key" and "bytes")"},
          Mistake{
              "", R"("do": {"write": {"path": "/x"}})",
              R"(4: /timeline/0/do/write: expected an object with "path", and with "text" or "json", not {"path":"/x"})"},
          Mistake{
              "", R"("do": {"ask": "apply"})",
              R"(4: /timeline/0/do/ask: expected purge, release, restart, or an object with "request", not "apply")"},
          Mistake{"", R"("do": {"ask": {"request": "apply"}})",
                  R"(4: /timeline/0/do/ask: apply needs "settings")"},
      }) {
    EXPECT_THAT(diagnosticsOf(mac, step), ElementsAre(std::string("a.json:") + message));
  }
}

// The schema reports only its first error; the errors that only the lab detects are reported together.
TEST(ScenarioFile, reportsEveryMistakeThatTheSchemaCannotSee) {
  EXPECT_THAT(diagnosticsFor(with(R"({"at": "24:00", "do": {"plug": 900}})")),
              ElementsAre(HasSubstr("/timeline/0/at: "), HasSubstr("/timeline/0/do/plug: "),
                          "a.json:1: expects nothing, so it cannot fail"));
}

TEST(ScenarioFile, hasALimitedDepth) {
  const auto nested = [](std::size_t levels) {
    return "{\n\"note\":" + std::string(levels, '[') + std::string(levels, ']') + "}";
  };
  EXPECT_THAT(diagnosticsFor(nested(63)), Not(Contains(HasSubstr("levels deep"))));
  EXPECT_THAT(diagnosticsFor(nested(64)), ElementsAre("a.json:2: more than 64 levels deep"));
  EXPECT_THAT(diagnosticsFor(nested(100000)), ElementsAre("a.json:2: more than 64 levels deep"));
}

TEST(ScenarioFile, mayNotContainAKeyTwice) {
  EXPECT_THAT(
      diagnosticsFor("{\"description\": \"x\",\n\"timeline\": [{\"do\": \"plug\",\n\"do\": \"unplug\"}]}"),
      ElementsAre("a.json:3: /timeline/0/do: the key appears twice"));
}

TEST(ScenarioFile, needsADescriptionStepsAndAnExpectation) {
  EXPECT_THAT(diagnosticsFor("{}"), ElementsAre(R"(a.json:1: needs "description" and "timeline")"));
  EXPECT_THAT(diagnosticsFor(R"({"description": "", "timeline": [{}]})"),
              ElementsAre(HasSubstr("/description: expected what the scenario shows, as a sentence, not")));
  EXPECT_THAT(diagnosticsFor(R"({"description": "x", "timeline": []})"),
              ElementsAre(HasSubstr("/timeline: expected a list with at least one step, not []")));
  EXPECT_THAT(diagnosticsFor(with(R"({"see": {"running": true}})")), IsEmpty());
  EXPECT_THAT(diagnosticsFor(with(R"({"at": "+1 s"})", R"("end": {"running": true}, )")), IsEmpty());
  EXPECT_THAT(diagnosticsFor(with(R"({"at": "+1 s"})")), SizeIs(1));
}

TEST(ScenarioFile, mustMatchTheArgumentsOfEachAction) {
  const auto about = [](const std::string& action) {
    return diagnosticsFor(with(R"({"do": )" + action + R"(, "see": {"running": true}})"));
  };
  for (const char* good :
       {R"("plug")", R"({"plug": 67})", R"({"plug": {"number": 67}})", R"({"key-missing": "ACLC"})",
        R"({"key-taken-back-after": {"key": "CHIE", "number": 30}})",
        R"({"key-written": {"key": "CHTE", "bytes": "00000000"}})", R"({"property-text": "CycleCount"})",
        R"(["sleep", "wake"])", R"({"settings-file": "{"})", R"({"ask": "purge"})",
        R"({"ask": {"request": "apply", "settings": {"limit": 70}, "as": "unsigned"}})",
        R"({"write": {"path": "/x", "text": ""}})", R"([])"}) {
    EXPECT_THAT(about(good), IsEmpty()) << good;
  }
  for (const char* bad : {R"("plug-in")",
                          R"({"plug": 900})",
                          R"({"plug": "much"})",
                          R"({"key-missing": "ACL"})",
                          R"("charge")",
                          R"({"unplug": 1})",
                          R"({"key-taken-back-after": "CHIE"})",
                          R"({"plug": 67, "charge": 60})",
                          "7",
                          R"({"key-written": {"key": "CHTE", "bytes": "0"}})",
                          R"({"plug": {"watts": 67}})",
                          R"("settings")",
                          R"({"settings": 1})",
                          R"({"ask": "apply"})",
                          R"({"ask": {"as": "app"}})",
                          R"({"ask": {"request": "purge", "settings": {}}})",
                          R"({"ask": {"request": "purge", "as": "me"}})",
                          R"({"write": {"path": "x", "text": ""}})",
                          R"({"write": {"path": "/x"}})",
                          R"({"remove": "x"})"}) {
    EXPECT_THAT(about(bad), Not(IsEmpty())) << bad;
  }
}

TEST(ScenarioFile, mustMatchTheKnownExpectations) {
  const auto about = [](const std::string& see) { return diagnosticsFor(with(R"({"see": )" + see + "}")); };
  for (const char* good :
       {R"({"percent": 80})", R"({"keys": {"CHTE": "01000000"}})", R"({"files": {"status": "missing"}})",
        R"({"files": {"/x": {"/a~1b": null}}})", R"({"log": "a"})", R"({"log": {"count": {"a": 0}}})"}) {
    EXPECT_THAT(about(good), IsEmpty()) << good;
  }
  for (const char* bad :
       {R"({"percent": "80"})", R"({"percent": [80]})", R"({"percent": [80, "81"]})", R"({"running": 1})",
        R"({"keys": {"CHT": "01"}})", R"({"keys": {"CHTE": "0"}})", R"({"keys": {"CHTE": "0A"}})",
        R"({"state": "full"})", R"({"exit": -1})", R"({"files": {"state": "missing"}})",
        R"({"files": {"status": "there"}})", R"({"files": {"status": {"pct": 1}}})", R"({"log": 1})",
        R"({"files": {"status": {"/a~2": 1}}})", R"({"log": {"never": "a"}})",
        R"({"log": {"count": {"a": -1}}})"}) {
    EXPECT_THAT(about(bad), Not(IsEmpty())) << bad;
  }
}

TEST(ScenarioFile, readsADumpFromItsOwnFolder) {
  Diagnostics diagnostics(std::string(BRISKO_SCENARIOS) + "/x.json");
  const std::string text =
      with(R"({"see": {"running": true}})", R"("mac": {"dump": "../data/dumps/air-charging.json"}, )");
  EXPECT_TRUE(readScenario(text, diagnostics)) << diagnostics.texts().front();
  EXPECT_THAT(diagnosticsFor(with(R"({"see": {"running": true}})", R"("mac": {"dump": "none.json"}, )")),
              ElementsAre(StartsWith("a.json:1: /mac/dump: ")));
  EXPECT_THAT(diagnosticsFor(
                  with(R"({"see": {"running": true}})", R"("mac": {"dump": "none.json", "percent": 70}, )")),
              Contains("a.json:1: /mac/percent: the dump already says it"));
}

// --- The schema

TEST(ScenarioSchema, acceptsEveryScenarioOfTheProject) {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(BRISKO_SCENARIOS)) {
    if (entry.path().extension() != ".json") continue;
    const Json scenario = Json::parse(test::contents(entry.path().string()));
    EXPECT_EQ(test::flawIn(scenario.dump(), "scenario"), std::nullopt) << entry.path();
    ++count;
  }
  EXPECT_GE(count, 40U);
}

TEST(ScenarioSchema, rejectsWhatTheLabRejects) {
  const auto flawOf = [](const std::string& text) {
    return test::flawIn(Json::parse(text).dump(), "scenario");
  };
  EXPECT_EQ(
      flawOf(with(R"({"at": "+1 h 30 min", "do": [{"plug": 67}, "sleep"], "see": {"percent": [70, 80.5]}})")),
      std::nullopt);
  for (const char* step :
       {R"({"at": "soon"})", R"({"do": "plug-in"})", R"({"do": {"plug": "much"}})",
        R"({"see": {"percent": [80]}})", R"({"see": {"colour": 1}})", R"({"see": {"keys": {"CHTE": 1}}})",
        R"({"see": {"files": {"status": 1}}})", R"({"when": "+1 s"})"}) {
    EXPECT_NE(flawOf(with(step)), std::nullopt) << step;
    EXPECT_THAT(diagnosticsFor(with(step)), Not(IsEmpty())) << step;
  }
}

std::set<std::string> namesIn(const Json& object) {
  std::set<std::string> names;
  for (const auto& [name, ignored] : object.items()) names.insert(name);
  return names;
}

TEST(ScenarioSchema, containsEveryActionAndEveryExpectation) {
  const Json definitions = test::schemaOf("scenario").at("definitions");
  const Json& actions = definitions.at("actions");
  std::set<std::string> named = namesIn(actions.at("properties"));
  for (const Json& word : actions.at("anyOf").at(1).at("enum")) named.insert(word.get<std::string>());
  std::set<std::string> known;
  for (const std::string& name : ownActionNames()) known.insert(name);
  for (const virtual_mac::Fault& fault : virtual_mac::faults()) known.emplace(fault.name);
  EXPECT_EQ(named, known);

  const auto checks = checkNames();
  EXPECT_EQ(namesIn(definitions.at("expectations").at("properties")),
            std::set<std::string>(checks.begin(), checks.end()));
  EXPECT_EQ(definitions.at("expectations").at("properties").at("wakes").at("maximum"),
            virtual_mac::scheduledPlaces);
}

TEST(ScenarioSchema, isBuiltIntoTheProgramAsPublished) {
  EXPECT_EQ(scenarioSchemaText(),
            test::contents(std::string(BRISKO_SCHEMA_FOLDER) + "/scenario.schema.json"));
}

// --- The page

std::string page() { return test::contents(std::string(BRISKO_SCHEMA_FOLDER) + "/../lab.md"); }

TEST(ScenarioPage, hasAnExampleThatPasses) {
  const std::string text = page();
  const std::string begin = "```json scenario\n";
  const std::size_t from = text.find(begin);
  ASSERT_NE(from, std::string::npos);
  const std::size_t start = from + begin.size();
  EXPECT_THAT(failuresOf(text.substr(start, text.find("```", start) - start)), IsEmpty());
}

TEST(ScenarioPage, explainsEveryActionOfTheLabAndEveryExpectation) {
  const std::string text = page();
  for (const std::string& name : ownActionNames()) EXPECT_THAT(text, HasSubstr("\"" + name + "\"")) << name;
  for (const std::string& name : checkNames()) EXPECT_THAT(text, HasSubstr("`" + name + "`")) << name;
}

// --- Running

TEST(Scenario, hasNoFailuresWhenItMatches) {
  EXPECT_THAT(failuresOf(with(R"({"at": "+2 h", "see": {"state": "hold", "percent": [79, 81], "running": true,
      "charging": false, "adapterCut": false, "asleep": false, "wakes": 0, "keys": {"CHTE": "01000000"},
      "log": {"inOrder": ["→ state: hold", "limit verified…"]}, "journal": ["CHTE=01000000"],
      "files": {"status": {"/pct": [79, 80], "/nativeFloor": null, "/enabled": true}, "config": "missing"}}})")),
              IsEmpty());
}

TEST(Scenario, reportsEveryDifference) {
  for (const char* see : {R"({"state": "allow"})",
                          R"({"percent": 70})",
                          R"({"running": false})",
                          R"({"charging": true})",
                          R"({"adapterCut": true})",
                          R"({"asleep": true})",
                          R"({"wakes": 1})",
                          R"({"keys": {"CHTE": "00000000"}})",
                          R"({"keys": {"XXXX": "00"}})",
                          R"({"log": "never"})",
                          R"({"log": {"hasNot": "limit verified…"}})",
                          R"({"log": {"count": {"→ state: hold": 2}}})",
                          R"({"log": {"inOrder": ["limit verified…", "→ state: hold"]}})",
                          R"({"journal": "CHTE=02000000"})",
                          R"({"files": {"status": {"/pct": 70}}})",
                          R"({"exit": 0})",
                          R"({"files": {"status": {"/pct": null}}})",
                          R"({"files": {"status": {"/pct": [81, 100]}}})",
                          R"({"files": {"status": {"/none": 1}}})",
                          R"({"files": {"status": "missing"}})",
                          R"({"killedBy": 9})",
                          R"({"files": {"config": "present"}})",
                          R"({"throughout": [81, 100]})",
                          R"({"temperature": [90, 99]})",
                          R"({"current": [500, 5000]})",
                          R"({"limit": 80})",
                          R"({"reply": "done"})",
                          R"({"errors": "x"})"}) {
    const auto failures = failuresOf(
        with(R"({"at": "+10 min", "see": )" + std::string(see) + "}", R"("mac": {"percent": 80}, )"));
    ASSERT_THAT(failures, SizeIs(1)) << see;
    EXPECT_THAT(failures.front(), StartsWith("  /timeline/0/see/")) << see;
    EXPECT_THAT(failures.front(), HasSubstr("(line 1) at 2026-03-01 08:10:00")) << see;
    EXPECT_THAT(failures.front(), HasSubstr("expected: ")) << see;
    EXPECT_THAT(failures.front(), HasSubstr("seen:     ")) << see;
  }
}

TEST(Scenario, stopsAtItsFirstFailure) {
  EXPECT_THAT(failuresOf(with(R"({"see": {"running": false, "asleep": true}}, {"see": {"state": "hold"}})")),
              SizeIs(2));
}

TEST(Scenario, failsForAWarningThatItDoesNotExpect) {
  const std::string before = R"("mac": {"percent": 80}, "before": {"key-without-effect": "CHTE"}, )";
  const auto failures = failuresOf(with(R"({"at": "+3 min", "see": {"state": "hold"}})", before));
  ASSERT_THAT(failures, SizeIs(1));
  EXPECT_THAT(failures.front(), HasSubstr("⚠️ the limit has no effect"));
  EXPECT_THAT(failuresOf(with(R"({"at": "+3 min", "see": {"log": "⚠️ the limit…"}})", before)),
              IsEmpty());
  EXPECT_THAT(failuresOf(with(R"({"at": "+3 min", "see": {"log": "…"}})", before)), SizeIs(1))
      << "a pattern for anything expects no warning";
}

TEST(Scenario, coversTheTimeSinceTheLastCheckpoint) {
  EXPECT_THAT(failuresOf(with(R"({"at": "+1 h", "see": {"log": "→ state: hold"}},
      {"at": "+1 min"}, {"at": "+1 min", "see": {"log": {"hasNot": "→ state: hold"}, "throughout": [79, 81]}})",
                              R"("end": {"log": "→ state: hold", "throughout": [70, 81]}, )")),
              IsEmpty());
}

TEST(Scenario, keepsTheDaemonAliveAsTheLaunchServiceDoes) {
  EXPECT_THAT(failuresOf(with(R"({"at": "+5 s", "do": "kill", "see": {"running": false, "killedBy": 9}},
      {"at": "+4 s", "see": {"running": false}}, {"at": "+1 s", "see": {"running": true}})")),
              IsEmpty());
  EXPECT_THAT(
      failuresOf(with(R"({"at": "+5 s", "do": "terminate"}, {"at": "+1 h", "see": {"running": false}})",
                      R"("daemon": {"keptAlive": false}, )")),
      IsEmpty());
  EXPECT_THAT(failuresOf(with(R"({"at": "+1 h", "do": "start", "see": {"running": true}})",
                              R"("daemon": {"started": false}, )")),
              IsEmpty());
}

TEST(Scenario, reportsWhatCannotBeDone) {
  const auto failures = failuresOf(
      with(R"({"do": "terminate", "see": {"running": false}})", R"("daemon": {"started": false}, )"));
  EXPECT_THAT(failures, ElementsAre(HasSubstr("no daemon runs that could be told")));
}

TEST(Scenario, needsNoExpectationsInInvariantsMode) {
  const std::string mode = R"("mode": "invariants", )";
  EXPECT_THAT(diagnosticsFor(with(R"({"at": "+1 s"})", mode)), IsEmpty());
  EXPECT_THAT(diagnosticsFor(with(R"({"at": "+1 s"})", R"("mode": "kindly", )")),
              ElementsAre(HasSubstr("/mode: expected invariants, not \"kindly\"")));

  // Warnings are allowed, and signals are skipped while no daemon runs.
  const std::string warns = R"("mac": {"percent": 80}, "before": {"key-without-effect": "CHTE"}, )";
  const std::string without = R"("daemon": {"started": false}, )";
  EXPECT_THAT(failuresOf(with(R"({"at": "+3 min", "see": {"state": "hold"}})", mode + warns)), IsEmpty());
  EXPECT_THAT(failuresOf(with(R"({"do": "terminate"})", mode + without)), IsEmpty());
  EXPECT_THAT(failuresOf(with(R"({"do": "terminate", "see": {"running": true}})", mode + without)),
              SizeIs(1));
}

TEST(Scenario, cannotBootAMacThatIsOnNorUseOneThatIsOff) {
  EXPECT_THAT(failuresOf(with(R"({"do": "boot", "see": {"running": true}})")),
              Contains(HasSubstr("cannot be done: the Mac is on already")));
  for (const char* action : {R"("start")", R"("load")", R"({"ask": "restart"})"}) {
    EXPECT_THAT(failuresOf(with(R"({"do": ["shutdown", )" + std::string(action) +
                                R"(], "see": {"running": false}})")),
                Contains(HasSubstr("cannot be done: the Mac is off")))
        << action;
  }
}

TEST(Scenario, writesTheSameLogInEveryRun) {
  const std::string text =
      with(R"({"at": "+5 h", "do": "unplug"}, {"at": "+5 h", "see": {"running": false}})");
  Diagnostics diagnostics("a.json");
  const auto scenario = readScenario(text, diagnostics);
  ASSERT_TRUE(scenario);
  const Outcome first = runScenario(*scenario, diagnostics);
  const Outcome second = runScenario(*scenario, diagnostics);
  EXPECT_THAT(first.log, SizeIs(testing::Gt(3)));
  EXPECT_EQ(first.log, second.log);
  EXPECT_EQ(reportOf(first), reportOf(second));
}

}  // namespace
}  // namespace brisko::lab::scenario_test
