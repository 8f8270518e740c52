#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "base/settings.h"
#include "packaging/scratch_mac.h"
#include "support/testing.h"

namespace brisko::test::install_test {
namespace {

// What the daemon has written once it runs, beside what was installed.
Words runningFiles() {
  Words files = installedFiles();
  files.insert(files.end(), {"/Library/Application Support/Brisko/history 755",
                             "/Library/Application Support/Brisko/stats.json 644",
                             "/Library/Application Support/Brisko/status.json 644",
                             "/Library/Logs/Brisko/daemon.log 644"});
  std::sort(files.begin(), files.end());
  return files;
}

std::string supplied(const std::string& name) { return contents(std::string(BRISKO_PACKAGING) + "/" + name); }

std::string jobWithoutApp() {
  const std::string place = "\t\t<!-- more arguments -->\n";
  std::string job = supplied("com.brisko.daemon.plist");
  return job.erase(job.find(place), place.size());
}

void expectNothingHappened(const ScratchMac& mac, const Finished& run) {
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(mac.added(), IsEmpty());
  EXPECT_THAT(mac.journal("launchctl"), IsEmpty());
}

TEST(Install, putsEverythingInItsPlaceAndStartsTheService) {
  const ScratchMac mac;

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(mac.addedToRun(), runningFiles());
  EXPECT_EQ(contents(mac.at(programFile)), contents(std::string(BRISKO_FAKES) + "/brisko-daemon"));
  EXPECT_EQ(contents(mac.at("/Library/Brisko/brisko")), contents(std::string(BRISKO_FAKES) + "/brisko"));
  EXPECT_EQ(contents(mac.at("/Library/Brisko/uninstall-service.sh")), supplied("uninstall-service.sh"));
  EXPECT_EQ(contents(mac.at("/etc/newsyslog.d/com.brisko.daemon.conf")),
            supplied("newsyslog.d/com.brisko.daemon.conf"));
  EXPECT_EQ(mac.job(), contents(mac.at(jobPath)));
  EXPECT_THAT(mac.journal("launchctl"),
              ElementsAre("launchctl print system/com.brisko.daemon", "launchctl print-disabled system",
                          "launchctl bootstrap system " + jobPath));
}

TEST(Install, worksInTheShellOfAMac) {
  ScratchMac mac;
  mac.useBash();
  mac.putApp("/Applications/Brisko.app");

  for (int time = 1; time <= 2; ++time) {
    const Finished run = mac.install();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "");
  }

