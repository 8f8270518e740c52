// The contract of platform/file_watch.h.

#include "platform/file_watch.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/run_loop.h"
#include "support/child.h"
#include "support/contract_machine.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::platform::file_watch_test {
namespace {

using namespace test;

constexpr FileEvents everything = fileWritten | fileExtended | fileAttributes | fileDeleted | fileRenamed;

// As a text: "written extended".
std::string wordsOf(FileEvents events) {
  std::string words;
  const auto add = [&](FileEvent event, const char* word) {
    if ((events & event) != 0) words += (words.empty() ? "" : " ") + std::string(word);
  };
  add(fileWritten, "written");
  add(fileExtended, "extended");
  add(fileAttributes, "attributes");
  add(fileDeleted, "deleted");
  add(fileRenamed, "renamed");
  return words;
}

void append(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::app);
  file << text << std::flush;
  ASSERT_TRUE(file.good());
}

void rename(const std::string& from, const std::string& to) {
  ASSERT_EQ(std::rename(from.c_str(), to.c_str()), 0);
}

void removeFile(const std::string& path) { ASSERT_EQ(::unlink(path.c_str()), 0); }
void removeFolder(const std::string& path) { ASSERT_EQ(::rmdir(path.c_str()), 0); }

// The kernel watches of this process.
constexpr const char* kernelsList = "/proc/self/fdinfo";
long questionsToTheKernel() {
  long count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(kernelsList)) {
    std::ifstream lines(entry.path());
    for (std::string line; std::getline(lines, line);) count += line.starts_with("inotify ") ? 1 : 0;
  }
  return count;
}

class FileWatchContract : public ::testing::Test {
 protected:
  FileWatchContract() { test::put(path, "content"); }

  // Watches the file at `watched` and records each delivered set after `name`.
  WatchToken watch(const std::string& watched, FileEvents wanted = everything, const std::string& name = "") {
    const auto opened = openForEvents(watched);
    EXPECT_TRUE(opened.has_value());
    descriptor = opened.value_or(-1);
    return watchFile(
        descriptor, wanted, [this, name](FileEvents events) { trace.push_back(name + wordsOf(events)); },
        [this, name, file = descriptor] {
          trace.push_back(name + "cancelled");
          closeWatched(file);
        });
  }

  // Runs more iterations of the loop than any of these tests needs; returns what was delivered since the last
  // call.
  std::vector<std::string> delivered() {
    postMain([] { afterIterations(20); });
    runMain();
    return std::exchange(trace, {});
  }

  static void afterIterations(int count) {
    if (count == 0) return stopMain();
    postMain([count] { afterIterations(count - 1); });
  }

  test::ContractMachine mac;
  test::ScratchFolder scratch;
  std::string path = scratch.path("file");
  int descriptor = -1;
  std::vector<std::string> trace;
};

TEST_F(FileWatchContract, isSilentWhileNothingHappens) {
  (void)watch(path);
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, reportsNothingForReads) {
  (void)watch(path);
  EXPECT_EQ(test::contents(path), "content");
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, reportsNothingFromBeforeTheWatch) {
  test::put(path, "changed");
  test::setMode(path, 0600);
  (void)watch(path);
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, reportsAFileWrittenOverInPlace) {
  (void)watch(path);
  test::put(path, "CONTENT");
  EXPECT_THAT(delivered(), ElementsAre("written"));
}

TEST_F(FileWatchContract, reportsTheSameBytesWrittenAgain) {
  (void)watch(path);
  for (int time = 0; time < 3; ++time) {
    test::put(path, "content");
    EXPECT_THAT(delivered(), ElementsAre("written"));
  }
}

TEST_F(FileWatchContract, reportsAFileWrittenLongerOrShorterInPlace) {
  (void)watch(path);
  test::put(path, "longer content");
  EXPECT_THAT(delivered(), ElementsAre("written extended"));
  test::put(path, "short");
  EXPECT_THAT(delivered(), ElementsAre("written"));
  test::put(path, "longer");
  EXPECT_THAT(delivered(), ElementsAre("written extended"));
}

TEST_F(FileWatchContract, reportsAnAppend) {
  (void)watch(path);
  append(path, " and more");
  EXPECT_THAT(delivered(), ElementsAre("written extended"));
}

