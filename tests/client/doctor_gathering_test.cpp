// What the doctor reads of commands, and how it runs them.
#include <array>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include "client/child_process.h"
#include "client/doctor/command_text.h"
#include "client/doctor/gathering.h"
#include "client/launchd_text.h"
#include "client/real_time.h"

namespace brisko::client::doctor_gathering_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// --- What commands print

TEST(CommandText, showsHowTheLastProcessEnded) {
  const Job crashed = jobIn(
      "system/com.brisko.daemon = {\n\tactive count = 0\n\tstate = spawn scheduled\n\truns = 41\n"
      "\tlast exit code = 2\n\tlast terminating signal = Abort trap: 6\n}\n");
  EXPECT_EQ(crashed.lastExitCode, 2);
  EXPECT_EQ(crashed.lastSignal, "Abort trap: 6");
  EXPECT_FALSE(crashed.processId);
  EXPECT_EQ(jobIn("\tlast exit code = 78: EX_CONFIG\n").lastExitCode, 78);
  EXPECT_EQ(jobIn("\tlast exit code = (never exited)\n").lastExitCode, std::nullopt);
}

TEST(CommandText, showsDisabledJobs) {
  EXPECT_TRUE(isDisabledIn("disabled services = {\n\t\t\"com.brisko.daemon\" => disabled\n}\n"));
  EXPECT_TRUE(isDisabledIn("\"com.brisko.daemon\" => true\n"));
  EXPECT_FALSE(isDisabledIn("\"com.brisko.daemon\" => enabled\n"));
  EXPECT_FALSE(isDisabledIn("\"com.brisko.daemon.other\" => disabled\n"));
  EXPECT_FALSE(isDisabledIn(""));
}

TEST(CommandText, showsWhatMayRunInTheBackground) {
  const auto item = [](const std::string& disposition, const std::string& url) {
    return " #2:\n   Name: something\n   Disposition: [enabled, " + disposition +
           ", notified] (0xb)\n   URL: " + url + "\n";
  };
  const std::string job = "file:///Library/LaunchDaemons/com.brisko.daemon.plist";
  EXPECT_EQ(backgroundAllowedIn(item("disallowed", job)), false);
  EXPECT_EQ(backgroundAllowedIn(item("allowed", job)), true);
  EXPECT_EQ(backgroundAllowedIn(item("disallowed", "file:///other") + item("allowed", job)), true);
  EXPECT_EQ(backgroundAllowedIn(item("allowed", job) + item("disallowed", "file:///other")), true);
  EXPECT_EQ(backgroundAllowedIn(item("disallowed", "file:///other")), std::nullopt);
}

const std::string processList =
    "    1     0 /sbin/launchd\n"
    "  312     1 /Library/Brisko/brisko-daemon\n"
    "  340     1 /usr/libexec/thermalmonitord\n"
    "  977   501 /Users/someone/build/brisko-daemon\n"
    " 1204     1 /Applications/Battery Tool.app/Contents/MacOS/tool\n";

TEST(CommandText, showsProcesses) {
  const auto processes = processesIn(processList);
  ASSERT_EQ(processes.size(), 5U);
  EXPECT_EQ(processes.back().path, "/Applications/Battery Tool.app/Contents/MacOS/tool");
  const auto daemons = daemonsIn(processes);
  ASSERT_EQ(daemons.size(), 2U);
  EXPECT_EQ(daemons[0].parent, 1);
  EXPECT_EQ(daemons[1].id, 977);
}

TEST(CommandText, showsWhoHasOpenedTheController) {
  const std::string entries =
      "+-o AppleSMC\n  +-o AppleSMCClient\n    \"IOUserClientCreator\" = \"pid 312, brisko-daemon\"\n"
      "  +-o AppleSMCClient\n    \"IOUserClientCreator\" = \"pid 340, thermalmonitord\"\n"
      "  +-o AppleSMCClient\n    \"IOUserClientCreator\" = \"pid 1204, tool\"\n"
      "  +-o AppleSMCClient\n    \"IOUserClientCreator\" = \"pid 1204, tool\"\n"
      "  +-o AppleSMCClient\n    \"IOUserClientCreator\" = \"pid 4, gone\"\n";
  EXPECT_THAT(otherProgramsIn(entries, processesIn(processList)),
              ElementsAre("/Applications/Battery Tool.app/Contents/MacOS/tool"));
}