  EXPECT_THAT(mac.job(), ::testing::Optional(HasSubstr("<string>--app</string>")));
  EXPECT_TRUE(exists(mac.at(programFile)));
}

TEST(Install, givesEverythingToRoot) {
  const ScratchMac mac;

  ASSERT_EQ(mac.install().status, 0);

  EXPECT_THAT(
      mac.journal("chown"),
      ElementsAre(
          "chown root:wheel /Library/Brisko", "chown root:wheel /Library/Brisko/uninstall-service.sh.new",
          "chown root:wheel /Library/Brisko/brisko-daemon.new",
          "chown root:wheel /Library/Brisko/brisko-lab.new", "chown root:wheel /Library/Brisko/brisko.new",
          "chown -R root:wheel /Library/Brisko/share.new",
          "chown root:wheel /etc/newsyslog.d/com.brisko.daemon.conf.new",
          "chown root:wheel /Library/Application Support/Brisko",
          "chown root:wheel /Library/Application Support/Brisko/config.json.new",
          "chown root:wheel /Library/Logs/Brisko", "chown root:wheel /Library/Logs/Brisko/daemon.err.log",
          "chown root:wheel /Library/LaunchDaemons/com.brisko.daemon.plist.new"));
}

TEST(Install, reportsWhatItDid) {
  const ScratchMac mac;

  const Finished run = mac.install();

  for (const char* path :
       {"/Library/Brisko/brisko-daemon", "/Library/Brisko/brisko", "/Library/Brisko/brisko-lab",
        "/Library/Brisko/uninstall-service.sh", "/Library/LaunchDaemons/com.brisko.daemon.plist",
        "/etc/newsyslog.d/com.brisko.daemon.conf"}) {
    EXPECT_THAT(run.output, HasSubstr("Installed " + mac.at(path) + "\n"));
  }
  EXPECT_THAT(run.output, HasSubstr("Started the service com.brisko.daemon.\n"));
}

TEST(Install, takesTheBytesThatItHasChecked) {
  const ScratchMac mac;

  ASSERT_EQ(mac.install().status, 0);

  EXPECT_THAT(mac.journal("codesign"),
              ElementsAre("codesign --verify --strict /tmp/SCRATCH/brisko-daemon",
                          "codesign --display --verbose=2 /tmp/SCRATCH/brisko-daemon",
                          "codesign --verify --strict /tmp/SCRATCH/brisko",
                          "codesign --display --verbose=2 /tmp/SCRATCH/brisko",
                          "codesign --verify --strict /tmp/SCRATCH/brisko-lab",
                          "codesign --display --verbose=2 /tmp/SCRATCH/brisko-lab"));
  EXPECT_THAT(mac.journal("cat"), Contains("cat /tmp/SCRATCH/brisko-daemon"));
  EXPECT_THAT(mac.journal("cat"), Contains("cat /tmp/SCRATCH/brisko"));
  EXPECT_THAT(mac.journal("cat"), Contains("cat /tmp/SCRATCH/brisko-lab"));
}

TEST(Install, upgradesAnOlderInstallation) {
  const ScratchMac mac;
  ASSERT_EQ(mac.install().status, 0);
  mac.put(programFile, "older program");
  mac.put(jobPath, "older job");
  mac.put(dataFolder + "/config.json", R"({"limit":70})");
  const ino_t older = inodeOf(mac.at(programFile));
  mac.forgetJournal();

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(mac.addedToRun(), runningFiles());
  EXPECT_EQ(contents(mac.at(programFile)), contents(std::string(BRISKO_FAKES) + "/brisko-daemon"));
  EXPECT_EQ(mac.job(), jobWithoutApp());
  EXPECT_EQ(contents(mac.at(dataFolder + "/config.json")), R"({"limit":70})");
  // A running program is never written into.
  EXPECT_NE(inodeOf(mac.at(programFile)), older);
  EXPECT_THAT(
      mac.journal("launchctl"),
      ElementsAre("launchctl print system/com.brisko.daemon", "launchctl bootout system/com.brisko.daemon",
                  "launchctl print system/com.brisko.daemon", "launchctl print-disabled system",
                  "launchctl bootstrap system " + jobPath));
}

TEST(Install, stopsTheOlderServiceOnlyWhenAllFilesAreInPlace) {
  const ScratchMac mac;
  ASSERT_EQ(mac.install().status, 0);
  mac.forgetJournal();

  ASSERT_EQ(mac.install().status, 0);

  const Words calls = mac.journal();
  const auto stop = std::find(calls.begin(), calls.end(), "launchctl bootout system/com.brisko.daemon");
  ASSERT_NE(stop, calls.end());
  EXPECT_EQ(
      std::count_if(calls.begin(), stop, [](const std::string& call) { return call.starts_with("mv "); }), 7);
  EXPECT_TRUE(
      std::none_of(stop, calls.end(), [](const std::string& call) { return call.starts_with("mv "); }));
}

TEST(Install, mendsOwnersModesAndPlantedLinks) {
  const ScratchMac mac;
  // A program that anyone could have put there is not asked for its version.
  mac.put("/Library/Brisko/brisko-daemon", "#!/bin/sh\necho asked >>\"$BRISKO_ROOT/asked\"\n");
  mac.put("/Library/Logs/Brisko/daemon.log", "");
  mac.put("/victim", "untouched");
  setMode(mac.at("/Library/Brisko/brisko-daemon"), 0755);
  setMode(mac.at("/Library/Brisko"), 0777);
  setMode(mac.at("/Library/Logs/Brisko"), 0700);
  setMode(mac.at("/victim"), 0600);
  makeLink(mac.at("/Library/Brisko/uninstall-service.sh.new"), mac.at("/victim"));

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 0) << run.errors;
  Words expected = runningFiles();
  expected.push_back("/victim 600");
  EXPECT_EQ(mac.addedToRun(), expected);
  EXPECT_EQ(contents(mac.at("/victim")), "untouched");
}

