#include <algorithm>
#include <map>
#include <string>

#include "packaging/scratch_mac.h"
#include "support/testing.h"

namespace brisko::test {
namespace {

// The files that the daemon writes once it runs, besides the installed ones.
Words runningFiles() {
  Words files = installedFiles();
  files.insert(files.end(),
               {"/Library/Application Support/Brisko 755", "/Library/Application Support/Brisko/history 755",
                "/Library/Application Support/Brisko/stats.json 644", "/Library/Logs/Brisko/daemon.log 644"});
  std::sort(files.begin(), files.end());
  return files;
}

std::string supplied(const std::string& name) { return contents(std::string(BRISKO_PACKAGING) + "/" + name); }

std::string jobWithoutApp() {
  const std::string place = "\t\t<!-- app -->\n";
  std::string job = supplied("com.brisko.daemon.plist");
  return job.erase(job.find(place), place.size());
}

void expectNothingHappened(const ScratchMac& mac, const Finished& run) {
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(mac.added(), IsEmpty());
  EXPECT_THAT(mac.journal("launchctl"), IsEmpty());
}

TEST(Install, installsEverythingAndStartsTheService) {
  const ScratchMac mac;

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(mac.added(), runningFiles());
  EXPECT_EQ(contents(mac.at(programFile)), contents(std::string(BRISKO_FAKES) + "/brisko-daemon"));
  EXPECT_EQ(contents(mac.at("/Library/Brisko/uninstall-service.sh")), supplied("uninstall-service.sh"));
  EXPECT_EQ(contents(mac.at("/etc/newsyslog.d/com.brisko.daemon.conf")),
            supplied("newsyslog.d/com.brisko.daemon.conf"));
  EXPECT_EQ(mac.job(), contents(mac.at(jobPath)));
  EXPECT_THAT(mac.journal("launchctl"), ElementsAre("launchctl print system/com.brisko.daemon",
                                                    "launchctl enable system/com.brisko.daemon",
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

  EXPECT_THAT(mac.journal("chown"),
              ElementsAre("chown root:wheel /Library/Brisko",
                          "chown root:wheel /Library/Brisko/uninstall-service.sh.new",
                          "chown root:wheel /Library/Brisko/brisko-daemon.new",
                          "chown root:wheel /etc/newsyslog.d/com.brisko.daemon.conf.new",
                          "chown root:wheel /Library/Logs/Brisko",
                          "chown root:wheel /Library/Logs/Brisko/daemon.err.log",
                          "chown root:wheel /Library/LaunchDaemons/com.brisko.daemon.plist.new"));
}

TEST(Install, reportsWhatItDid) {
  const ScratchMac mac;

  const Finished run = mac.install();

  for (const char* path :
       {"/Library/Brisko/brisko-daemon", "/Library/Brisko/uninstall-service.sh",
        "/Library/LaunchDaemons/com.brisko.daemon.plist", "/etc/newsyslog.d/com.brisko.daemon.conf"}) {
    EXPECT_THAT(run.output, HasSubstr("Installed " + mac.at(path) + "\n"));
  }
  EXPECT_THAT(run.output, HasSubstr("Started the service com.brisko.daemon.\n"));
}

TEST(Install, installsTheBytesThatItHasChecked) {
  const ScratchMac mac;

  ASSERT_EQ(mac.install().status, 0);

  EXPECT_THAT(mac.journal("codesign"),
              ElementsAre("codesign --verify --strict /tmp/SCRATCH/brisko-daemon",
                          "codesign --display --verbose=2 /tmp/SCRATCH/brisko-daemon"));
  EXPECT_THAT(mac.journal("cat"), Contains("cat /tmp/SCRATCH/brisko-daemon"));
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
  Words expected = runningFiles();
  expected.push_back(dataFolder + "/config.json 644");
  EXPECT_THAT(mac.added(), ::testing::UnorderedElementsAreArray(expected));
  EXPECT_EQ(contents(mac.at(programFile)), contents(std::string(BRISKO_FAKES) + "/brisko-daemon"));
  EXPECT_EQ(mac.job(), jobWithoutApp());
  EXPECT_EQ(contents(mac.at(dataFolder + "/config.json")), R"({"limit":70})");
  // A running program is never overwritten in place.
  EXPECT_NE(inodeOf(mac.at(programFile)), older);
  EXPECT_THAT(
      mac.journal("launchctl"),
      ElementsAre("launchctl print system/com.brisko.daemon", "launchctl bootout system/com.brisko.daemon",
                  "launchctl print system/com.brisko.daemon", "launchctl enable system/com.brisko.daemon",
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
      std::count_if(calls.begin(), stop, [](const std::string& call) { return call.starts_with("mv "); }), 4);
  EXPECT_TRUE(
      std::none_of(stop, calls.end(), [](const std::string& call) { return call.starts_with("mv "); }));
}

TEST(Install, repairsOwnersModesAndPlantedLinks) {
  const ScratchMac mac;
  mac.put("/Library/Brisko/brisko-daemon", "not ours");
  mac.put("/Library/Logs/Brisko/daemon.log", "");
  mac.put("/victim", "untouched");
  setMode(mac.at("/Library/Brisko"), 0777);
  setMode(mac.at("/Library/Logs/Brisko"), 0700);
  setMode(mac.at("/victim"), 0600);
  makeLink(mac.at("/Library/Logs/Brisko/daemon.err.log"), mac.at("/victim"));
  makeLink(mac.at("/Library/Brisko/uninstall-service.sh.new"), mac.at("/victim"));

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 0) << run.errors;
  Words expected = runningFiles();
  expected.push_back("/victim 600");
  EXPECT_EQ(mac.added(), expected);
  EXPECT_EQ(contents(mac.at("/victim")), "untouched");
}

TEST(Install, watchesTheAppOnlyIfItIsInstalled) {
  const ScratchMac without;
  const ScratchMac with;
  with.putApp("/Applications/Brisko.app");

  ASSERT_EQ(without.install().status, 0);
  ASSERT_EQ(with.install().status, 0);

  EXPECT_EQ(without.job(), jobWithoutApp());
  EXPECT_THAT(with.job(), ::testing::Optional(HasSubstr("\t\t<string>--app</string>\n"
                                                        "\t\t<string>/Applications/Brisko.app</string>\n")));
}

TEST(Install, watchesTheGivenApp) {
  const ScratchMac mac;
  mac.putApp("/Applications/More & <Less>/Brisko.app");

  const Finished run = mac.install({"--app", "/Applications/More & <Less>/Brisko.app/"});

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(mac.job(), ::testing::Optional(
                             HasSubstr("<string>/Applications/More &amp; &lt;Less&gt;/Brisko.app</string>")));
}

TEST(Install, refusesAMissingApp) {
  const ScratchMac mac;

  const Finished run = mac.install({"--app", "/Applications/Other.app"});

  EXPECT_THAT(run.errors, HasSubstr("There is no app at /Applications/Other.app."));
  expectNothingHappened(mac, run);
}

TEST(Install, installsNothingIfTheProgramCannotControlTheCharge) {
  const ScratchMac mac;

  const Finished run = mac.install(
      {},
      {{"FAKE_PROBE", R"({"detail":"d","message":"No way, said it.","reason":"none","supported":false})"}});

  EXPECT_EQ(run.errors, "No way, said it. Nothing was installed.\n");
  expectNothingHappened(mac, run);
}

TEST(Install, installsNoProgramThatDoesNotAnswerTheProbe) {
  const ScratchMac mac;

  const Finished run = mac.install({}, {{"FAKE_PROBE", "Could not open AppleSMC."}});

  EXPECT_THAT(run.errors, HasSubstr("(\"Could not open AppleSMC.\"). Nothing was installed."));
  expectNothingHappened(mac, run);
}

TEST(Install, leavesAnOlderInstallationAloneIfItRefuses) {
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

  EXPECT_THAT(run.errors, HasSubstr("any process on this Mac could control the daemon"));
  expectNothingHappened(mac, run);
}

TEST(Install, acceptsAProgramWithoutATeamIfToldTo) {
  const ScratchMac mac;

  const Finished run = mac.install({"--allow-unsigned"}, {{"FAKE_SIGNER", "ad hoc"}});

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("Warning: no team has signed the program."));
  EXPECT_EQ(mac.added(), runningFiles());
}

TEST(Install, alwaysRefusesAProgramWithABrokenSignature) {
  const ScratchMac mac;

  const Finished run = mac.install({"--allow-unsigned"}, {{"FAKE_SIGNER", "unsigned"}});

  EXPECT_THAT(run.errors, HasSubstr("is missing or broken"));
  expectNothingHappened(mac, run);
}

TEST(Install, needsRoot) {
  const ScratchMac mac;

  const Finished run = mac.install({}, {{"FAKE_USER", "501"}});

  EXPECT_EQ(run.errors, "This has to run as root (sudo).\n");
  expectNothingHappened(mac, run);
}

TEST(Install, refusesAFolderInWhichOthersCouldReplaceTheProgram) {
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

TEST(Install, refusesALinkOnThePathToTheProgram) {
  const ScratchMac mac;
  mac.put("/elsewhere/file", "");
  makeLink(mac.at("/Library/Brisko"), mac.at("/elsewhere"));

  const Finished run = mac.install();

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("/Library/Brisko is a link."));
  EXPECT_THAT(mac.added(), ElementsAre("/Library/Brisko -> " + mac.at("/elsewhere"), "/elsewhere 755",
                                       "/elsewhere/file 644"));
}

TEST(Install, triesAgainIfLaunchdIsNotReady) {
  const ScratchMac mac;

  EXPECT_EQ(mac.install({}, {{"FAKE_REFUSALS", "4"}}).status, 0);

  EXPECT_TRUE(mac.job());
}

TEST(Install, reportsWhenLaunchdRejectsTheJob) {
  const ScratchMac mac;

  const Finished run = mac.install({}, {{"FAKE_REFUSALS", "5"}});

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("launchd rejected the job."));
  EXPECT_THAT(run.errors, HasSubstr("The service is not completely installed."));
  EXPECT_EQ(mac.added(), installedFiles());
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

TEST(Install, findsTheProgramBesideTheScript) {
  const ScratchMac mac;
  mac.put("/Volumes/Brisko 1/newsyslog.d/com.brisko.daemon.conf",
          supplied("newsyslog.d/com.brisko.daemon.conf"));
  for (const char* name : {"install-service.sh", "uninstall-service.sh", "com.brisko.daemon.plist"})
    mac.put("/Volumes/Brisko 1/" + std::string(name), supplied(name));
  const std::string script = mac.at("/Volumes/Brisko 1/install-service.sh");

  EXPECT_THAT(mac.runScript(script, {}).errors, HasSubstr("There is no program at"));
  mac.put("/Volumes/Brisko 1/brisko-daemon", contents(std::string(BRISKO_FAKES) + "/brisko-daemon"));
  EXPECT_EQ(mac.runScript(script, {}).status, 0);

  EXPECT_TRUE(exists(mac.at(programFile)));
  EXPECT_TRUE(mac.job());
}

TEST(Install, refusesInvalidArguments) {
  const ScratchMac mac;
  for (const Words& arguments : {Words{"--nonsense"}, Words{"extra"}, Words{"--app"}, Words{"--app", ""},
                                 Words{"--app", "--allow-unsigned"}, Words{"--app", "Brisko.app"},
                                 Words{"--program"}, Words{"--keep-data"}}) {
    const Finished run = mac.install(arguments);
    EXPECT_EQ(run.status, 2) << arguments.front();
    EXPECT_THAT(run.errors, HasSubstr("Try --help.\n"));
  }
  EXPECT_THAT(mac.added(), IsEmpty());
  EXPECT_THAT(mac.journal(), IsEmpty());
}

TEST(Install, showsItsHelpWithoutRoot) {
  const ScratchMac mac;

  const Finished run = mac.install({"--help"}, {{"FAKE_USER", "501"}});

  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, HasSubstr("--allow-unsigned"));
  EXPECT_THAT(mac.journal(), IsEmpty());
}

// No incomplete file ever has a name under which it would be used.
void expectWholeFiles(const ScratchMac& mac) {
  const std::map<std::string, std::string> whole{
      {programFile, contents(std::string(BRISKO_FAKES) + "/brisko-daemon")},
      {jobPath, jobWithoutApp()},
      {"/Library/Brisko/uninstall-service.sh", supplied("uninstall-service.sh")},
      {"/etc/newsyslog.d/com.brisko.daemon.conf", supplied("newsyslog.d/com.brisko.daemon.conf")}};
  for (const auto& [path, text] : whole) {
    if (exists(mac.at(path))) {
      EXPECT_EQ(contents(mac.at(path)), text) << path;
    }
  }
}

// Interrupts an installation before each of its calls in turn, or in the middle of a file that the call
// writes. Each time `mend` repairs the result. Returns the number of interruptions.
template <typename Mend>
int cutOffEverywhere(const Mend& mend) {
  for (int call = 1;; ++call) {
    SCOPED_TRACE("cut off at call " + std::to_string(call));
    const ScratchMac mac;
    const Finished run = mac.install({}, {{"FAKE_KILL_AT", std::to_string(call)}});
    if (!run.endSignal) return call - 1;
    expectWholeFiles(mac);
    mend(mac);
    if (::testing::Test::HasFailure()) return call;
  }
}

// A killed script leaves the copy that it was checking in the temporary folder, which the system empties.
Words withoutTemporary(Words files) {
  std::erase_if(files, [](const std::string& file) { return file.starts_with("/tmp/"); });
  return files;
}

TEST(InstallCutOff, isCompletedByTheNextInstallation) {
  const int calls = cutOffEverywhere([](const ScratchMac& mac) {
    const Finished run = mac.install();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(withoutTemporary(mac.added()), runningFiles());
    EXPECT_EQ(mac.job(), contents(mac.at(jobPath)));
  });
  EXPECT_GT(calls, 20);
}

TEST(InstallCutOff, isRemovedByTheUninstaller) {
  const int calls = cutOffEverywhere([](const ScratchMac& mac) {
    const Finished run = mac.uninstall();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(withoutTemporary(mac.added()), IsEmpty());
    EXPECT_FALSE(mac.job());
  });
  EXPECT_GT(calls, 20);
}

}  // namespace
}  // namespace brisko::test
