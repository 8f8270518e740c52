// The lab as a program: what it prints and how it ends.

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include <sys/wait.h>

#include "sim/replay/sample_report.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::lab::program_test {
namespace {

using namespace test;
using Json = nlohmann::json;

struct Ended {
  int status = -1;
  std::string output = {};
};

Ended runCommand(const std::string& command) {
  std::FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  Ended ended;
  char part[256];
  while (std::fgets(part, sizeof part, pipe) != nullptr) ended.output += part;
  const int status = ::pclose(pipe);
  if (WIFEXITED(status)) ended.status = WEXITSTATUS(status);
  return ended;
}

Ended run(const std::string& arguments) {
  return runCommand(std::string(BRISKO_PROGRAMS) + "/brisko-lab " + arguments);
}

long countOf(const std::string& text, const std::string& piece) {
  long count = 0;
  for (auto at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++count;
  return count;
}

class LabProgram : public ::testing::Test {
 protected:
  LabProgram() {
    test::put(folder.path("good.json"),
              R"({"description": "It runs.", "timeline": [{"see": {"running": true}}]})");
    test::put(folder.path("wrong.json"),
              R"({"description": "It flies.", "timeline": [{"see": {"asleep": true}}]})");
    test::put(folder.path("bad.json"), R"({"description": "It lies.", "timelime": []})");
  }
  test::ScratchFolder folder;
};

TEST_F(LabProgram, endsWith0IfAllScenariosPass) {
  const Ended ended = run("run " + folder.path("good.json"));
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, "ok    " + folder.path("good.json") + " (0 s): It runs.\n");
}

TEST_F(LabProgram, endsWith1AndReportsTheDifference) {
  const Ended ended = run("run " + folder.path("good.json") + " " + folder.path("wrong.json"));
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.output, HasSubstr("FAIL  " + folder.path("wrong.json") + " (0 s): It flies.\n" +
                                      "  /timeline/0/see/asleep (line 1) at 2026-03-01 08:00:00\n"
                                      "    expected: true\n    seen:     false\n"
                                      "  The end of the log until then:\n    2026-03-01T08:00:00Z  "));
  EXPECT_THAT(ended.output, HasSubstr("\n2 scenarios: 1 hold, 1 failed, 0 could not be read\n"));
}

// A scenario and a report may come from anybody.
TEST_F(LabProgram, printsNothingThatCommandsATerminal) {
  const std::string command =
      "\x1b]0;title\x07\xC2\x9B"
      "2J";
  test::put(folder.path("hostile.json"), Json{{"description", "It runs." + command},
                                              {"timeline", Json::parse(R"([{"see":{"running":true}}])")}}
                                             .dump());
  const Ended ended = run("run " + folder.path("hostile.json"));
  EXPECT_THAT(ended.output, HasSubstr("It runs.?]0;title??2J"));
  auto members = test::sampleMembers();
  members["daemon.log"] += "2026-03-01T08:00:02Z  " + command + " in the log\n";
  test::put(folder.path("report.tar"), test::archiveOf(members));
  const Ended replayed = run("replay " + folder.path("report.tar"));
  EXPECT_EQ(replayed.status, 0) << replayed.output;
  EXPECT_THAT(replayed.output, HasSubstr("?]0;title??2J in the log"));
  EXPECT_THAT(replayed.output, Not(HasSubstr("\x1b")));
  EXPECT_THAT(run("replay " + command + "/x.tar").output, Not(HasSubstr("\x1b")));
}

// On the battery each percent causes a summary; the adapter then causes other lines.
TEST_F(LabProgram, reportsHowManySummariesItOmits) {
  test::put(folder.path("down.json"),
            R"({"description": "It drains.", "mac": {"percent": 90, "plugged": false},
    "timeline": [{"at": "+30 min"}, {"do": "plug"}, {"at": "+30 s", "see": {"log": {"count": {"cap …": 0}}}}]})");
  const Ended ended = run("run " + folder.path("down.json"));
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.output, HasSubstr("seen:     6 times\n"));
  EXPECT_THAT(
      ended.output,
      ContainsRegex("XPC listening on com.brisko.daemon.xpc\n    … 4 more summaries\n    [^ ]*Z  cap 80%"));
  EXPECT_EQ(countOf(ended.output, "Z  cap "), 2) << "one of five, and the single one";
}

TEST_F(LabProgram, omitsNoSummaryIfNoneFollowsAnother) {
  const Ended ended = run("run " + folder.path("wrong.json"));
  EXPECT_EQ(countOf(ended.output, "Z  cap "), 1);
  EXPECT_EQ(countOf(ended.output, " more summar"), 0);
}

