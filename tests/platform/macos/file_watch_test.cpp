// Answers of a Mac's kernel about a file's name that no kernel here gives.

#include "platform/file_watch.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

#include "fakes/system.h"
#include "platform/run_loop.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::platform::file_watch_test {
namespace {

using namespace test;

void afterIterations(int count) {
  if (count == 0) return stopMain();
  postMain([count] { afterIterations(count - 1); });
}

class MacFileWatch : public ::testing::Test {
 protected:
  MacFileWatch() { test::put(path, "content"); }
  ~MacFileWatch() override { fakes::gGetPathError = 0; }

  // The events of a new watch on the unchanged file.
  std::vector<FileEvents> eventsOfANewWatch(int descriptor) {
    std::vector<FileEvents> events;
    const WatchToken token = watchFile(
        descriptor, fileDeleted, [&](FileEvents set) { events.push_back(set); },
        [descriptor] { closeWatched(descriptor); });
    postMain([] { afterIterations(20); });
    runMain();
    cancelWatch(token);
    postMain([] { afterIterations(20); });
    runMain();
    return events;
  }

  test::VirtualMac mac;
  test::ScratchFolder scratch;
  std::string path = scratch.path("file");
};

TEST_F(MacFileWatch, reportsNoDeletionIfThePathIsUnknown) {
  for (const int error : {EPERM, EACCES, EINVAL, ENOSPC, ENAMETOOLONG, EBADF}) {
    fakes::gGetPathError = error;
    const auto opened = openForEvents(path);
    ASSERT_TRUE(opened.has_value()) << error;
    EXPECT_THAT(eventsOfANewWatch(*opened), IsEmpty()) << error;
  }
}

TEST_F(MacFileWatch, reportsTheDeletionOfAFileWithoutAPath) {
  const auto opened = openForEvents(path);
  ASSERT_TRUE(opened.has_value());
  fakes::gGetPathError = ENOENT;
  EXPECT_THAT(eventsOfANewWatch(*opened), ElementsAre(fileDeleted));
}

TEST_F(MacFileWatch, reportsTheDeletionOfAFileWithoutALinkWhateverItsPath) {
  const auto opened = openForEvents(path);
  ASSERT_TRUE(opened.has_value());
  ASSERT_EQ(::unlink(path.c_str()), 0);
  fakes::gGetPathError = EPERM;
  EXPECT_THAT(eventsOfANewWatch(*opened), ElementsAre(fileDeleted));
}

TEST_F(MacFileWatch, doesNotOpenAFileWithoutAPath) {
  fakes::gGetPathError = ENOENT;
  const std::size_t before = test::openDescriptors();
  EXPECT_FALSE(openForEvents(path).has_value());
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(MacFileWatch, opensTheFileThatTakesTheNameWhileItIsOpened) {
  test::put(scratch.path("new"), "new content");
  fakes::gAfterOpen = [this] { ASSERT_EQ(std::rename(scratch.path("new").c_str(), path.c_str()), 0); };
  const auto opened = openForEvents(path);
  ASSERT_TRUE(opened.has_value());
  EXPECT_THAT(eventsOfANewWatch(*opened), IsEmpty());
}

TEST_F(MacFileWatch, reportsNoDeletionAfterItWasCancelled) {
  const auto opened = openForEvents(path);
  ASSERT_TRUE(opened.has_value());
  fakes::gGetPathError = ENOENT;
  std::vector<FileEvents> events;
  cancelWatch(watchFile(
      *opened, fileDeleted, [&](FileEvents set) { events.push_back(set); },
      [descriptor = *opened] { closeWatched(descriptor); }));
  postMain([] { afterIterations(20); });
  runMain();
  EXPECT_THAT(events, IsEmpty());
}

// Each file stays open until the next but one is opened, so that no two in succession have the same number.
TEST_F(MacFileWatch, givesUpOnANameThatIsTakenAThousandTimes) {
  int taken = 0;
  std::array<std::ifstream, 2> kept;
  const std::function<void()> takeTheName = [&] {
    kept[static_cast<std::size_t>(taken) % kept.size()] = std::ifstream(path);
    taken += 1;
    test::put(scratch.path("new"), "");
    ASSERT_EQ(std::rename(scratch.path("new").c_str(), path.c_str()), 0);
    fakes::gAfterOpen = takeTheName;
  };
  fakes::gAfterOpen = takeTheName;
  EXPECT_EQ(openForEvents(path), std::nullopt);
  EXPECT_EQ(taken, 1000);
}

}  // namespace
}  // namespace brisko::platform::file_watch_test