TEST(Install, refusesAStandardErrorThatIsNoPlainFile) {
  const ScratchMac link;
  const ScratchMac folder;
  const ScratchMac logs;
  link.put("/Library/Logs/Brisko/daemon.log", "");
  link.put("/victim", "untouched");
  makeLink(link.at("/Library/Logs/Brisko/daemon.err.log"), link.at("/victim"));
  folder.put("/Library/Logs/Brisko/daemon.err.log/file", "");
  logs.put("/elsewhere/file", "");
  makeLink(logs.at("/Library/Logs/Brisko"), logs.at("/elsewhere"));

  for (const ScratchMac* mac : {&link, &folder, &logs}) {
    const Words before = mac->added();
    const Finished run = mac->install();
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors,
                HasSubstr(mac == &logs ? "Brisko is a link." : "daemon.err.log is not a plain file."));
    EXPECT_EQ(mac->added(), before);
  }
  EXPECT_EQ(contents(link.at("/victim")), "untouched");
}

TEST(Install, watchesTheAppOnlyWhereItIs) {
  const ScratchMac without;
  const ScratchMac with;
  with.putApp("/Applications/Brisko.app");

  ASSERT_EQ(without.install().status, 0);
  ASSERT_EQ(with.install().status, 0);

  EXPECT_EQ(without.job(), jobWithoutApp());
  EXPECT_THAT(with.job(), ::testing::Optional(HasSubstr("\t\t<string>--app</string>\n"
                                                        "\t\t<string>/Applications/Brisko.app</string>\n")));
}

TEST(Install, watchesTheAppThatItIsTold) {
  const ScratchMac mac;
  mac.putApp("/Applications/More & <Less>/Brisko.app");

  const Finished run = mac.install({"--app", "/Applications/More & <Less>/Brisko.app/"});

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(mac.job(), ::testing::Optional(
                             HasSubstr("<string>/Applications/More &amp; &lt;Less&gt;/Brisko.app</string>")));
}

TEST(Install, refusesAnAppThatIsNotThere) {
  const ScratchMac mac;

  const Finished run = mac.install({"--app", "/Applications/Other.app"});

  EXPECT_THAT(run.errors, HasSubstr("There is no app at /Applications/Other.app."));
  expectNothingHappened(mac, run);
}

TEST(Install, installsNothingWhereTheProgramCannotControlTheCharge) {
  const ScratchMac mac;

  const Finished run = mac.install(
      {},
      {{"FAKE_PROBE", R"({"detail":"d","message":"No way, said it.","reason":"none","supported":false})"}});

  EXPECT_EQ(run.errors, "No way, said it. Nothing was installed.\n");
  expectNothingHappened(mac, run);
}

TEST(Install, installsNothingThatDoesNotAnswerTheProbe) {
  const ScratchMac mac;

  const Finished run = mac.install({}, {{"FAKE_PROBE", "Could not open AppleSMC."}});

  EXPECT_THAT(run.errors, HasSubstr("(\"Could not open AppleSMC.\"). Nothing was installed."));
  expectNothingHappened(mac, run);
}

TEST(Install, leavesAnOlderInstallationAloneWhereItRefuses) {
  const ScratchMac mac;
  ASSERT_EQ(mac.install().status, 0);
  mac.put(programFile, "older program");
  mac.forgetJournal();

  EXPECT_EQ(mac.install({}, {{"FAKE_SIGNER", "ad hoc"}}).status, 1);

  EXPECT_EQ(contents(mac.at(programFile)), "older program");
  EXPECT_THAT(mac.journal("launchctl"), IsEmpty());
  EXPECT_TRUE(mac.job());
}

TEST(Install, refusesAProgramWithoutATeam) {
  const ScratchMac mac;

  const Finished run = mac.install({}, {{"FAKE_SIGNER", "ad hoc"}});

  EXPECT_THAT(run.output,
              HasSubstr("every process on this Mac may command it, and have all its data erased."));
  EXPECT_THAT(run.errors, HasSubstr("run this in a terminal and answer y, or give --yes."));
  expectNothingHappened(mac, run);
}

TEST(Install, takesAProgramWithoutATeamWhenToldTo) {
  const ScratchMac mac;

  const Finished run = mac.install({"--yes"}, {{"FAKE_SIGNER", "ad hoc"}});

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output,
              HasSubstr("every process on this Mac may command it, and have all its data erased."));
  EXPECT_EQ(mac.addedToRun(), runningFiles());
}

TEST(Install, refusesAProgramWithABrokenSignatureWhateverItIsTold) {
  const ScratchMac mac;

  const Finished run = mac.install({"--yes"}, {{"FAKE_SIGNER", "unsigned"}});

  EXPECT_THAT(run.errors, HasSubstr("is missing or broken"));
  expectNothingHappened(mac, run);
}

TEST(Install, wantsRoot) {
  const ScratchMac mac;

  const Finished run = mac.install({}, {{"FAKE_USER", "501"}});

  EXPECT_EQ(run.errors, "This has to run as root (sudo).\n");
  expectNothingHappened(mac, run);
}