TEST_F(FileWatchContract, reportsATruncation) {
  (void)watch(path);
  ASSERT_EQ(::truncate(path.c_str(), 2), 0);
  EXPECT_THAT(delivered(), ElementsAre("written"));
}

TEST_F(FileWatchContract, reportsAChangeOfMode) {
  (void)watch(path);
  test::setMode(path, 0640);
  EXPECT_THAT(delivered(), ElementsAre("attributes"));
}

TEST_F(FileWatchContract, reportsARenameAndFollowsTheFileToItsNewName) {
  (void)watch(path);
  rename(path, scratch.path("moved"));
  EXPECT_THAT(delivered(), ElementsAre("renamed"));
  test::put(path, "somebody else's");
  EXPECT_THAT(delivered(), IsEmpty());
  append(scratch.path("moved"), "!");
  EXPECT_THAT(delivered(), ElementsAre("written extended"));
  removeFile(scratch.path("moved"));
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
}

TEST_F(FileWatchContract, reportsTheDeletionWhenAnotherFileTakesTheName) {
  (void)watch(path);
  test::put(scratch.path("new"), "new content");
  EXPECT_THAT(delivered(), IsEmpty());
  rename(scratch.path("new"), path);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
  append(path, "!");
  EXPECT_THAT(delivered(), IsEmpty()) << "that is another file";
}

TEST_F(FileWatchContract, reportsTheDeletionOnce) {
  (void)watch(path);
  removeFile(path);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, reportsTheDeletionOfAFileThatIsGoneBeforeItIsWatched) {
  for (const std::string& watched : {path, scratch.path("folder")}) {
    if (watched != path) test::makeFolder(watched);
    const auto opened = openForEvents(watched);
    ASSERT_TRUE(opened.has_value());
    ASSERT_EQ(std::remove(watched.c_str()), 0);
    (void)watchFile(
        *opened, everything, [this](FileEvents events) { trace.push_back(wordsOf(events)); }, [] {});
    EXPECT_THAT(trace, IsEmpty());
    EXPECT_THAT(delivered(), ElementsAre("deleted"));
    closeWatched(*opened);
  }
}

TEST_F(FileWatchContract, reportsTheDeletionOfAFileThatIsReplacedBeforeItIsWatched) {
  const auto opened = openForEvents(path);
  ASSERT_TRUE(opened.has_value());
  test::put(scratch.path("new"), "new content");
  rename(scratch.path("new"), path);
  (void)watchFile(
      *opened, everything, [this](FileEvents events) { trace.push_back(wordsOf(events)); }, [] {});
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
  append(path, "!");
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, reportsTheDeletionOfAFileThatIsStillOpen) {
  std::ofstream holder(path, std::ios::app);
  (void)watch(path);
  removeFile(path);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
  holder << "more" << std::flush;
  EXPECT_THAT(delivered(), ElementsAre("written extended"));
}

TEST_F(FileWatchContract, doesNotMistakeANewFileForTheDeletedOne) {
  (void)watch(path);
  removeFile(path);
  test::put(path, "new content");
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
  append(path, "!");
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, reportsALinkThatIsCreatedAndRemoved) {
  (void)watch(path);
  ASSERT_EQ(::link(path.c_str(), scratch.path("second").c_str()), 0);
  EXPECT_THAT(delivered(), ElementsAre("attributes"));
  removeFile(scratch.path("second"));
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
  removeFile(path);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
}

// As by an editor that keeps the old file under a second link.
TEST_F(FileWatchContract, reportsADeletionAlsoIfAnotherLinkKeepsTheFile) {
  (void)watch(path);
  ASSERT_EQ(::link(path.c_str(), scratch.path("backup").c_str()), 0);
  test::put(scratch.path("new"), "new content");
  rename(scratch.path("new"), path);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
}

TEST_F(FileWatchContract, deliversOnlyWhatIsWanted) {
  (void)watch(path, fileDeleted | fileRenamed);
  append(path, "!");
  test::setMode(path, 0600);
  EXPECT_THAT(delivered(), IsEmpty());
  append(path, "!");
  removeFile(path);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
}