TEST_F(LabProgram, endsWith2ForABadFileAndRunsTheOthers) {
  const Ended ended =
      run("run " + folder.path("bad.json") + " " + folder.path("none.json") + " " + folder.path("good.json"));
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.output,
              HasSubstr(folder.path("bad.json") + ":1: /timelime: unknown key; did you mean \"timeline\"?"));
  EXPECT_THAT(ended.output, HasSubstr(folder.path("none.json") + ": cannot be read\n"));
  EXPECT_THAT(ended.output, HasSubstr("3 scenarios: 1 hold, 0 failed, 2 could not be read\n"));
}

TEST_F(LabProgram, endsWith2WhenItIsMisused) {
  EXPECT_EQ(run("").status, 2);
  EXPECT_EQ(run("run").status, 2);
  EXPECT_EQ(run("fly").status, 2);
  EXPECT_EQ(run("--help").status, 0);
}

TEST_F(LabProgram, runsACampaign) {
  const Ended ended = run("campaign --seeds 1..2 --days 1 --faults none");
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.output, EndsWith("\nseeds 1..2, 1 day each, faults none: all invariants hold\n"));
  EXPECT_EQ(run("campaign --days 1").status, 2);
  EXPECT_EQ(run("campaign --seeds 2..1").status, 2);
  EXPECT_EQ(run("campaign --seeds 1 --days 0").status, 2);
  EXPECT_EQ(run("campaign --seeds 1 --faults few").status, 2);
  EXPECT_EQ(run("campaign --seeds 1 --jobs 0").status, 2);
}

TEST_F(LabProgram, endsACampaignCleanlyOnControlC) {
  // Only the lab gets the signal; the shell around it passes on the status.
  const Ended ended = run("campaign --seeds 1..1000 --days 30 & sleep 0.5; kill -INT $!; wait $!");
  EXPECT_EQ(ended.status, 130);
  EXPECT_THAT(ended.output, HasSubstr("30 days each, faults all: cancelled after "));
}

// --- Shards

class LabShards : public LabProgram {
 protected:
  static inline const std::string ofADay = "--seeds 3..4 --days 1 --faults all";

  // The summary without what it cost.
  [[nodiscard]] Json summaryIn(const std::string& name) const {
    Json words = Json::parse(test::contents(folder.path(name)), nullptr, false);
    EXPECT_TRUE(words.is_object()) << name;
    if (words.is_object()) words.erase("cost");
    return words;
  }
  static Ended runScript(const std::string& environment, const std::string& arguments) {
    return runCommand(environment + " LAB=" BRISKO_PROGRAMS "/brisko-lab " BRISKO_SCRIPTS "/" + arguments);
  }
};

TEST_F(LabShards, addUpToTheWholeCampaignWhateverRunsThem) {
  EXPECT_EQ(run("campaign " + ofADay + " --summary " + folder.path("whole.json")).status, 0);
  const Json whole = summaryIn("whole.json");
  EXPECT_EQ(whole.at("finished"), Json::array({Json::array({3, 4})}));
  EXPECT_EQ(whole.at("coverage").at("unknownLines"), 0);
  EXPECT_GT(whole.at("coverage").at("states").at("charge allow"), 0);
  EXPECT_EQ(whole.at("coverage").at("transitions").at("calibration soak → restore"), 0);
  EXPECT_GT(whole.at("coverage").at("logLines").at("xpc-listening-on"), 0);
  EXPECT_FALSE(whole.at("coverage").at("faultPairs").empty());

  // GNU parallel with two workers.
  const Ended parallel =
      runScript("WORKERS=2", "campaign-parallel.sh " + folder.path("parallel") + " 2 " + ofADay);
  EXPECT_EQ(parallel.status, 0) << parallel.output;
  EXPECT_THAT(parallel.output, HasSubstr("seeds 3..4, 1 day each, faults all, commit "));
  EXPECT_EQ(summaryIn("parallel/merged.json"), whole);

  // The tasks of a Slurm array, one after another; the first is started again.
  for (const char* task : {"1", "2", "1"}) {
    const Ended ended = runScript("SLURM_ARRAY_TASK_COUNT=2 SLURM_ARRAY_TASK_ID=" + std::string(task),
                                  "campaign-slurm.sh " + folder.path("slurm") + " " + ofADay);
    EXPECT_EQ(ended.status, 0) << ended.output;
  }
  const std::string first = folder.path("slurm/shard-1.json ");
  const std::string second = folder.path("slurm/shard-2.json ");
  EXPECT_EQ(run("merge " + second + first + "--summary " + folder.path("merged.json")).status, 0);
  EXPECT_EQ(summaryIn("merged.json"), whole);

  const Ended missing = run("merge " + second);
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.output, "brisko-lab: shard 1 of 2 is missing: seeds 3..3\n");
  test::put(folder.path("slurm/shard-1.json"), "{");
  const Ended torn = run("merge " + first + second + folder.path("none.json"));
  EXPECT_EQ(torn.status, 2);
  EXPECT_THAT(torn.output,
              HasSubstr("brisko-lab: " + folder.path("slurm/shard-1.json") + ": is torn: it is not JSON\n"));
  EXPECT_THAT(torn.output, HasSubstr("brisko-lab: " + folder.path("none.json") + ": cannot be read\n"));
}