TEST(Install, putsNoProgramWhereOthersMayReplaceIt) {
  for (const mode_t mode : {0775U, 0757U}) {
    const ScratchMac mac;
    setMode(mac.at("/Library"), mode);

    const Finished run = mac.install();

    EXPECT_THAT(run.errors, HasSubstr("/Library is not a folder that only root can change"));
    EXPECT_EQ(run.status, 1);
    setMode(mac.at("/Library"), 0755);
    EXPECT_THAT(mac.added(), IsEmpty());
  }
}

TEST(Install, followsNoLinkOnTheWayToTheProgram) {
  const ScratchMac mac;
  mac.put("/elsewhere/file", "");
  makeLink(mac.at("/Library/Brisko"), mac.at("/elsewhere"));

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("/Library/Brisko is a link."));
  EXPECT_THAT(mac.added(), ElementsAre("/Library/Brisko -> " + mac.at("/elsewhere"), "/elsewhere 755",
                                       "/elsewhere/file 644"));
}

// In a terminal, which types `answer`.
Finished installInTerminal(const ScratchMac& mac, const std::string& answer) {
  const std::string command = R"(PATH=$FAKES sh ")" + std::string(BRISKO_PACKAGING) +
                              R"(/install-service.sh" --program "$FAKES/brisko-daemon")";
  Environment environment = mac.environment();
  environment.merge(Environment{{"ANSWER", answer}, {"COMMAND", command}, {"FAKE_SIGNER", "ad hoc"}});
  return run("/bin/sh", {"-c", R"(echo "$ANSWER" | script --quiet --return --command "$COMMAND" /dev/null)"},
             environment);
}

TEST(Install, asksInATerminalAboutAProgramWithoutATeam) {
  for (const char* answer : {"y", "Yes"}) {
    const ScratchMac mac;
    const Finished run = installInTerminal(mac, answer);
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr("Install it nevertheless? [y/N]"));
    EXPECT_TRUE(mac.job());
  }
  for (const char* answer : {"", "n", "yet"}) {
    const ScratchMac mac;
    const Finished run = installInTerminal(mac, answer);
    EXPECT_EQ(run.status, 1) << answer;
    expectNothingHappened(mac, run);
  }
}

struct Unfit {
  const char* variable;
  const char* value;
  const char* refusal;
};

TEST(Install, refusesProgramsThatWouldNotListenToEachOther) {
  const ScratchMac mac;
  for (const auto& [variable, value, refusal] :
       {Unfit{"FAKE_CLIENT_SIGNER", "OTHER12345", "signed by TEAM123456 and brisko by OTHER12345,"},
        Unfit{"FAKE_CLIENT_SIGNER", "ad hoc", "signed by TEAM123456 and brisko by no team,"},
        Unfit{"FAKE_CLIENT_NAME", "brisko", "brisko is not signed as com.brisko.Brisko."},
        Unfit{"FAKE_LAB_SIGNER", "OTHER12345", "signed by TEAM123456 and brisko-lab by OTHER12345."},
        // As brisko it could command the daemon.
        Unfit{"FAKE_LAB_NAME", "com.brisko.Brisko", "brisko-lab is not signed as com.brisko.lab."}}) {
    const Finished run = mac.install({"--yes"}, {{variable, value}});
    EXPECT_THAT(run.errors, HasSubstr(refusal));
    expectNothingHappened(mac, run);
  }
}

TEST(Install, refusesAMacThatIsNotFit) {
  const ScratchMac mac;
  for (const auto& [variable, value, refusal] : {Unfit{"FAKE_ARM64", "no", "This Mac has no Apple silicon."},
                                                 Unfit{"FAKE_MACOS", "12.7.6", "This Mac runs macOS 12.7.6,"},
                                                 Unfit{"FAKE_VM", "1", "This is a virtual machine,"},
                                                 Unfit{"FAKE_BATTERY", "No", "This Mac has no battery."},
                                                 Unfit{"FAKE_BATTERY", "none", "This Mac has no battery."}}) {
    const Finished run = mac.install({}, {{variable, value}});
    EXPECT_THAT(run.errors, HasSubstr(refusal));
    EXPECT_THAT(run.errors, HasSubstr("Nothing was installed.\n"));
    expectNothingHappened(mac, run);
  }
  EXPECT_EQ(mac.install({}, {{"FAKE_MACOS", "13.0"}}).status, 0);
}

