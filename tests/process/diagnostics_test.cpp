// The self-test, the probe and the firmware test of the real program.

#include <filesystem>
#include <map>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "process/live_mac.h"
#include "process/program.h"
#include "sim/machine/machine_store.h"
#include "support/child.h"
#include "support/testing.h"

namespace brisko::diagnostics_test {
namespace {

using namespace test;

constexpr const char* passed = "✓ 212 vérifications, aucune erreur.\n";
constexpr const char* object = R"({"discharge":"CHIE","led":true,"mode":"CHTE","supported":true})";

// ---- The self-test -------------------------------------------------------------------------------------

class SelfTestProgram : public ::testing::Test {
 protected:
  SelfTestProgram() {
    // With the mode of a computer's temporary folder.
    EXPECT_EQ(::chmod(temporary.path().c_str(), 01777), 0);
    farAway = {{"TMPDIR", temporary.path()}, {"LC_ALL", "fr_FR.UTF-8"}, {"TZ", "Pacific/Kiritimati"}};
  }

  const ScratchFolder temporary;
  Environment farAway;
};

void expectPassed(const test::Ended& ended) {
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, passed);
  EXPECT_EQ(ended.errors, "");
}

TEST_F(SelfTestProgram, passesForTheUserNobodyWithANarrowUmaskInAnotherLocale) {
  expectPassed(test::runAsNobody({"--selftest"}, farAway, 077));
  EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
}

TEST_F(SelfTestProgram, passesForRootWithAnyUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{077}, mode_t{0777}}) {
    const mode_t before = ::umask(mask);
    const auto program = std::make_unique<test::Program>("brisko-daemon", Words{"--selftest"}, farAway);
    ::umask(before);
    ASSERT_TRUE(program->ends());
    expectPassed({program->status(), program->endSignal(), program->output(), program->errors()});
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
  }
}

// Every file below a folder, with the time of its last change.
std::map<std::string, timespec> filesBelow(const std::string& folder) {
  std::map<std::string, timespec> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    struct stat status {};
    EXPECT_EQ(::stat(entry.path().c_str(), &status), 0);
    files[entry.path()] = status.st_ctim;
  }
  return files;
}

bool operator==(const timespec& left, const timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

TEST_F(SelfTestProgram, touchesNoKeyAndNoFileOfTheDaemon) {
  const LiveMac mac;
  mac.settings("{\"limit\":60}");
  std::string reason;
  const auto store = virtual_mac::MachineStore::open(mac.folder(), reason);
  ASSERT_NE(store, nullptr) << reason;
  store->update().journal().reads = true;
  const auto files = filesBelow(mac.folder() + "/volume");
  const auto program = mac.daemon({"--selftest"}, farAway);
  ASSERT_TRUE(program->ends());
  expectPassed({program->status(), program->endSignal(), program->output(), program->errors()});
  EXPECT_EQ(store->view().machine().smc.exchanges, 0U);
  EXPECT_EQ(store->view().journal().written, 0U);
  const auto after = filesBelow(mac.folder() + "/volume");
  ASSERT_EQ(after.size(), files.size());
  for (const auto& [path, changed] : files) EXPECT_TRUE(after.at(path) == changed) << path;
}

TEST_F(SelfTestProgram, passesInManyProcessesAtOnce) {
  std::vector<std::unique_ptr<test::Program>> programs;
  for (int count = 0; count < 8; ++count) {
    programs.push_back(std::make_unique<test::Program>("brisko-daemon", Words{"--selftest"}, farAway));
  }
  for (const auto& program : programs) {
    ASSERT_TRUE(program->ends());
    expectPassed({program->status(), program->endSignal(), program->output(), program->errors()});
  }
  EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
}

TEST_F(SelfTestProgram, exitsWith1WithoutATemporaryFolder) {
  ASSERT_EQ(::chmod(temporary.path().c_str(), 0755), 0);
  const test::Ended ended = test::runAsNobody({"--selftest"}, farAway);
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.output, HasSubstr("✗ 3 erreur(s) sur 199 vérifications :\n  - config illisible après"));
}

// ---- Streams -------------------------------------------------------------------------------------------

// The exit status of the daemon on this Mac with this standard output; missing if a signal ended it.
std::optional<int> statusWritingTo(const LiveMac& mac, const char* mode, int output) {
  const test::Ended ended = test::inChild([&] {
    if (output < 0) {
      ::close(STDOUT_FILENO);
    } else {
      ::dup2(output, STDOUT_FILENO);
    }
    ::setenv("BRISKO_VIRTUAL_MAC", mac.folder().c_str(), 1);
    ::execl(test::programPath("brisko-daemon").c_str(), "brisko-daemon", mode, "--json", nullptr);
    ::_exit(99);
  });
  EXPECT_EQ(ended.errors, "");
  return ended.status;
}

class Streams : public ::testing::TestWithParam<const char*> {};

TEST_P(Streams, doNotAffectTheStatusIfNobodyReadsThem) {
  const LiveMac mac;
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ::close(ends[0]);
  EXPECT_EQ(statusWritingTo(mac, GetParam(), ends[1]), 0);
  ::close(ends[1]);
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_EQ(statusWritingTo(mac, GetParam(), full), 0);
  ::close(full);
  EXPECT_EQ(statusWritingTo(mac, GetParam(), -1), 0);
}

INSTANTIATE_TEST_SUITE_P(OfMode, Streams, ::testing::Values("--selftest", "--probe"),
                         [](const auto& mode) { return std::string(mode.param).substr(2); });