TEST_F(FileWatchContract, reportsAFolderThatIsRenamedAndFollowsIt) {
  const std::string folder = scratch.path("Brisko.app");
  test::makeFolder(folder);
  test::makeFolder(scratch.path("Trash"));
  (void)watch(folder, fileDeleted | fileRenamed);
  rename(folder, scratch.path("Trash/Brisko.app"));
  EXPECT_THAT(delivered(), ElementsAre("renamed"));
  test::makeFolder(folder);
  removeFolder(folder);
  EXPECT_THAT(delivered(), IsEmpty()) << "that was another folder";
  removeFolder(scratch.path("Trash/Brisko.app"));
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
}

TEST_F(FileWatchContract, reportsAFolderThatIsDeletedWithItsContents) {
  const std::string folder = scratch.path("Brisko.app");
  test::makeFolder(folder);
  test::makeFolder(folder + "/Contents");
  test::put(folder + "/Contents/Info.plist", "<plist/>");
  (void)watch(folder, fileDeleted | fileRenamed);
  removeFile(folder + "/Contents/Info.plist");
  removeFolder(folder + "/Contents");
  EXPECT_THAT(delivered(), IsEmpty());
  removeFolder(folder);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, reportsAFolderThatAnotherOneReplaces) {
  const std::string folder = scratch.path("Brisko.app");
  test::makeFolder(folder);
  test::makeFolder(scratch.path("new.app"));
  (void)watch(folder, fileDeleted | fileRenamed);
  rename(scratch.path("new.app"), folder);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
}

TEST_F(FileWatchContract, ignoresChangesInsideAWatchedFolder) {
  const std::string folder = scratch.path("Brisko.app");
  test::makeFolder(folder);
  test::put(folder + "/inside", "");
  (void)watch(folder, fileAttributes | fileDeleted | fileRenamed);
  test::put(folder + "/inside", "more");
  test::setMode(folder + "/inside", 0600);
  rename(folder + "/inside", folder + "/moved");
  removeFile(folder + "/moved");
  removeFile(path);  // a file beside the watched one
  EXPECT_THAT(delivered(), IsEmpty());
  test::setMode(folder, 0700);
  EXPECT_THAT(delivered(), ElementsAre("attributes"));
}

TEST_F(FileWatchContract, watchesAFolderAndAnotherInsideIt) {
  const std::string folder = scratch.path("Brisko.app");
  test::makeFolder(folder);
  test::makeFolder(folder + "/Contents");
  (void)watch(folder, everything, "outer ");
  const WatchToken inner = watch(folder + "/Contents", everything, "inner ");
  removeFolder(folder + "/Contents");
  EXPECT_THAT(delivered(), ElementsAre("inner deleted"));
  cancelWatch(inner);
  EXPECT_THAT(delivered(), ElementsAre("inner cancelled"));
  removeFolder(folder);
  EXPECT_THAT(delivered(), ElementsAre("outer deleted"));
}

TEST_F(FileWatchContract, deliversTwoWritesOfOneIterationAsOneSet) {
  (void)watch(path);
  postMain([&] {
    append(path, "a");
    append(path, "b");
  });
  EXPECT_THAT(delivered(), ElementsAre("written extended"));
}

TEST_F(FileWatchContract, deliversAllThatHappensInOneIterationAsOneSet) {
  (void)watch(path);
  postMain([&] {
    append(path, "a");
    test::setMode(path, 0600);
    rename(path, scratch.path("moved"));
  });
  EXPECT_THAT(delivered(), ElementsAre("written extended attributes renamed"));
}

TEST_F(FileWatchContract, deliversWhatHappensUntilItsIterationAsOneSet) {
  (void)watch(path);
  append(path, "a");
  postMain([] {});
  postMain([&] { test::setMode(path, 0600); });
  EXPECT_THAT(delivered(), ElementsAre("written extended attributes"));
}

TEST_F(FileWatchContract, deliversInALaterIterationThanTheChange) {
  (void)watch(path);
  postMain([&] {
    append(path, "a");
    trace.emplace_back("end of work");
  });
  EXPECT_THAT(delivered(), ElementsAre("end of work", "written extended"));
}

TEST_F(FileWatchContract, deliversChangesByTheHandlerInASeparateIteration) {
  int left = 3;
  descriptor = *openForEvents(path);
  (void)watchFile(
      descriptor, everything,
      [&](FileEvents events) {
        trace.push_back(wordsOf(events));
        if (--left > 0) append(path, "!");
      },
      [] {});
  append(path, "!");
  EXPECT_THAT(delivered(), ElementsAre("written extended", "written extended", "written extended"));
}