TEST(CommandText, countsProfiles) {
  EXPECT_EQ(profilesIn("There are no configuration profiles installed in the system domain\n"), 0);
  EXPECT_EQ(profilesIn("_computerlevel[1] attribute: name: Wi-Fi\n"
                       "_computerlevel[1] attribute: profileIdentifier: org.example.wifi\n"
                       "_computerlevel[2] attribute: profileIdentifier: org.example.power\n"),
            2);
}

TEST(CommandText, showsTheArgumentsOfTheJobFile) {
  EXPECT_THAT(jobArgumentsInFile(R"({"Label":"x","ProgramArguments":["/a","--limit","70"]})").value(),
              ElementsAre("/a", "--limit", "70"));
  EXPECT_FALSE(jobArgumentsInFile(R"({"Label":"x"})"));
  EXPECT_FALSE(jobArgumentsInFile("/Library/LaunchDaemons/com.brisko.daemon.plist: file does not exist"));
}

// --- A Mac's commands, all of them

using Outputs = std::map<std::string, CommandResult>;

CommandResult exited(int status, std::string output) {
  return {.end = CommandEnd::exited, .status = status, .output = std::move(output)};
}

// By the name of the program, or of the program and its first word.
Evidence gatheredFrom(const Outputs& outputs, bool asRoot) {
  Evidence evidence;
  evidence.installed = gathered(InstalledFiles{.program = true, .job = true});
  gatherFromCommands(evidence, asRoot, [&outputs](const std::vector<TimedCommand>& commands) {
    std::vector<CommandResult> results;
    for (const TimedCommand& command : commands) {
      if (command.words.empty()) {
        results.emplace_back();
        continue;
      }
      EXPECT_GT(command.seconds, 0);
      EXPECT_LE(command.seconds, 2);
      EXPECT_TRUE(command.words.front().starts_with('/'));
      const auto output = outputs.find(command.words.front());
      results.push_back(output == outputs.end() ? CommandResult{.end = CommandEnd::notFound}
                                                : output->second);
    }
    return results;
  });
  return evidence;
}

TEST(GatheringFromCommands, takesWhatTheyPrint) {
  const Outputs outputs{
      {"/bin/launchctl", exited(0, "\"com.brisko.daemon\" => disabled\n")},
      {"/usr/bin/sfltool",
       exited(0, "#1:\nDisposition: [disabled, disallowed]\nIdentifier: com.brisko.daemon\n")},
      {"/usr/bin/plutil", exited(0, R"({"ProgramArguments":["/Library/Brisko/brisko-daemon"]})")},
      {"/usr/bin/codesign", exited(1, "/Library/Brisko/brisko-daemon: invalid signature\n")},
      {"/usr/bin/xattr", exited(0, "0081;69c3f1a2;browser;\n")},
      {"/usr/sbin/sysctl", exited(0, "1\n")},
      {"/bin/ps", exited(0, processList)},
      {"/usr/sbin/ioreg", exited(0, "\"IOUserClientCreator\" = \"pid 1204, tool\"\n")},
      {"/usr/bin/profiles", exited(0, "")},
      {"/Library/Brisko/brisko-daemon", exited(0, "0.9.9\n")}};
  const Evidence evidence = gatheredFrom(outputs, true);
  EXPECT_EQ(evidence.jobDisabled.value, true);
  EXPECT_EQ(evidence.backgroundAllowed.value, false);
  EXPECT_THAT(evidence.jobFileArguments.value.value(), ElementsAre("/Library/Brisko/brisko-daemon"));
  EXPECT_EQ(evidence.signature.value.value().valid, false);
  EXPECT_EQ(evidence.signature.value.value().reason, "invalid signature");
  EXPECT_EQ(evidence.quarantined.value, true);
  EXPECT_EQ(evidence.appleSilicon.value, true);
  EXPECT_EQ(evidence.daemons.value.value().size(), 2U);
  EXPECT_EQ(evidence.otherPrograms.value.value().size(), 1U);
  EXPECT_EQ(evidence.profiles.value, 0);
  EXPECT_EQ(evidence.installedVersion.value, "0.9.9");
}