TEST_F(LabShards, areRefusedWithoutAFileOrASeed) {
  EXPECT_EQ(run("campaign --seeds 1..4 --shard 1/2").status, 2);
  EXPECT_EQ(run("campaign --seeds 1..4 --shard 3/2 --summary " + folder.path("s.json")).status, 2);
  EXPECT_EQ(run("campaign --seeds 1..4 --shard 1/5 --summary " + folder.path("s.json")).status, 2);
  EXPECT_EQ(run("merge").status, 2);
}

TEST_F(LabProgram, printsTheScenarioOfASeedThatItCanRun) {
  const Ended generated = run("generate --seed 17 --days 1 --faults none");
  EXPECT_EQ(generated.status, 0);
  test::put(folder.path("generated.json"), generated.output);
  EXPECT_EQ(run("run " + folder.path("generated.json")).status, 0);
  EXPECT_EQ(run("generate").status, 2);
}

TEST_F(LabProgram, listsTheActions) {
  const Ended ended = run("actions");
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.output, HasSubstr("\n  settings-replaced\n"));
  EXPECT_THAT(ended.output, HasSubstr("\nclock-step --number N (s)\n"));
}

// --- Charts

TEST_F(LabProgram, drawsAScenario) {
  const std::string page = folder.path("a.html");
  const std::string chart = folder.path("a.svg");
  const Ended ended = run("run --report " + page + " --svg " + chart + " " + folder.path("good.json"));
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, "ok    " + folder.path("good.json") + " (0 s): It runs.\n");
  EXPECT_THAT(test::contents(page), HasSubstr("<h1>It runs.</h1>"));
  EXPECT_THAT(test::contents(page), HasSubstr("MacBook Air 13"));
  EXPECT_THAT(test::contents(chart), HasSubstr("<title id=\"picture-title\">It runs.</title>"));
}

TEST_F(LabProgram, drawsAScenarioThatFailsToo) {
  const std::string page = folder.path("a.html");
  EXPECT_EQ(run("run --report " + page + " " + folder.path("wrong.json")).status, 1);
  EXPECT_THAT(test::contents(page), HasSubstr("<pre>  /timeline/0/see/asleep (line 1)"));
}

TEST_F(LabProgram, drawsNoInvalidFile) {
  EXPECT_EQ(run("run --report " + folder.path("a.html") + " " + folder.path("bad.json")).status, 2);
  EXPECT_FALSE(test::exists(folder.path("a.html")));
}

TEST_F(LabProgram, drawsOneScenarioAtATime) {
  const std::string good = folder.path("good.json");
  for (const std::string option : {"--report ", "--svg ", "--trace ", "--volume "}) {
    const Ended ended = run("run " + option + folder.path("a") + " " + good + " " + good);
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.output, HasSubstr("name one FILE.json"));
    EXPECT_FALSE(test::exists(folder.path("a")));
  }
}

TEST_F(LabProgram, reportsWhenAChartCannotBeWritten) {
  const std::string nowhere = folder.path("none/a.svg");
  const Ended ended = run("run --svg " + nowhere + " " + folder.path("good.json"));
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.output, HasSubstr("brisko-lab: " + nowhere + ": cannot be written\n"));
}

TEST_F(LabProgram, keepsTheFilesOfTheMac) {
  const std::string volume = folder.path("volume");
  EXPECT_EQ(run("run --volume " + volume + " " + folder.path("good.json")).status, 0);
  EXPECT_THAT(test::contents(volume + "/Library/Application Support/Brisko/status.json"),
              HasSubstr("\"pct\":70"));
  const Ended again = run("run --volume " + volume + " " + folder.path("good.json"));
  EXPECT_EQ(again.status, 2);
  EXPECT_THAT(again.output, HasSubstr(volume + ": exists already"));
  EXPECT_EQ(run("run --volume " + folder.path("none/volume") + " " + folder.path("good.json")).status, 2);
}

TEST_F(LabProgram, writesATraceOfTheLogTheFilesAndTheJournal) {
  const std::string file = folder.path("a.txt");
  const std::string held = folder.path("held.json");
  test::put(held, R"({"description": "It holds.", "mac": {"percent": 90},
                      "timeline": [{"at": "+2 min", "see": {"state": "hold"}}]})");
  EXPECT_EQ(run("run --trace " + file + " " + held).status, 0);
  const std::string trace = test::contents(file);
  EXPECT_THAT(trace, StartsWith("=== log\n"));
  EXPECT_THAT(trace, HasSubstr("brisko-daemon started"));
  EXPECT_THAT(trace, ContainsRegex("=== /Library/Application Support/Brisko/status.json\n\\{.*\"pct\":90"));
  EXPECT_THAT(trace.substr(trace.find("=== journal\n")),
              ContainsRegex("\n[0-9]+\\.[0-9]{3} CHTE=01000000\n"));
  EXPECT_EQ(run("run --trace " + folder.path("none/a.txt") + " " + held).status, 2);
}

