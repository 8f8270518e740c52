// The generated completions, in the shells themselves.
#include "client/completions.h"

#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/command_line.h"
#include "process/program.h"
#include "support/files.h"
#include "support/scratch_folder.h"

namespace brisko::client::completions_test {
namespace {

using test::Finished;
using test::run;
using ::testing::HasSubstr;
using ::testing::Not;

bool isInstalled(const std::string& shell) { return test::exists("/usr/bin/" + shell); }

// The completions that bash offers for the last word, separated by blanks.
std::string offeredByBash(const std::string& words) {
  test::ScratchFolder folder;
  const std::string script = folder.path() + "/completions";
  test::put(script, *completionScript("bash"));
  const Finished finished =
      run("/bin/bash",
          {"--norc", "-c",
           ". " + script + "; COMP_WORDS=(" + words +
               "); COMP_CWORD=$(( ${#COMP_WORDS[@]} - 1 )); _brisko; printf '%s\\n' \"${COMPREPLY[@]}\""});
  EXPECT_EQ(finished.errors, "");
  return finished.output;
}

TEST(BashCompletions, offerCommandsOptionsAndValues) {
  EXPECT_THAT(offeredByBash("brisko ca"), ::testing::StrEq("calibrate\n"));
  EXPECT_EQ(offeredByBash("brisko discharge o"), "on\noff\n");
  EXPECT_EQ(offeredByBash("brisko full --s"), "--stop\n");
  EXPECT_EQ(offeredByBash("brisko set thermalL"), "thermalLimit=\n");
  EXPECT_EQ(offeredByBash("brisko --volume /tmp limi"), "limit\n");
  EXPECT_EQ(offeredByBash("brisko full --for ''"), "\n");
  EXPECT_EQ(offeredByBash("brisko completions z"), "zsh\n");
}

TEST(BashCompletions, offerEveryCommand) {
  const std::string offered = offeredByBash("brisko ''");
  for (const CommandDefinition& command : commandDefinitions())
    EXPECT_THAT(offered, HasSubstr(std::string(command.name) + "\n"));
}

// macOS ships bash 3.2, which knows none of these.
TEST(BashCompletions, useNothingNewerThanBash32) {
  const std::string script = *completionScript("bash");
  for (const char* newer :
       {"declare -A", "local -A", "mapfile", "readarray", "|&", "&>>", "${current,,}", ";;&"})
    EXPECT_THAT(script, Not(HasSubstr(newer))) << newer;
}

TEST(FishCompletions, offerCommandsOptionsAndValues) {
  if (!isInstalled("fish")) GTEST_SKIP() << "fish is not installed (apt-get install fish)";
  test::ScratchFolder folder;
  const std::string script = folder.path() + "/completions";
  test::put(script, *completionScript("fish"));
  const auto offered = [&](const std::string& line) {
    return run("/usr/bin/fish", {"--no-config", "-c", "source " + script + "; complete -C '" + line + "'"},
               {{"HOME", folder.path()}})
        .output;
  };
  EXPECT_THAT(offered("brisko cali"), HasSubstr("calibrate\t"));
  EXPECT_THAT(offered("brisko discharge "), HasSubstr("off"));
  EXPECT_THAT(offered("brisko full --st"), HasSubstr("--stop"));
  EXPECT_THAT(offered("brisko get thermalL"), HasSubstr("thermalLimit"));
  EXPECT_THAT(offered("brisko discharge "), Not(HasSubstr("calibrate")));
}

// zsh completes only on a terminal, so its own module for pseudo-terminals creates one.
TEST(ZshCompletions, offerCommandsOptionsAndValues) {
  if (!isInstalled("zsh")) GTEST_SKIP() << "zsh is not installed (apt-get install zsh)";
  test::ScratchFolder folder;
  test::put(folder.path() + "/completions", *completionScript("zsh"));
  test::put(folder.path() + "/.zshrc",
            "autoload -U compinit; compinit -u -D; source $ZDOTDIR/completions; bindkey '^I' list-choices\n"
            "PS1='READY> '; print LOADED\n");
  // Keys are sent only once the shell waits for them.
  test::put(folder.path() + "/terminal",
            "zmodload zsh/zpty\n"
            "zpty shell \"ZDOTDIR=$1 TERM=dumb zsh -d -i\"\n"
            "zpty -r -m shell reply '*LOADED*READY> *'\n"
            "zpty -w -n shell \"$2\"$'\\t'\n"
            "zpty -r -m shell reply \"*$3*\" && print -r -- \"$reply\"\n"
            "zpty -d shell\n");
  const auto offers = [&](const std::string& line, const std::string& expected) {
    const Finished finished =
        run("/usr/bin/timeout",
            {"60", "/usr/bin/zsh", "-f", folder.path() + "/terminal", folder.path(), line, expected},
            {{"HOME", folder.path()}});
    return finished.output.find(expected) != std::string::npos;
  };
  EXPECT_TRUE(offers("brisko cal", "calibrate"));
  EXPECT_TRUE(offers("brisko discharge o", "off"));
  EXPECT_TRUE(offers("brisko full --s", "stop"));
}

TEST(Completions, existForThreeShells) { EXPECT_FALSE(completionScript("csh")); }

}  // namespace
}  // namespace brisko::client::completions_test