TEST(GatheringFromCommands, saysWhyItCouldNotLook) {
  // Asking for a password is no way to look.
  const Outputs outputs{
      {"/usr/bin/sfltool", exited(0, "Disposition: [allowed]\nIdentifier: com.brisko.daemon\n")},
      {"/usr/bin/codesign", {.end = CommandEnd::timedOut}},
      {"/bin/launchctl", exited(64, "usage")},
      {"/usr/bin/xattr", exited(1, "No such xattr: com.apple.quarantine\n")},
      {"/usr/sbin/sysctl", exited(1, "unknown oid")}};
  const Evidence evidence = gatheredFrom(outputs, false);
  EXPECT_EQ(evidence.signature.whyNot, "timed out");
  EXPECT_EQ(evidence.jobDisabled.whyNot, "its command failed");
  EXPECT_EQ(evidence.daemons.whyNot, "no such command here");
  EXPECT_EQ(evidence.otherPrograms.whyNot, "no such command here");
  EXPECT_EQ(evidence.backgroundAllowed.whyNot, "needs root");
  EXPECT_EQ(evidence.profiles.whyNot, "needs root");
  EXPECT_EQ(evidence.quarantined.value, false);
  EXPECT_EQ(evidence.appleSilicon.value, false);
}

// --- Running them

TEST(RunTogether, returnsResultsInOrder) {
  const auto results = runTogether({{{"/bin/sh", "-c", "echo out; echo err >&2; exit 3"}, 60},
                                    {{"/nowhere/at/all"}, 60},
                                    {{}, 60},
                                    {{"/bin/sh", "-c", "yes | head -c 300000; cat"}, 60}});
  ASSERT_EQ(results.size(), 4U);
  EXPECT_EQ(results[0].end, CommandEnd::exited);
  EXPECT_EQ(results[0].status, 3);
  EXPECT_EQ(results[0].output, "out\nerr\n");
  EXPECT_FALSE(results[0].succeeded());
  EXPECT_EQ(results[1].end, CommandEnd::notFound);
  EXPECT_EQ(results[2].end, CommandEnd::failed);
  EXPECT_TRUE(results[3].succeeded());
  EXPECT_EQ(results[3].output.size(), 300'000U);
}

// However long a command takes, and even when it has closed its output.
TEST(RunTogether, killsWhatTakesTooLong) {
  const double begin = steadyNow();
  const auto results = runTogether({{{"/bin/sh", "-c", "echo begun; exec sleep 600"}, 0.2},
                                    {{"/bin/sh", "-c", "exec >&- 2>&-; exec sleep 600"}, 0.2},
                                    {{"/bin/sh", "-c", "exec yes"}, 600}});
  EXPECT_LT(steadyNow() - begin, 60);
  EXPECT_EQ(results[0].end, CommandEnd::timedOut);
  EXPECT_EQ(results[1].end, CommandEnd::timedOut);
  EXPECT_EQ(results[2].end, CommandEnd::tooLong);
}

// They would hold the pipe open for ten minutes.
TEST(RunTogether, killsWhatACommandHasStartedToo) {
  std::array<int, 2> ends{-1, -1};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const auto results = runTogether({{{"/bin/sh", "-c", "sleep 600 & wait"}, 0.2},
                                    {{"/bin/sh", "-c", "sleep 600 & exit 0"}, 0.2},
                                    {{"/bin/sh", "-c", "kill -9 $$"}, 60}});
  EXPECT_EQ(results[0].end, CommandEnd::timedOut);
  EXPECT_EQ(results[1].end, CommandEnd::timedOut);
  EXPECT_EQ(results[2].end, CommandEnd::signalled);
  ::close(ends[1]);
  pollfd closed{.fd = ends[0], .events = POLLIN, .revents = 0};
  EXPECT_EQ(::poll(&closed, 1, 60'000), 1);
}

}  // namespace
}  // namespace brisko::client::doctor_gathering_test