TEST_F(LabProgram, drawsTheSameEachTime) {
  const std::string scenario = std::string(BRISKO_SCENARIOS) + "/a-hot-car.json";
  for (const std::string name : {"1", "2"}) {
    const std::string options =
        "--svg " + folder.path(name + ".svg") + " --report " + folder.path(name + ".html");
    EXPECT_EQ(run("run " + options + " " + scenario).status, 0);
  }
  EXPECT_THAT(test::contents(folder.path("1.svg")), HasSubstr("too hot"));
  EXPECT_EQ(test::contents(folder.path("1.svg")), test::contents(folder.path("2.svg")));
  EXPECT_EQ(test::contents(folder.path("1.html")), test::contents(folder.path("2.html")));
}

// The chart in the README is the one that the lab draws, with every compiler.
TEST_F(LabProgram, drawsTheChartInTheReadme) {
  const std::string scenario = "tests/scenarios/a-day-and-two-nights.json";
  const std::string committed = "docs/a-day-and-two-nights.svg";
  const std::string drawn = folder.path("drawn.svg");
  const std::string sources = std::string(BRISKO_SCENARIOS) + "/../../";
  ASSERT_EQ(run("run --svg " + drawn + " " + sources + scenario).status, 0);
  EXPECT_TRUE(test::contents(drawn) == test::contents(sources + committed))
      << "the chart differs from the one that the lab draws; check the new one and commit it:\n"
      << "  build/release/brisko-lab run --svg " << committed << " " << scenario;
  EXPECT_THAT(test::contents(sources + "README.md"), HasSubstr(committed));
}

class LabHistory : public LabProgram {
 protected:
  void day(const std::string& lines) { test::put(folder.path("2026-03-01.jsonl"), lines); }
  [[nodiscard]] std::string inZone(const std::string& zone) const {
    ::setenv("TZ", zone.c_str(), 1);
    EXPECT_EQ(run("history " + folder.path() + " --svg " + folder.path("a.svg")).status, 0);
    return test::contents(folder.path("a.svg"));
  }
  const std::string line = R"({"g":true,"p":80,"s":"hold","t":1772352000})";
};

TEST_F(LabHistory, isDrawnFromItsFolder) {
  day(line + "\nnonsense\n");
  const Ended ended = run("history " + folder.path() + " --report " + folder.path("a.html"));
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.output, HasSubstr("2026-03-01.jsonl:2: is no JSON object\n"));
  EXPECT_THAT(ended.output, HasSubstr(folder.path() + ": 1 line of 1 day file, 1 broken\n"));
  EXPECT_THAT(test::contents(folder.path("a.html")), HasSubstr("1 line was left out, being broken."));
}

TEST_F(LabHistory, isShownInTheTimeZoneOfItsReader) {
  day(line);
  EXPECT_THAT(inZone("UTC"), HasSubstr("From 1 March 2026 08:00:00 to 1 March 2026 08:00:00 (UTC)"));
  EXPECT_THAT(inZone("PST8PDT"), HasSubstr("From 1 March 2026 00:00:00 to 1 March 2026 00:00:00 (PST)"));
}

TEST_F(LabHistory, endsWith2IfItIsMissing) {
  const Ended ended = run("history " + folder.path() + " --svg " + folder.path("a.svg"));
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.output, HasSubstr(folder.path() + ": there is no history here"));
  EXPECT_FALSE(test::exists(folder.path("a.svg")));
}

TEST_F(LabHistory, needsAnOutputFile) {
  day(line);
  const Ended ended = run("history " + folder.path());
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.output, HasSubstr("--report OUT.html"));
  EXPECT_EQ(run("history --svg " + folder.path("a.svg")).status, 2);
}

TEST_F(LabProgram, writesTheLogOfASingleScenario) {
  const std::string log = folder.path("good.log");
  EXPECT_EQ(run("run --log " + log + " " + folder.path("good.json")).status, 0);
  EXPECT_THAT(test::contents(log), ContainsRegex("^20[0-9-]+T[0-9:]+Z  brisko-daemon started"));
  EXPECT_THAT(test::contents(log), EndsWith("\n"));
  const Ended ended =
      run("run --log " + log + " " + folder.path("good.json") + " " + folder.path("good.json"));
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.output, HasSubstr("are for a single scenario"));
}

}  // namespace
}  // namespace brisko::lab::program_test