TEST_F(FileWatchContract, deliversToEveryWatchOnAFile) {
  (void)watch(path, everything, "one ");
  const WatchToken two = watch(path, everything, "two ");
  append(path, "!");
  EXPECT_THAT(delivered(), ElementsAre("one written extended", "two written extended"));
  cancelWatch(two);
  EXPECT_THAT(delivered(), ElementsAre("two cancelled"));
  append(path, "!");
  EXPECT_THAT(delivered(), ElementsAre("one written extended"));
}

TEST_F(FileWatchContract, reportsNothingEarlierToASecondWatch) {
  (void)watch(path, everything, "one ");
  append(path, "!");
  (void)watch(path, everything, "two ");
  EXPECT_THAT(delivered(), ElementsAre("one written extended"));
}

// More events than the kernel queues for a process that does not read them, so the deletion of the second
// file is lost.
TEST_F(FileWatchContract, reportsAnOverflowAsAChange) {
  const std::string second = scratch.path("second");
  test::put(second, "content");
  (void)watch(path, fileWritten, "first ");
  (void)watch(second, fileDeleted, "second ");
  for (int time = 0; time < 20'000; ++time) {
    ASSERT_EQ(::truncate(path.c_str(), 2), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
  }
  removeFile(second);
  EXPECT_THAT(delivered(), ElementsAre("first written", "second deleted"));
  test::put(path, "CONTENT");
  EXPECT_THAT(delivered(), ElementsAre("first written"));
}

TEST_F(FileWatchContract, cancelsOnceAndInALaterIteration) {
  const WatchToken token = watch(path);
  postMain([&] {
    cancelWatch(token);
    cancelWatch(token);
    trace.emplace_back("end of work");
  });
  EXPECT_THAT(delivered(), ElementsAre("end of work", "cancelled"));
  append(path, "!");
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, deliversNothingMoreOnceItIsCancelled) {
  const WatchToken token = watch(path);
  append(path, "!");
  cancelWatch(token);
  append(path, "!");
  EXPECT_THAT(delivered(), ElementsAre("cancelled"));
}

TEST_F(FileWatchContract, deliversNothingOfAnIterationInWhichItIsCancelled) {
  WatchToken second = 0;
  descriptor = *openForEvents(path);
  (void)watchFile(
      descriptor, everything,
      [&](FileEvents) {
        trace.emplace_back("first");
        cancelWatch(second);
      },
      [] {});
  second = watch(path, everything, "second ");
  append(path, "!");
  EXPECT_THAT(delivered(), ElementsAre("first", "second cancelled"));
}

TEST_F(FileWatchContract, mayBeCancelledByItsOwnHandler) {
  WatchToken token = 0;
  descriptor = *openForEvents(path);
  const std::string word = "long enough to lie somewhere of its own";
  token = watchFile(
      descriptor, everything,
      [this, &token, word](FileEvents) {
        cancelWatch(token);
        trace.push_back(word);
      },
      [this] {
        closeWatched(descriptor);
        trace.emplace_back("cancelled");
      });
  append(path, "!");
  EXPECT_THAT(delivered(), ElementsAre(word, "cancelled"));
  append(path, "!");
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, mayBeFollowedByTheNextWatchWhenItIsCancelled) {
  const WatchToken token = watch(path, everything, "old ");
  postMain([&] { cancelWatch(token); });
  EXPECT_THAT(delivered(), ElementsAre("old cancelled"));
  (void)watch(path, everything, "new ");
  append(path, "!");
  EXPECT_THAT(delivered(), ElementsAre("new written extended"));
}

TEST_F(FileWatchContract, tokensAreNeverZeroAndUnknownOnesAreIgnored) {
  const WatchToken one = watch(path);
  const WatchToken two = watch(path);
  EXPECT_NE(one, 0U);
  EXPECT_NE(two, 0U);
  EXPECT_NE(one, two);
  cancelWatch(0);
  cancelWatch(two + 1000);
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatchContract, removesItsKernelWatchOnceItIsCancelled) {
  if (!test::exists(kernelsList)) GTEST_SKIP() << "this system does not tell";
  const long before = questionsToTheKernel();
  const std::string folder = scratch.path("folder");
  test::makeFolder(folder);
  const WatchToken first = watch(path);
  const WatchToken second = watch(path);
  const WatchToken third = watch(folder);
  rename(folder, scratch.path("moved"));
  EXPECT_GT(questionsToTheKernel(), before);
  EXPECT_THAT(delivered(), ElementsAre("renamed"));
  for (const WatchToken token : {first, second, third}) cancelWatch(token);
  EXPECT_THAT(delivered(), SizeIs(3));
  EXPECT_EQ(questionsToTheKernel(), before);
}

TEST_F(FileWatchContract, leavesNothingBehind) {
  cancelWatch(watch(path));
  EXPECT_THAT(delivered(), ElementsAre("cancelled"));
  const std::size_t before = test::openDescriptors();
  for (int time = 0; time < 1000; ++time) {
    const WatchToken token = watch(path);
    test::put(scratch.path("new"), "new content");
    rename(scratch.path("new"), path);
    cancelWatch(token);
    ASSERT_THAT(delivered(), ElementsAre("cancelled"));
  }
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(FileWatchContract, opensNothingAtAMissingPath) {
  EXPECT_FALSE(openForEvents(scratch.path("missing")).has_value());
  EXPECT_FALSE(openForEvents(path + "/inside a file").has_value());
  EXPECT_FALSE(openForEvents("").has_value());
  test::makeLink(scratch.path("link"), scratch.path("missing"));
  EXPECT_FALSE(openForEvents(scratch.path("link")).has_value());
}

TEST_F(FileWatchContract, watchesAFileWhoseNameEndsLikeTheMarkOfADeletedOne) {
  const std::string marked = path + " (deleted)";
  rename(path, marked);
  (void)watch(marked);
  EXPECT_THAT(delivered(), IsEmpty());
  append(marked, "!");
  EXPECT_THAT(delivered(), ElementsAre("written extended"));
  rename(marked, scratch.path("moved (deleted)"));
  EXPECT_THAT(delivered(), ElementsAre("renamed"));
  removeFile(scratch.path("moved (deleted)"));
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
}

// Such as a removed file that a process still has open.
TEST_F(FileWatchContract, doesNotOpenAFileWithoutAName) {
  if (!test::exists("/proc/self/fd")) GTEST_SKIP() << "this system has no such paths";
  const std::string folder = scratch.path("folder");
  test::makeFolder(folder);
  for (const std::string& removed : {path, folder}) {
    const int holder = ::open(removed.c_str(), O_RDONLY | O_CLOEXEC);
    const std::string link = removed + " by number";
    test::makeLink(link, "/proc/self/fd/" + std::to_string(holder));
    const auto opened = openForEvents(link);
    ASSERT_TRUE(opened.has_value()) << "it still has its name";
    closeWatched(*opened);
    ASSERT_EQ(std::remove(removed.c_str()), 0);
    const std::size_t before = test::openDescriptors();
    EXPECT_FALSE(openForEvents(link).has_value()) << link;
    EXPECT_EQ(test::openDescriptors(), before);
    ::close(holder);
  }
}

TEST_F(FileWatchContract, doesNotOpenAFileWithoutPermission) {
  test::setMode(path, 0200);
  ASSERT_EQ(::chmod(scratch.path().c_str(), 0755), 0);
  const test::Ended ended = test::inChild([&] {
    test::becomeNobody();
    test::tell(openForEvents(path) ? "opened" : "not opened");
  });
  EXPECT_EQ(ended.output, "not opened");
}

TEST_F(FileWatchContract, followsALinkToItsTarget) {
  test::makeLink(scratch.path("link"), path);
  (void)watch(scratch.path("link"));
  append(path, "!");
  EXPECT_THAT(delivered(), ElementsAre("written extended"));
  removeFile(scratch.path("link"));
  EXPECT_THAT(delivered(), IsEmpty());
  removeFile(path);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
}

TEST_F(FileWatchContract, opensAPipeWithoutBlocking) {
  const std::string pipe = scratch.path("pipe");
  test::makePipe(pipe);
  (void)watch(pipe);
  test::setMode(pipe, 0644);
  EXPECT_THAT(delivered(), ElementsAre("attributes"));
  removeFile(pipe);
  EXPECT_THAT(delivered(), ElementsAre("deleted"));
}

}  // namespace
}  // namespace brisko::platform::file_watch_test