// A daemon of another version, as it would be installed.
void putDaemon(const ScratchMac& mac, const std::string& version) {
  mac.put(programFile, "#!/bin/sh\nversion=" + version + "\n. \"$FAKES/program.sh\"\n");
  setMode(mac.at(programFile), 0755);
}

TEST(Install, refusesADowngrade) {
  const ScratchMac mac;
  for (const char* newer : {"0.9.10", "0.10.0", "1.0.0", "10.0"}) {
    putDaemon(mac, newer);

    const Finished run = mac.install();

    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors,
                HasSubstr("Version " + std::string(newer) + " is installed, and this is the older version "));
    EXPECT_THAT(run.errors, HasSubstr("--keep-data"));
    EXPECT_THAT(mac.journal("launchctl"), IsEmpty());
  }
}

TEST(Install, replacesTheSameAndEveryOlderVersion) {
  const ScratchMac mac;
  for (const char* older : {"0.9.9", "0.8.10", "0.9", "not a version"}) {
    putDaemon(mac, older);
    EXPECT_EQ(mac.install().status, 0) << older;
  }
}

const std::string closedKeys =
    R"({"detail":"d","message":"The keys are closed.","reason":"system-locked","supported":false})";

TEST(Install, upgradesADaemonWhereMacOSHasClosedTheKeys) {
  const ScratchMac mac;
  const Finished first = mac.install({}, {{"FAKE_PROBE", closedKeys}});
  EXPECT_EQ(first.errors, "The keys are closed. Nothing was installed.\n");
  expectNothingHappened(mac, first);

  ASSERT_EQ(mac.install().status, 0);
  putDaemon(mac, "0.9.8");
  const Finished upgrade = mac.install({}, {{"FAKE_PROBE", closedKeys}});

  EXPECT_EQ(upgrade.status, 0) << upgrade.errors;
  EXPECT_EQ(contents(mac.at(programFile)), contents(std::string(BRISKO_FAKES) + "/brisko-daemon"));
}

TEST(Install, keepsWhatTheOwnerAddedToTheJob) {
  const ScratchMac mac;
  mac.putApp("/Applications/Other.app");
  ASSERT_EQ(mac.install({"--app", "/Applications/Other.app"}).status, 0);
  std::string job = contents(mac.at(jobPath));
  const std::string end = "\t</array>\n\t<key>MachServices";
  job.insert(job.find(end),
             "\t\t<string>--limit</string>\n\t\t<string>+070</string>\n"
             "\t\t<string>--limit</string>\n\t\t<string>x</string>\n"
             "\t\t<string>--lower</string>\n\t\t<string>60</string>\n"
             "\t\t<string>--config</string>\n\t\t<string>/a &amp; b.json</string>\n"
             "\t\t<string>--limit</string>\n");
  put(mac.at(jobPath), job);

  EXPECT_EQ(mac.install().status, 0);

  EXPECT_THAT(mac.job(), ::testing::Optional(HasSubstr("\t\t<string>--guard</string>\n"
                                                       "\t\t<string>night,menu,swing</string>\n"
                                                       "\t\t<string>--app</string>\n"
                                                       "\t\t<string>/Applications/Other.app</string>\n"
                                                       "\t\t<string>--limit</string>\n"
                                                       "\t\t<string>70</string>\n"
                                                       "\t\t<string>--lower</string>\n"
                                                       "\t\t<string>60</string>\n"
                                                       "\t\t<string>--config</string>\n"
                                                       "\t\t<string>/a &amp; b.json</string>\n"
                                                       "\t</array>\n")));
}

TEST(Install, laysDownTheDefaultSettings) {
  const ScratchMac mac;
  ASSERT_EQ(mac.install().status, 0);
  EXPECT_EQ(contents(mac.at(dataFolder + "/config.json")), configObject(Settings{}).dump());
}

TEST(Install, laysDownTheLimitOfTheJob) {
  Settings settings;
  settings.limit = 70;
  const ScratchMac mac;
  ASSERT_EQ(mac.install().status, 0);
  ASSERT_EQ(std::remove(mac.at(dataFolder + "/config.json").c_str()), 0);
  std::string job = contents(mac.at(jobPath));
  job.insert(job.find("\t</array>\n"), "\t\t<string>--limit</string>\n\t\t<string>70</string>\n");
  put(mac.at(jobPath), job);

  ASSERT_EQ(mac.install().status, 0);

  EXPECT_EQ(contents(mac.at(dataFolder + "/config.json")), configObject(settings).dump());
}

