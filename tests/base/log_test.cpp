#include "base/log.h"

#include <clocale>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <type_traits>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/process_flags.h"
#include "support/child.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::log_test {
namespace {

using namespace test;

constexpr const char* logPath = "/Library/Logs/Brisko/daemon.log";

// log(1) must not compile: a number is not a message, nor must the call find the logarithm.
static_assert(!std::is_invocable_v<decltype(brisko::log), double>);
static_assert(!std::is_invocable_v<decltype(brisko::log), int>);

// ---- log()

std::string stampAt(double seconds) {
  const VirtualMac mac({.startTime = seconds});
  return inChild([] { log("x"); }).output;
}

TEST(LogLineText, startsWithTheTimeInUtcAndTwoBlanks) {
  const VirtualMac mac({.startTime = 1772352930});
  EXPECT_EQ(inChild([] { log("→ state: allow"); }).output, "2026-03-01T08:15:30Z  → state: allow\n");
  EXPECT_EQ(mac.read(logPath), "2026-03-01T08:15:30Z  → state: allow\n");
}

TEST(LogLineText, dropsFractionsOfTheSecond) {
  EXPECT_EQ(stampAt(1772352930.0), "2026-03-01T08:15:30Z  x\n");
  EXPECT_EQ(stampAt(1772352930.9), "2026-03-01T08:15:30Z  x\n");
  EXPECT_EQ(stampAt(1772352930.9999), "2026-03-01T08:15:30Z  x\n");
  EXPECT_EQ(stampAt(1772352931.0), "2026-03-01T08:15:31Z  x\n");
}

TEST(LogLineText, followsTheCalendar) {
  EXPECT_EQ(stampAt(1709164799), "2024-02-28T23:59:59Z  x\n");
  EXPECT_EQ(stampAt(1709164800), "2024-02-29T00:00:00Z  x\n");
  EXPECT_EQ(stampAt(1709251200), "2024-03-01T00:00:00Z  x\n");
  EXPECT_EQ(stampAt(1735689599), "2024-12-31T23:59:59Z  x\n");
  EXPECT_EQ(stampAt(1735689600), "2025-01-01T00:00:00Z  x\n");
  EXPECT_EQ(stampAt(951782400), "2000-02-29T00:00:00Z  x\n");
  EXPECT_EQ(stampAt(4107542400), "2100-03-01T00:00:00Z  x\n");
  EXPECT_EQ(stampAt(2147483648), "2038-01-19T03:14:08Z  x\n");
}

TEST(LogLineText, hasATimeWhateverTheClockSays) {
  VirtualMac mac({.startTime = 0});
  const auto stampWithClockAt = [&mac](double seconds) {
    mac.store().update().machine().system.wallOffset = seconds;
    return inChild([] { log("x"); }).output;
  };
  EXPECT_EQ(stampWithClockAt(0), "1970-01-01T00:00:00Z  x\n");
  EXPECT_EQ(stampWithClockAt(-0.5), "1969-12-31T23:59:59Z  x\n");
  EXPECT_EQ(stampWithClockAt(-1), "1969-12-31T23:59:59Z  x\n");
  EXPECT_EQ(stampWithClockAt(253'402'300'799), "9999-12-31T23:59:59Z  x\n");
  EXPECT_EQ(stampWithClockAt(253'402'300'800), "9999-12-31T23:59:59Z  x\n");
  EXPECT_EQ(stampWithClockAt(1e300), "9999-12-31T23:59:59Z  x\n");
  EXPECT_EQ(stampWithClockAt(-62'167'219'200), "0000-01-01T00:00:00Z  x\n");
  EXPECT_EQ(stampWithClockAt(-62'167'219'201), "0000-01-01T00:00:00Z  x\n");
  EXPECT_EQ(stampWithClockAt(-1e300), "0000-01-01T00:00:00Z  x\n");
  EXPECT_EQ(stampWithClockAt(std::nan("")), "9999-12-31T23:59:59Z  x\n");
}

TEST(LogLineText, ignoresTimeZoneAndLocale) {
  const ScratchFolder folder;
  const VirtualMac mac({.startTime = 1772352930});
  const std::string command =
      "localedef -i fr_FR -f UTF-8 " + folder.path("fr_FR.UTF-8") + " >" + folder.path("said") + " 2>&1";
  if (std::system(command.c_str()) != 0) GTEST_SKIP() << "no French locale can be made here";
  const auto ended = inChild([&folder] {
    ::setenv("TZ", "Asia/Tokyo", 1);
    ::tzset();
    ::setenv("LOCPATH", folder.path().c_str(), 1);
    if (std::setlocale(LC_ALL, "fr_FR.UTF-8") != nullptr) log("x");
  });
  EXPECT_EQ(ended.output, "2026-03-01T08:15:30Z  x\n");
}

TEST(LogLineText, leavesTheMessageUnchanged) {
  using namespace std::string_literals;
  const VirtualMac mac({.startTime = 1772352930});
  for (const auto& message :
       {""s, "⚠️ l'attente"s, "100%s %n"s, "a\0b"s, "\xff"s, std::string(100'000, 'x')}) {
    EXPECT_EQ(inChild([&message] { log(message); }).output, "2026-03-01T08:15:30Z  " + message + "\n");
  }
}

TEST(LogLineText, goesToStandardOutputAtOnce) {
  const VirtualMac mac({.startTime = 1772352930});
  const auto ended = inChild([] {
    log("one");
    ::raise(SIGKILL);
  });
  EXPECT_EQ(ended.output, "2026-03-01T08:15:30Z  one\n");
  EXPECT_EQ(mac.read(logPath), "2026-03-01T08:15:30Z  one\n");
}

TEST(LogLineText, goesToStandardOutputAndTheFileInOrder) {
  const VirtualMac mac({.startTime = 1772352930});
  const auto ended = inChild([] {
    for (const char* message : {"one", "two", "three"}) log(message);
  });
  EXPECT_EQ(ended.output,
            "2026-03-01T08:15:30Z  one\n2026-03-01T08:15:30Z  two\n2026-03-01T08:15:30Z  three\n");
  EXPECT_EQ(mac.read(logPath), ended.output);
}

TEST(LogLineText, stillGoesToStandardOutputAfterAPurge) {
  VirtualMac mac({.startTime = 1772352930});
  const auto ended = inChild([] {
    log("one");
    gPurged = true;
    log("two");
  });
  EXPECT_EQ(ended.output, "2026-03-01T08:15:30Z  one\n2026-03-01T08:15:30Z  two\n");
  EXPECT_EQ(mac.read(logPath), "2026-03-01T08:15:30Z  one\n");
}

TEST(LogLineText, createsNoFileAfterAPurge) {
  const VirtualMac mac;
  static_cast<void>(inChild([] {
    gPurged = true;
    log("x");
  }));
  EXPECT_FALSE(mac.exists(logPath));
}

// Makes the standard output of this process a closed pipe.
void breakStandardOutput() {
  int ends[2];
  if (::pipe(ends) != 0) ::_exit(1);
  ::dup2(ends[1], STDOUT_FILENO);
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(LogLineText, survivesAStandardOutputThatNobodyReads) {
  const VirtualMac mac({.startTime = 1772352930});
  const auto ended = inChild([] {
    breakStandardOutput();
    log("one");
    log("two");
  });
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.signal, std::nullopt);
  EXPECT_EQ(mac.read(logPath), "2026-03-01T08:15:30Z  one\n2026-03-01T08:15:30Z  two\n");
}

TEST(LogLineText, leavesTheBrokenPipeSignalUnchanged) {
  const VirtualMac mac;
  // Still at its default afterwards, neither blocked nor pending.
  const auto ended = inChild([] {
    breakStandardOutput();
    log("x");
    struct sigaction action {};
    sigset_t set;
    ::sigaction(SIGPIPE, nullptr, &action);
    if (action.sa_handler != SIG_DFL) ::_exit(2);
    ::pthread_sigmask(SIG_SETMASK, nullptr, &set);
    if (sigismember(&set, SIGPIPE) != 0) ::_exit(3);
    ::sigpending(&set);
    if (sigismember(&set, SIGPIPE) != 0) ::_exit(4);
    ::raise(SIGPIPE);
  });
  EXPECT_EQ(ended.signal, SIGPIPE);
}

TEST(LogLineText, leavesAPendingBrokenPipeSignalOfOthers) {
  const VirtualMac mac;
  const auto ended = inChild([] {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    ::raise(SIGPIPE);
    breakStandardOutput();
    log("x");
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  });
  EXPECT_EQ(ended.signal, SIGPIPE);
}

TEST(LogLineText, survivesAnIgnoredBrokenPipeSignal) {
  const VirtualMac mac;
  const auto ended = inChild([] {
    std::signal(SIGPIPE, SIG_IGN);
    breakStandardOutput();
    log("x");
  });
  EXPECT_EQ(ended.status, 0);
}

TEST(LogLineText, survivesAClosedOrFullStandardOutput) {
  const VirtualMac mac({.startTime = 1772352930});
  const auto closed = inChild([] {
    ::close(STDOUT_FILENO);
    log("closed");
  });
  EXPECT_EQ(closed.status, 0);
  const auto full = inChild([] {
    ::dup2(::open("/dev/full", O_WRONLY), STDOUT_FILENO);
    log("full");
  });
  EXPECT_EQ(full.status, 0);
  EXPECT_THAT(mac.logLines(), testing::Contains("full"));
}

TEST(LogLineText, survivesALogFolderThatCannotBeCreated) {
  VirtualMac mac({.startTime = 1772352930});
  mac.write("/Library/Logs/Brisko", "a file");
  const auto ended = inChild([] { log("x"); });
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, "2026-03-01T08:15:30Z  x\n");
  EXPECT_EQ(mac.read("/Library/Logs/Brisko"), "a file");
}

TEST(LogLineText, canBeWrittenFromAnExitHook) {
  const VirtualMac mac({.startTime = 1772352930});
  const auto ended = inChild([] {
    // Registered before the log is first used, so that it runs after the destruction of what the log created.
    std::atexit([] { log("last"); });
    log("first");
    std::exit(0);
  });
  EXPECT_EQ(ended.output, "2026-03-01T08:15:30Z  first\n2026-03-01T08:15:30Z  last\n");
  EXPECT_EQ(mac.read(logPath), ended.output);
}

// ---- the log file

class LogFileTest : public testing::Test {
 protected:
  LogFileTest() { LogFile::reset(directory, 100); }

  ScratchFolder folder;
  const std::string directory = folder.path("above/logs");
  const std::string file = directory + "/daemon.log";
  const std::string previous = directory + "/daemon.log.1";

  void makeDirectory() {
    makeFolder(folder.path("above"));
    makeFolder(directory);
  }
};

std::string line(std::size_t size, char fill = 'x') { return std::string(size - 1, fill) + "\n"; }

TEST_F(LogFileTest, isCreatedWithItsFolders) {
  LogFile::append("one\n");
  LogFile::append("two\n");
  EXPECT_EQ(contents(file), "one\ntwo\n");
  EXPECT_FALSE(exists(previous));
}

TEST_F(LogFileTest, isNotCreatedBeforeTheFirstLine) { EXPECT_FALSE(exists(folder.path("above"))); }

TEST_F(LogFileTest, hasItsModesWhateverTheUmask) {
  for (const mode_t umask : {mode_t{0000}, mode_t{0022}, mode_t{0077}}) {
    const std::string top = folder.path("umask-" + std::to_string(umask));
    LogFile::reset(top + "/logs", 100);
    ::umask(umask);
    LogFile::append("one\n");
    EXPECT_EQ(modeOf(top), 0755U);
    EXPECT_EQ(modeOf(top + "/logs"), 0755U);
    EXPECT_EQ(modeOf(top + "/logs/daemon.log"), 0644U);
  }
}

TEST_F(LogFileTest, keepsTheModesOfExistingFilesAndFolders) {
  makeDirectory();
  put(file, "inherited\n");
  setMode(directory, 0700);
  setMode(file, 0600);
  LogFile::append("one\n");
  EXPECT_EQ(modeOf(directory), 0700U);
  EXPECT_EQ(modeOf(file), 0600U);
  EXPECT_EQ(contents(file), "inherited\none\n");
}

TEST_F(LogFileTest, isFilledUpToItsCapExactly) {
  LogFile::append(line(60, 'a'));
  LogFile::append(line(40, 'b'));
  EXPECT_EQ(contents(file), line(60, 'a') + line(40, 'b'));
  EXPECT_FALSE(exists(previous));

  LogFile::append("\n");
  EXPECT_EQ(contents(file), "\n");
  EXPECT_EQ(contents(previous), line(60, 'a') + line(40, 'b'));
}

TEST_F(LogFileTest, isRotatedBeforeALineThatWouldExceedItsCapByOneByte) {
  LogFile::append(line(60, 'a'));
  LogFile::append(line(41, 'b'));
  EXPECT_EQ(contents(file), line(41, 'b'));
  EXPECT_EQ(contents(previous), line(60, 'a'));
}

TEST_F(LogFileTest, countsBytesAndNotCharacters) {
  const std::string warning = "⚠️\n";  // 7 bytes
  ASSERT_EQ(warning.size(), 7U);
  LogFile::append(line(93));
  LogFile::append(warning);
  EXPECT_FALSE(exists(previous));
  LogFile::append("\n");
  EXPECT_TRUE(exists(previous));
}

TEST_F(LogFileTest, keepsOnePreviousGeneration) {
  for (const char fill : {'a', 'b', 'c', 'd'}) LogFile::append(line(90, fill));
  EXPECT_EQ(contents(file), line(90, 'd'));
  EXPECT_EQ(contents(previous), line(90, 'c'));
  EXPECT_FALSE(exists(directory + "/daemon.log.2"));
}

TEST_F(LogFileTest, becomesThePreviousGenerationWithItsMode) {
  LogFile::append(line(90));
  setMode(file, 0600);
  const ino_t inode = inodeOf(file);
  LogFile::append(line(90));
  EXPECT_EQ(inodeOf(previous), inode);
  EXPECT_EQ(modeOf(previous), 0600U);
  EXPECT_EQ(modeOf(file), 0644U);
}

TEST_F(LogFileTest, isRotatedAtTheFirstLineIfItIsAlreadyTooLarge) {
  makeDirectory();
  LogFile::reset(directory, 5000);
  put(file, std::string(5001, 'x'));
  LogFile::append("new\n");
  EXPECT_EQ(contents(file), "new\n");
  EXPECT_EQ(contents(previous), std::string(5001, 'x'));
}

TEST_F(LogFileTest, appendsToAnExistingFile) {
  makeDirectory();
  put(file, line(96));
  LogFile::append("new\n");
  EXPECT_EQ(contents(file), line(96) + "new\n");
  LogFile::append("\n");
  EXPECT_EQ(contents(file), "\n");
}

TEST_F(LogFileTest, acceptsALineLongerThanItsCap) {
  LogFile::append("one\n");
  LogFile::append(line(500, 'a'));
  EXPECT_EQ(contents(file), line(500, 'a'));
  EXPECT_EQ(contents(previous), "one\n");
}

TEST_F(LogFileTest, isRotatedByALongLineAlsoWhenEmpty) {
  makeDirectory();
  put(previous, "kept so far\n");
  LogFile::append(line(500, 'a'));
  EXPECT_EQ(contents(file), line(500, 'a'));
  EXPECT_EQ(contents(previous), "");
}

TEST_F(LogFileTest, isNotLookedUpAgainOnceOpen) {
  LogFile::append("one\n");
  const int other = ::open(file.c_str(), O_RDONLY);
  ASSERT_EQ(::unlink(file.c_str()), 0);
  LogFile::append("two\n");
  EXPECT_FALSE(exists(file));
  char bytes[16] = {};
  EXPECT_EQ(::pread(other, bytes, sizeof bytes, 0), 8);
  EXPECT_STREQ(bytes, "one\ntwo\n");
  ::close(other);
}

TEST_F(LogFileTest, isCreatedAgainByARotationAfterItVanished) {
  LogFile::append(line(90, 'a'));
  ASSERT_EQ(::unlink(file.c_str()), 0);
  LogFile::append(line(90, 'b'));
  EXPECT_EQ(contents(file), line(90, 'b'));
  EXPECT_FALSE(exists(previous));
}

TEST_F(LogFileTest, isStillWrittenAfterItWasRenamed) {
  LogFile::append("one\n");
  ASSERT_EQ(::rename(file.c_str(), folder.path("moved").c_str()), 0);
  put(file, "another\n");
  LogFile::append("two\n");
  EXPECT_EQ(contents(folder.path("moved")), "one\ntwo\n");
  EXPECT_EQ(contents(file), "another\n");
}

TEST_F(LogFileTest, isWrittenAtItsCurrentEnd) {
  LogFile::append("one\n");
  put(file, "cut by somebody\n");
  LogFile::append("two\n");
  EXPECT_EQ(contents(file), "cut by somebody\ntwo\n");
}

TEST_F(LogFileTest, countsALineThatCouldNotBeWritten) {
  const auto ended = inChild([] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit tenBytes{10, 10};
    ::setrlimit(RLIMIT_FSIZE, &tenBytes);
    LogFile::append(line(60, 'a'));
    LogFile::append(line(41, 'b'));
  });
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(contents(previous), std::string(10, 'a'));
  EXPECT_EQ(contents(file), std::string(10, 'b'));
}

TEST_F(LogFileTest, isOpenedAgainAtTheNextLine) {
  put(folder.path("above"), "a file in the way");
  LogFile::append("lost\n");
  ASSERT_EQ(::unlink(folder.path("above").c_str()), 0);
  LogFile::append("kept\n");
  EXPECT_EQ(contents(file), "kept\n");
}

TEST_F(LogFileTest, isNeverAPipeOrAFolder) {
  makeDirectory();
  makePipe(file);
  LogFile::append("lost\n");
  {
    const int reader = ::open(file.c_str(), O_RDONLY | O_NONBLOCK);
    LogFile::append("lost\n");
    char byte = 0;
    EXPECT_LE(::read(reader, &byte, 1), 0);
    ::close(reader);
  }
  ASSERT_EQ(::unlink(file.c_str()), 0);
  makeFolder(file);
  LogFile::append("lost\n");
  ASSERT_EQ(::rmdir(file.c_str()), 0);
  LogFile::append("kept\n");
  EXPECT_EQ(contents(file), "kept\n");
}

TEST_F(LogFileTest, keepsThePreviousGenerationIfItCannotBeOpened) {
  makeDirectory();
  makeFolder(file);
  put(previous, "old\n");
  LogFile::append(line(500));
  EXPECT_EQ(contents(previous), "old\n");
  EXPECT_TRUE(exists(file));
}

TEST_F(LogFileTest, mayBeALinkToAFile) {
  makeDirectory();
  put(folder.path("target"), "before\n");
  makeLink(file, folder.path("target"));
  LogFile::append("one\n");
  EXPECT_EQ(contents(folder.path("target")), "before\none\n");
}

TEST_F(LogFileTest, isNotCreatedThroughADanglingLink) {
  makeDirectory();
  makeLink(file, folder.path("nothing"));
  LogFile::append("lost\n");
  EXPECT_FALSE(exists(folder.path("nothing")));
  put(folder.path("nothing"), "");
  LogFile::append("kept\n");
  EXPECT_EQ(contents(folder.path("nothing")), "kept\n");
}

TEST_F(LogFileTest, replacesWhateverHasTheNameOfThePreviousGeneration) {
  makeDirectory();
  put(file, line(90, 'a'));
  put(folder.path("target"), "untouched");
  makeLink(previous, folder.path("target"));
  LogFile::append(line(90, 'b'));
  EXPECT_EQ(contents(previous), line(90, 'a'));
  EXPECT_EQ(contents(folder.path("target")), "untouched");

  ASSERT_EQ(::unlink(previous.c_str()), 0);
  makePipe(previous);
  LogFile::append(line(90, 'c'));
  EXPECT_EQ(contents(previous), line(90, 'b'));

  ASSERT_EQ(::unlink(previous.c_str()), 0);
  makeFolder(previous);
  put(previous + "/inside", "text");
  LogFile::append(line(90, 'd'));
  EXPECT_EQ(contents(previous), line(90, 'c'));
  EXPECT_EQ(contents(file), line(90, 'd'));
}

TEST_F(LogFileTest, continuesInTheSameFileIfItCannotBeRotated) {
  makeDirectory();
  put(file, line(90, 'a'));
  setMode(file, 0666);
  setMode(directory, 0555);
  setMode(folder.path(), 0755);
  const auto ended = inChild([] {
    test::becomeNobody();
    LogFile::append(line(90, 'b'));
  });
  setMode(directory, 0755);
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(contents(file), line(90, 'a') + line(90, 'b'));
}

TEST_F(LogFileTest, isNotInheritedByChildren) {
  LogFile::append("one\n");
  const auto ended = inChild([] {
    // Each descriptor above the standard ones that an exec would pass on; gtest and the child have none.
    for (int number = 3; number < 64; ++number) {
      struct stat status {};
      const int flags = ::fcntl(number, F_GETFD);
      if (flags >= 0 && (flags & FD_CLOEXEC) == 0 && ::fstat(number, &status) == 0 && status.st_size == 4) {
        tell("handed on");
      }
    }
  });
  EXPECT_EQ(ended.output, "");
}

TEST_F(LogFileTest, isAnotherFileAfterAReset) {
  LogFile::append(line(90, 'a'));
  const std::string elsewhere = folder.path("elsewhere");
  LogFile::reset(elsewhere, 20);
  LogFile::append(line(20, 'b'));
  EXPECT_EQ(contents(elsewhere + "/daemon.log"), line(20, 'b'));
  EXPECT_FALSE(exists(elsewhere + "/daemon.log.1"));
  LogFile::append("\n");
  EXPECT_TRUE(exists(elsewhere + "/daemon.log.1"));
  EXPECT_EQ(contents(file), line(90, 'a'));
  EXPECT_FALSE(exists(previous));
}

TEST_F(LogFileTest, isNotWrittenAfterAPurge) {
  LogFile::append("one\n");
  gPurged = true;
  LogFile::append("two\n");
  EXPECT_EQ(contents(file), "one\n");
}

TEST(LogFileDefaults, holdsFourMebibytesOnTheVolume) {
  VirtualMac mac;
  constexpr std::size_t cap = 4U << 20U;
  mac.write(logPath, std::string(cap - 4, 'x'));
  LogFile::append("new\n");
  EXPECT_FALSE(mac.exists("/Library/Logs/Brisko/daemon.log.1"));
  LogFile::append("\n");
  EXPECT_EQ(mac.read("/Library/Logs/Brisko/daemon.log.1").size(), cap);
  EXPECT_EQ(mac.read(logPath), "\n");
}

// ---- permissions

class PermissionRepair : public LogFileTest {
 protected:
  PermissionRepair() { makeDirectory(); }

  const std::string errors = directory + "/daemon.err.log";
};

TEST_F(PermissionRepair, repairsTheFolderAndTheThreeFilesInOrder) {
  for (const auto& path : {file, previous, errors}) put(path, "text");
  setMode(directory, 0700);
  setMode(file, 0600);
  setMode(previous, 0666);
  setMode(errors, 0640);

  EXPECT_THAT(LogFile::repairPermissions(),
              ElementsAre(directory + " 700 → 755", "daemon.log 600 → 644", "daemon.log.1 666 → 644",
                          "daemon.err.log 640 → 644"));
  EXPECT_EQ(modeOf(directory), 0755U);
  for (const auto& path : {file, previous, errors}) EXPECT_EQ(modeOf(path), 0644U);
  EXPECT_THAT(LogFile::repairPermissions(), IsEmpty());
}

TEST_F(PermissionRepair, leavesCorrectPermissionsUnchanged) {
  for (const auto& path : {file, previous, errors}) {
    put(path, "text");
    setMode(path, 0644);
  }
  EXPECT_THAT(LogFile::repairPermissions(), IsEmpty());
}

TEST_F(PermissionRepair, leavesOtherFilesAlone) {
  const std::string other = directory + "/daemon.log.2";
  put(other, "text");
  setMode(other, 0600);
  EXPECT_THAT(LogFile::repairPermissions(), IsEmpty());
  EXPECT_EQ(modeOf(other), 0600U);
}

TEST_F(PermissionRepair, checksAllTwelveBits) {
  put(file, "text");
  put(errors, "text");
  setMode(directory, 01755);
  setMode(file, 04644);
  setMode(errors, 0000);
  std::vector<std::string> expected{directory + " 1755 → 755", "daemon.log 4644 → 644"};
  if (::geteuid() == 0) expected.emplace_back("daemon.err.log 0 → 644");  // others cannot even open it
  EXPECT_EQ(LogFile::repairPermissions(), expected);
}

TEST_F(PermissionRepair, followsNoLinkToAFile) {
  put(folder.path("target"), "text");
  setMode(folder.path("target"), 0600);
  for (const auto& path : {file, previous, errors}) makeLink(path, folder.path("target"));
  EXPECT_THAT(LogFile::repairPermissions(), IsEmpty());
  EXPECT_EQ(modeOf(folder.path("target")), 0600U);
}

TEST_F(PermissionRepair, followsNoLinkToTheFolder) {
  const std::string link = folder.path("link");
  makeLink(link, directory);
  setMode(directory, 0700);
  put(file, "text");
  setMode(file, 0600);
  LogFile::reset(link, 100);
  EXPECT_THAT(LogFile::repairPermissions(), IsEmpty());
  EXPECT_EQ(modeOf(directory), 0700U);
  EXPECT_EQ(modeOf(file), 0600U);
}

TEST_F(PermissionRepair, neitherBlocksOnAPipeNorChangesIt) {
  makePipe(file);
  makeFolder(previous);
  setMode(previous, 0700);
  EXPECT_THAT(LogFile::repairPermissions(), IsEmpty());
  EXPECT_EQ(modeOf(file), 0600U);
  EXPECT_EQ(modeOf(previous), 0700U);
}

TEST_F(PermissionRepair, doesNothingWithoutAFolder) {
  LogFile::reset(folder.path("missing"), 100);
  EXPECT_THAT(LogFile::repairPermissions(), IsEmpty());
  EXPECT_FALSE(exists(folder.path("missing")));
  put(folder.path("file"), "text");
  LogFile::reset(folder.path("file"), 100);
  EXPECT_THAT(LogFile::repairPermissions(), IsEmpty());
}

TEST_F(PermissionRepair, skipsWhatItMayNotChange) {
  put(file, "text");
  setMode(file, 0604);
  put(errors, "text");
  setMode(errors, 0600);
  setMode(folder.path(), 0755);
  const auto ended = inChild([] {
    test::becomeNobody();
    for (const auto& repair : LogFile::repairPermissions()) tell(repair + "\n");
  });
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make files of somebody else";
  EXPECT_EQ(ended.output, "");
  EXPECT_EQ(modeOf(file), 0604U);
  EXPECT_EQ(modeOf(errors), 0600U);
}

TEST_F(PermissionRepair, worksWhileTheFileIsOpen) {
  LogFile::append("one\n");
  setMode(file, 0600);
  EXPECT_THAT(LogFile::repairPermissions(), ElementsAre("daemon.log 600 → 644"));
  LogFile::append("two\n");
  EXPECT_EQ(contents(file), "one\ntwo\n");
}

TEST(PermissionRepairOnVolume, namesTheFolderWithoutTheVolume) {
  VirtualMac mac;
  mac.write(logPath, "text");
  setMode(mac.path("/Library/Logs/Brisko"), 0700);
  setMode(mac.path(logPath), 0600);
  EXPECT_THAT(LogFile::repairPermissions(),
              ElementsAre("/Library/Logs/Brisko 700 → 755", "daemon.log 600 → 644"));
}

}  // namespace
}  // namespace brisko::log_test
