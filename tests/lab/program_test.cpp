// The lab as a program: what it prints and how it ends.

#include <cstdio>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "support/files.h"
#include "support/scratch_folder.h"

namespace brisko::lab {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

struct Ended {
  int status = -1;
  std::string output = {};
};

Ended run(const std::string& arguments) {
  const std::string command = std::string(BRISKO_PROGRAMS) + "/brisko-lab " + arguments + " 2>&1";
  std::FILE* pipe = ::popen(command.c_str(), "r");
  Ended ended;
  char part[256];
  while (std::fgets(part, sizeof part, pipe) != nullptr) ended.output += part;
  const int status = ::pclose(pipe);
  if (WIFEXITED(status)) ended.status = WEXITSTATUS(status);
  return ended;
}

class LabProgram : public ::testing::Test {
 protected:
  LabProgram() {
    test::put(folder.path("good.json"), R"({"story": "It runs.", "timeline": [{"see": {"running": true}}]})");
    test::put(folder.path("wrong.json"),
              R"({"story": "It flies.", "timeline": [{"see": {"asleep": true}}]})");
    test::put(folder.path("bad.json"), R"({"story": "It lies.", "timelime": []})");
  }
  test::ScratchFolder folder;
};

TEST_F(LabProgram, endsWith0WhenAllHold) {
  const Ended ended = run("run " + folder.path("good.json"));
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, "ok    " + folder.path("good.json") + " (0 s): It runs.\n");
}

TEST_F(LabProgram, endsWith1AndTellsTheDifference) {
  const Ended ended = run("run " + folder.path("good.json") + " " + folder.path("wrong.json"));
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.output, HasSubstr("FAIL  " + folder.path("wrong.json") + " (0 s): It flies.\n" +
                                      "  /timeline/0/see/asleep (line 1) at 2026-03-01 08:00:00\n"
                                      "    expected: true\n    seen:     false\n"
                                      "  The end of the log until then:\n    2026-03-01T08:00:00Z  "));
  EXPECT_THAT(ended.output, HasSubstr("\n2 scenarios: 1 hold, 1 failed, 0 could not be read\n"));
}

TEST_F(LabProgram, endsWith2ForABadFileAndPlaysTheOthers) {
  const Ended ended =
      run("run " + folder.path("bad.json") + " " + folder.path("none.json") + " " + folder.path("good.json"));
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.output, HasSubstr(folder.path("bad.json") + ":1: /timelime: is not known here"));
  EXPECT_THAT(ended.output, HasSubstr(folder.path("none.json") + ": cannot be read\n"));
  EXPECT_THAT(ended.output, HasSubstr("3 scenarios: 1 hold, 0 failed, 2 could not be read\n"));
}

TEST_F(LabProgram, endsWith2WhenItIsMisused) {
  EXPECT_EQ(run("").status, 2);
  EXPECT_EQ(run("run").status, 2);
  EXPECT_EQ(run("fly").status, 2);
  EXPECT_EQ(run("--help").status, 0);
}

TEST_F(LabProgram, playsACampaign) {
  const Ended ended = run("campaign --seeds 1..2 --days 1 --faults none");
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.output, EndsWith("\nseeds 1..2, 1 day each, faults none: everything holds\n"));
  EXPECT_EQ(run("campaign --days 1").status, 2);
  EXPECT_EQ(run("campaign --seeds 2..1").status, 2);
  EXPECT_EQ(run("campaign --seeds 1 --days 0").status, 2);
  EXPECT_EQ(run("campaign --seeds 1 --faults few").status, 2);
  EXPECT_EQ(run("campaign --seeds 1 --jobs 0").status, 2);
}

TEST_F(LabProgram, endsACampaignCleanlyOnControlC) {
  // The shell in the middle gets its own status back; the signal is for the lab alone.
  const Ended ended = run("campaign --seeds 1..1000 --days 30 & sleep 0.5; kill -INT $!; wait $!");
  EXPECT_EQ(ended.status, 130);
  EXPECT_THAT(ended.output, HasSubstr("30 days each, faults all: broken off after "));
}

TEST_F(LabProgram, printsTheStoryOfASeedThatItCanPlay) {
  const Ended story = run("story --seed 17 --days 1 --faults none");
  EXPECT_EQ(story.status, 0);
  test::put(folder.path("story.json"), story.output);
  EXPECT_EQ(run("run " + folder.path("story.json")).status, 0);
  EXPECT_EQ(run("story").status, 2);
}

TEST_F(LabProgram, listsWhatCanHappen) {
  const Ended ended = run("actions");
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.output, HasSubstr("\n  settings-replaced\n"));
  EXPECT_THAT(ended.output, HasSubstr("\nclock-step --number N (s)\n"));
}

}  // namespace
}  // namespace brisko::lab