TEST(Install, leavesSettingsAsTheyAre) {
  for (const std::string text : {R"({"limit":70})", "", "no settings"}) {
    const ScratchMac mac;
    mac.put(dataFolder + "/config.json", text);
    ASSERT_EQ(mac.install().status, 0);
    EXPECT_EQ(contents(mac.at(dataFolder + "/config.json")), text);
  }
}

TEST(Install, letsTheAppReadTheStatusWhateverTheUmaskOfTheSystem) {
  const ScratchMac mac;
  mac.put(dataFolder + "/calibration.json", "{}");
  mac.put("/Library/LaunchDaemons/com.example.plist", "");
  setMode(mac.at(dataFolder + "/calibration.json"), 0640);
  makeLink(mac.at(dataFolder + "/stats.json"), mac.at("/Library/LaunchDaemons/com.example.plist"));
  setMode(mac.at("/Library/LaunchDaemons/com.example.plist"), 0600);

  ASSERT_EQ(mac.install({}, {{"FAKE_UMASK", "027"}}).status, 0);

  EXPECT_EQ(modeOf(mac.at(dataFolder + "/status.json")), 0644U);
  EXPECT_EQ(modeOf(mac.at(dataFolder + "/calibration.json")), 0644U);
  EXPECT_EQ(modeOf(mac.at("/Library/LaunchDaemons/com.example.plist")), 0600U);
}

TEST(Install, putsBriskoItsManualsAndCompletionsWhereTheyAreFound) {
  const ScratchMac mac;
  ASSERT_EQ(mac.install().status, 0);

  const std::string shared = "/usr/local/";
  EXPECT_EQ(contents(mac.at(shared + "bin/brisko")), contents(std::string(BRISKO_FAKES) + "/brisko"));
  for (const std::string page : {"man1/brisko.1", "man5/brisko-config.5", "man8/brisko-daemon.8"}) {
    EXPECT_EQ(contents(mac.at(shared + "share/man/" + page)), supplied("../man/" + page.substr(5)));
  }
  EXPECT_EQ(contents(mac.at(shared + "share/bash-completion/completions/brisko")),
            "# completions for bash\n");
  EXPECT_EQ(contents(mac.at(shared + "share/zsh/site-functions/_brisko")), "# completions for zsh\n");
  EXPECT_EQ(contents(mac.at(shared + "share/fish/vendor_completions.d/brisko.fish")),
            "# completions for fish\n");
  for (const char* document : {"using-it.md", "files.md", "schemas/status.schema.json"}) {
    EXPECT_EQ(contents(mac.at("/Library/Brisko/share/doc/" + std::string(document))),
              supplied("../docs/" + std::string(document)));
  }
}

TEST(Install, leavesWhatOthersHavePutIntoThePath) {
  const ScratchMac mac;
  mac.put("/usr/local/bin/brisko", "another program");
  mac.put("/usr/local/share/man", "a file");

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(contents(mac.at("/usr/local/bin/brisko")), "another program");
  EXPECT_EQ(contents(mac.at("/usr/local/share/man")), "a file");
  EXPECT_THAT(run.output, HasSubstr("Kept " + mac.at("/usr/local/bin/brisko") + ", which is not from here."));
  EXPECT_THAT(run.output, HasSubstr("Did not make " + mac.at("/usr/local/share/man/man1/brisko.1") +
                                    ", since " + mac.at("/usr/local/share/man") + " is not a folder that"));
  EXPECT_TRUE(exists(mac.at("/usr/local/share/zsh/site-functions/_brisko")));
}

// Who owns /usr/local/bin could otherwise have root make a link in any folder.
TEST(Install, makesNoLinkThroughAFolderThatOthersCanChange) {
  const ScratchMac mac;
  std::filesystem::create_directories(mac.at("/etc/sudoers.d"));
  std::filesystem::create_directories(mac.at("/usr/local/share/zsh/site-functions"));
  makeLink(mac.at("/usr/local/bin"), mac.at("/etc/sudoers.d"));
  setMode(mac.at("/usr/local/share/zsh"), 0777);

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_TRUE(std::filesystem::is_empty(mac.at("/etc/sudoers.d")));
  EXPECT_FALSE(exists(mac.at("/usr/local/share/zsh/site-functions/_brisko")));
  EXPECT_TRUE(exists(mac.at("/usr/local/share/man/man1/brisko.1")));
  EXPECT_THAT(run.output,
              HasSubstr("Did not make " + mac.at("/usr/local/bin/brisko") + ", since " +
                        mac.at("/usr/local/bin") + " is not a folder that only root can change."));
}