TEST(Streams, containTheSameBytesInAPipeAndInAFile) {
  const LiveMac mac;
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  EXPECT_EQ(statusWritingTo(mac, "--probe", ends[1]), 0);
  ::close(ends[1]);
  std::string read(4096, '\0');
  const ssize_t size = ::read(ends[0], read.data(), read.size());
  ::close(ends[0]);
  ASSERT_GE(size, 0);
  read.resize(static_cast<std::size_t>(size));
  EXPECT_EQ(read, object);
  const auto program = mac.daemon({"--probe", "--json"});
  ASSERT_TRUE(program->ends());
  EXPECT_EQ(program->output(), object);
}

// ---- The probe and the firmware test -------------------------------------------------------------------

test::Finished finish(const LiveMac& mac, const Words& arguments, const Environment& environment = {}) {
  const auto program = mac.daemon(arguments, environment);
  EXPECT_TRUE(program->ends());
  return {program->status(), program->endSignal(), program->output(), program->errors()};
}

TEST(ProbeProgram, answersOnALiveMacOfEveryKind) {
  struct Case {
    Words options;
    const char* mode;
    const char* discharge;
    const char* written;
    const char* object;
  };
  const Case cases[] = {
      {{}, "CHTE", "CHIE", "CHIE, CHTE", R"({"discharge":"CHIE","led":true,"mode":"CHTE","supported":true})"},
      {{"--model", "pro14"},
       "CH0B+CH0C",
       "CH0I",
       "CH0I, CH0B, CH0C",
       R"({"discharge":"CH0I","led":true,"mode":"CH0B+CH0C","supported":true})"},
      {{"--model", "pro16"},
       "bfD0/bfE0/bfF0",
       "CH0J",
       "CH0J, bfF0, bfD0, bfE0",
       R"({"discharge":"CH0J","led":true,"mode":"bfD0/bfE0/bfF0","supported":true})"},
      {{"--cut", "none"}, "CHTE", "not supported", "CHTE", R"({"led":true,"mode":"CHTE","supported":true})"},
      {{"--macos", "27"},
       "macOS",
       "macOS (down to the limit)",
       "macOS charge limit (PowerUI, mclLimitValue below 80%)",
       R"({"discharge":"macOS","led":true,"mode":"macOS","supported":true})"}};
  for (const Case& each : cases) {
    const LiveMac mac(each.options);
    const test::Finished text = finish(mac, {"--probe"});
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(text.output, std::string("charging   : ") + each.mode + "\ndischarge  : " + each.discharge +
                               "\nMagSafe LED: ACLC\nverified by: AppleSmartBattery current\nwill write : " +
                               each.written + " (+ ACLC)\n");
    EXPECT_EQ(text.errors, "");
    const test::Finished json = finish(mac, {"--probe", "--json"});
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(json.output, each.object);
    EXPECT_EQ(mac.log(), "");
  }
}

TEST(ProbeProgram, answersForAPretendedVersion) {
  const LiveMac mac;
  EXPECT_EQ(finish(mac, {"--probe", "--json"}, {{"BRISKO_PRETEND_MACOS", "27"}}).output,
            R"({"discharge":"macOS","led":true,"mode":"macOS","supported":true})");
  const Environment nothing{{"BRISKO_PRETEND_MACOS", "28"}, {"BRISKO_PRETEND_NO_NATIVE", "1"}};
  const test::Finished locked = finish(mac, {"--probe"}, nothing);
  EXPECT_EQ(locked.status, 0);
  EXPECT_EQ(
      locked.output,
      "no usable charge control.\n"
      "macOS 28 changed the way charging is controlled; Brisko can’t hold a limit on this version yet.\n");
}

TEST(ProbeProgram, doesNotAffectARunningDaemon) {
  const LiveMac mac({"--charge", "90"});
  const auto daemon = mac.daemon();
  ASSERT_TRUE(mac.logs("state=hold"));  // the summary, which is the last line of the first tick
  const std::string log = mac.log();
  EXPECT_EQ(finish(mac, {"--probe", "--json"}).output, object);
  EXPECT_EQ(finish(mac, {"--selftest"}).output, passed);
  EXPECT_EQ(mac.log(), log);
  EXPECT_EQ(mac.key("CHTE"), "01000000");
}

TEST(WithoutVirtualMac, theModesThatNeedTheControllerReportThatOnStandardOutput) {
  for (const Words& words : {Words{"--probe"}, Words{"--probe", "--json"}}) {
    const test::Ended ended = test::runAsNobody(words);
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.output, "Could not open AppleSMC.\n");
    EXPECT_EQ(ended.errors, "");
  }
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const test::Finished finished = test::run("brisko-daemon", {"--fwtest"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.output, "Could not open AppleSMC.\n");
}

TEST(FirmwareTestProgram, armsAndDisarmsALiveMac) {
  const LiveMac mac({"--model", "pro16", "--charge", "57"});
  // The battery drains far more slowly than it charges, so it shows 57 % for longer than any start takes.
  static_cast<void>(mac.vmac("unplug"));
  static_cast<void>(mac.vmac("speed", {"20"}));
  const test::Finished finished = finish(mac, {"--fwtest"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_THAT(finished.output,
              ::testing::MatchesRegex("firmware mode detected \\(bfD0/bfE0/bfF0\\)\\. battery 57%\\.\n"
                                      "arming band 37–42% via ChargeGate\\.setCharging for 15 s…\n"
                                      "(  B0AC=-?[0-9]+ mA  armed=true\n){5}"
                                      "disarmed\\. B0AC=-?[0-9]+ mA  armed=false\n"));
  const std::string journal = mac.vmac("show", {"--journal", "10"});
  EXPECT_LT(journal.find("write bfE0 25000000"), journal.find("write bfF0 02"));
  EXPECT_EQ(mac.key("bfF0"), "00");
  EXPECT_EQ(mac.log(), "");
}

}  // namespace
}  // namespace brisko::diagnostics_test
