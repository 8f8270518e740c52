// The program that answers the questions of the first run on a Mac, on a live virtual Mac; and the fake of
// it, whose answers must have the same form.

#include <algorithm>
#include <sstream>
#include <string>

#include "packaging/scratch_mac.h"
#include "process/live_mac.h"
#include "support/testing.h"

namespace brisko::test::first_light_test {
namespace {

// The names of the lines of an answer.
Words names(const std::string& output) {
  Words all;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) all.push_back(line.substr(0, line.find(':')));
  std::sort(all.begin(), all.end());
  return all;
}

class FirstLight : public ::testing::Test {
 protected:
  [[nodiscard]] Finished ask(const Words& question) const {
    return run("brisko-first-light", question, {{"BRISKO_VIRTUAL_MAC", mac.folder()}});
  }

  [[nodiscard]] Finished askFake(const Words& question) const {
    Environment environment = scratch.environment();
    environment["PATH"] = "/usr/bin:/bin";
    return run(std::string(BRISKO_FAKES) + "/brisko-first-light", question, environment);
  }

  LiveMac mac{{"--charge", "85"}};
  ScratchMac scratch;
};

TEST_F(FirstLight, answersInTheFormOfItsFake) {
  const ScratchFolder folder;
  for (const Words& question : {Words{"version"},
                                {"controller"},
                                {"keys"},
                                {"limit-client", "loop"},
                                {"limit-client", "main"},
                                {"limit-client", "thread"},
                                {"watches", folder.path()}}) {
    SCOPED_TRACE(question.front() + " " + question.back());
    const Finished real = ask(question);
    EXPECT_EQ(real.status, 0) << real.errors;
    EXPECT_THAT(names(real.output), Not(IsEmpty()));
    EXPECT_EQ(names(real.output), names(askFake(question).output));
  }
  EXPECT_EQ(ask({"version"}).output, "macOS: 26\n");
  EXPECT_THAT(ask({"controller"}).output, HasSubstr("answered: 80 ("));
  EXPECT_EQ(ask({"keys"}).output, "mode: CHTE\ncharging: allowed\nadapter: connected\nlight: 0\n");
  EXPECT_EQ(ask({}).status, 2);
  EXPECT_EQ(ask({"limit-client", "nowhere"}).status, 2);
}

TEST_F(FirstLight, measuresWhenTheDaemonGivesBack) {
  mac.settings(R"({"limit":80,"discharge":true})");
  const auto daemon = mac.daemon();
  ASSERT_TRUE(mac.logs("→ state: discharge"));
  EXPECT_THAT(ask({"keys"}).output, HasSubstr("charging: stopped\nadapter: cut\n"));

  const Finished real = ask({"given-back", "kill", "-TERM", std::to_string(daemon->pid())});

  EXPECT_EQ(real.status, 0);
  EXPECT_THAT(real.output, ::testing::MatchesRegex("before: held\ngiven back: [0-9]+ ms\n"));
  EXPECT_TRUE(daemon->ends());
}

TEST_F(FirstLight, hearsSleepAndWake) {
  Program listener("brisko-first-light", {"power"}, {{"BRISKO_VIRTUAL_MAC", mac.folder()}});
  ASSERT_TRUE(eventually([&] { return listener.output().find("listening") != std::string::npos; }));

  mac.vmac("sleep");

  EXPECT_TRUE(
      eventually([&] { return listener.output().find(": WillSleep, capabilities ") != std::string::npos; }));
  listener.signal(SIGTERM);
  EXPECT_TRUE(listener.ends());
  EXPECT_EQ(listener.status(), 0);
  EXPECT_THAT(listener.output(), ::testing::EndsWith("\n"));
}

}  // namespace
}  // namespace brisko::test::first_light_test