// As somebody could have prepared the shell in which they are started. On this computer they end at their
// first checks, which ask several programs.
TEST(Scripts, runNoProgramOfTheirCaller) {
  const ScratchFolder trap;
  const std::string programs[] = {"awk",    "cat", "chmod", "codesign",  "dirname", "find",
                                  "grep",   "id",  "ioreg", "launchctl", "ls",      "mktemp",
                                  "plutil", "rm",  "sed",   "sw_vers",   "sysctl"};
  for (const std::string& name : programs) {
    put(trap.path(name), "#!/bin/sh\n: >'" + trap.path("sprung") + "'\nexit 1\n");
    setMode(trap.path(name), 0755);
  }
  for (const char* script : {"install-service.sh", "uninstall-service.sh"}) {
    const Finished ended =
        run("/bin/sh", {std::string(BRISKO_PACKAGING) + "/" + script},
            {{"PATH", trap.path()}, {"IFS", "/"}, {"ENV", trap.path("id")}, {"BRISKO_ROOT", ""}});
    EXPECT_EQ(ended.status, 1) << script;
    EXPECT_THAT(ended.errors, AnyOf(HasSubstr("a Mac"), HasSubstr("as root"))) << script;
    EXPECT_FALSE(exists(trap.path("sprung"))) << script;
  }
}

TEST(Install, enablesOnlyAJobThatIsDisabled) {
  for (const char* disabled : {"disabled", "true"}) {
    const ScratchMac mac;
    ASSERT_EQ(mac.install({}, {{"FAKE_DISABLED", disabled}}).status, 0);
    EXPECT_THAT(mac.journal("launchctl"), Contains("launchctl enable system/com.brisko.daemon"));
  }
  const ScratchMac mac;
  ASSERT_EQ(mac.install({}, {{"FAKE_DISABLED", "enabled"}}).status, 0);
  EXPECT_THAT(mac.journal("launchctl"), Not(Contains("launchctl enable system/com.brisko.daemon")));
}

struct Wait {
  int startTime;
  int uptime;
  bool starts;
};

TEST(Install, waitsForTheDaemonToReport) {
  for (const auto& [startTime, uptime, starts] :
       {Wait{30, 300, true}, Wait{31, 300, false}, Wait{90, 299, true}, Wait{91, 299, false}}) {
    SCOPED_TRACE(std::to_string(startTime) + " s, " + std::to_string(uptime) +
                 " s after the Mac has started");
    const ScratchMac mac;
    const Finished run = mac.install(
        {}, {{"FAKE_START_TIME", std::to_string(startTime)}, {"FAKE_UPTIME", std::to_string(uptime)}});
    EXPECT_EQ(run.status == 0, starts) << run.errors;
    EXPECT_EQ(run.output.find("Started the service") != std::string::npos, starts);
  }
}

TEST(Install, doesNotTakeAnOlderStatusForThatOfTheNewDaemon) {
  const ScratchMac mac;
  ASSERT_EQ(mac.install().status, 0);

  const Finished run = mac.install({}, {{"FAKE_END", "2"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("has not reported in 30 s.\nIt ended with status 2"));
}

TEST(Install, reportsWhatLaunchdKnowsOfADaemonThatDoesNotStart) {
  const std::map<std::string, std::string> messages{
      {"1", "It ended with status 1: it could not open the controller."},
      {"2",
       "It ended with status 2: it found no way to control the charge of this Mac.\nIts last message: "
       "⛔️ "},
      {"78: EX_CONFIG", "launchd could not start it (78)."},
      {"3", "It ended with status 3.\n"},
      {"Killed: 9", "macOS ended it (Killed: 9), as it does with a program whose signature is broken."},
      {"Abort trap: 6", "It ended itself (Abort trap: 6): a number in one of its files in "},
      {"Segmentation fault: 11", "It crashed (Segmentation fault: 11).\n"},
      {"0", "launchd reports \"spawn scheduled\".\n"}};
  for (const auto& [ending, message] : messages) {
    const ScratchMac mac;
    const Finished run = mac.install({}, {{"FAKE_END", ending}});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.errors, HasSubstr(message));
    EXPECT_THAT(run.output, Not(HasSubstr("Started")));
  }
}

TEST(Install, namesThePlaceOfTheSwitchWhenTheJobIsSwitchedOff) {
  const ScratchMac mac;

  const Finished run = mac.install({}, {{"FAKE_REFUSALS", "5"}, {"FAKE_REFUSAL", "5: Input/output error"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("System Settings > General > Login Items & Extensions"));
}

TEST(Install, triesAgainWhenTheLaunchServiceIsNotReady) {
  const ScratchMac mac;

  EXPECT_EQ(mac.install({}, {{"FAKE_REFUSALS", "4"}}).status, 0);

  EXPECT_TRUE(mac.job());
}

TEST(Install, reportsWhenTheLaunchServiceDoesNotTakeTheJob) {
  const ScratchMac mac;

  const Finished run = mac.install({}, {{"FAKE_REFUSALS", "5"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors,
              HasSubstr("launchd rejected the job:\nBootstrap failed: 37: Operation already in progress\n"));
  EXPECT_THAT(run.errors, Not(HasSubstr("Login Items")));
  EXPECT_EQ(mac.addedToRun(), installedFiles());
}

TEST(Install, givesUpOnAnOlderServiceThatDoesNotStop) {
  const ScratchMac mac;
  ASSERT_EQ(mac.install().status, 0);
  mac.forgetJournal();

  const Finished run = mac.install({}, {{"FAKE_STUBBORN", "1"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("The running service does not stop."));
  EXPECT_THAT(mac.journal("launchctl"), Not(Contains(HasSubstr("bootstrap"))));
}

TEST(Install, wantsAllPrograms) {
  const ScratchMac mac;
  mac.put("/build/brisko-daemon", contents(std::string(BRISKO_FAKES) + "/brisko-daemon"));
  const Words before = mac.added();
  const std::string script = std::string(BRISKO_PACKAGING) + "/install-service.sh";

  EXPECT_THAT(mac.runScript(script, {"--program", "/nowhere/brisko-daemon"}).errors,
              HasSubstr("There is no program at /nowhere/brisko-daemon."));
  EXPECT_THAT(mac.runScript(script, {"--program", mac.at("/build/brisko-daemon")}).errors,
              HasSubstr("There is no program at " + mac.at("/build/brisko") + "."));
  EXPECT_EQ(mac.added(), before);

  mac.put("/build/brisko", contents(std::string(BRISKO_FAKES) + "/brisko"));
  EXPECT_THAT(mac.runScript(script, {"--program", mac.at("/build/brisko-daemon")}).errors,
              HasSubstr("There is no program at " + mac.at("/build/brisko-lab") + "."));
}

TEST(Install, refusesArgumentsThatMakeNoSense) {
  const ScratchMac mac;
  for (const Words& arguments :
       {Words{"--nonsense"}, Words{"extra"}, Words{"--app"}, Words{"--app", ""}, Words{"--app", "--yes"},
        Words{"--app", "Brisko.app"}, Words{"--program"}, Words{"--allow-unsigned"}, Words{"--keep-data"}}) {
    const Finished run = mac.install(arguments);
    EXPECT_EQ(run.status, 2) << arguments.front();
    EXPECT_THAT(run.errors, HasSubstr("Try --help.\n"));
  }
  EXPECT_THAT(mac.added(), IsEmpty());
  EXPECT_THAT(mac.journal(), IsEmpty());
}

TEST(Install, explainsItselfToAnyone) {
  const ScratchMac mac;

  const Finished run = mac.install({"--help"}, {{"FAKE_USER", "501"}});

  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, HasSubstr("--yes"));
  EXPECT_THAT(mac.journal(), IsEmpty());
}

// interruptions.sh goes through every step with copies of the volume. Here a script really is killed.
TEST(Install, isMendedByTheNextOneWhenItIsKilled) {
  for (const char* step : {"5", "20", "40"}) {
    SCOPED_TRACE(step);
    const ScratchMac mac;
    const Finished killed = mac.install({}, {{"FAKE_STOP_AT", step}});
    EXPECT_EQ(killed.endSignal, SIGKILL);
    EXPECT_FALSE(mac.job());

    const Finished run = mac.install();

    EXPECT_EQ(run.status, 0) << run.errors;
    Words files = mac.addedToRun();
    // The copies of the killed script stay in the temporary folder, which the system empties.
    std::erase_if(files, [](const std::string& file) { return file.starts_with("/tmp/"); });
    EXPECT_EQ(files, runningFiles());
  }
}

}  // namespace
}  // namespace brisko::test::install_test
