#include "base/files.h"

#include <array>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "support/child.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::files_test {
namespace {

using namespace test;

bool isOpen(int number) { return ::fcntl(number, F_GETFD) >= 0; }

TEST(DescriptorTest, isClosedByItsDestructor) {
  int number = -1;
  {
    const Descriptor owner(::open("/dev/null", O_RDONLY));
    number = owner.number();
    ASSERT_TRUE(isOpen(number));
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(DescriptorTest, staysOpenWhenItIsMoved) {
  Descriptor first(::open("/dev/null", O_RDONLY));
  const int number = first.number();
  Descriptor second(std::move(first));
  EXPECT_TRUE(isOpen(number));

  Descriptor third(::open("/dev/null", O_RDONLY));
  const int replaced = third.number();
  third = std::move(second);
  EXPECT_EQ(third.number(), number);
  EXPECT_TRUE(isOpen(number));
  EXPECT_FALSE(isOpen(replaced));
}

TEST(DescriptorTest, isEmptyOnceClosed) {
  Descriptor owner(::open("/dev/null", O_RDONLY));
  const int number = owner.number();
  owner.close();
  EXPECT_FALSE(owner);
  EXPECT_FALSE(isOpen(number));
}

TEST(RegularFileOpening, refusesEverythingElseWithoutBlocking) {
  const ScratchFolder folder;
  test::makePipe(folder.path("pipe"));
  test::makeFolder(folder.path("folder"));
  for (const auto& path : {folder.path("pipe"), folder.path("folder"), folder.path("missing"),
                           std::string("/dev/zero"), std::string("/dev/full"), std::string()}) {
    EXPECT_FALSE(openRegularFile(path, O_RDONLY)) << path;
    EXPECT_FALSE(openRegularFile(path, O_WRONLY)) << path;
  }
}

TEST(RegularFileOpening, refusesAPipeThatSomebodyReads) {
  const ScratchFolder folder;
  test::makePipe(folder.path("pipe"));
  const Descriptor reader(::open(folder.path("pipe").c_str(), O_RDONLY | O_NONBLOCK));
  EXPECT_FALSE(openRegularFile(folder.path("pipe"), O_WRONLY));
}

TEST(RegularFileOpening, followsALinkToOne) {
  const ScratchFolder folder;
  put(folder.path("target"), "text");
  test::makeLink(folder.path("link"), folder.path("target"));
  EXPECT_TRUE(openRegularFile(folder.path("link"), O_RDONLY));
}

TEST(RegularFileOpening, isNotInheritedByChildren) {
  const ScratchFolder folder;
  put(folder.path("file"), "text");
  const Descriptor file = openRegularFile(folder.path("file"), O_RDONLY);
  EXPECT_EQ(::fcntl(file.number(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(AppendingOpening, createsAFileWithItsModeWhateverTheUmask) {
  const ScratchFolder folder;
  for (const mode_t umask : {mode_t{0000}, mode_t{0022}, mode_t{0077}, mode_t{0777}}) {
    ::umask(umask);
    const std::string path = folder.path("made-" + std::to_string(umask));
    ASSERT_TRUE(openForAppending(path));
    EXPECT_EQ(modeOf(path), 0644U) << "umask " << umask;
  }
}

TEST(AppendingOpening, keepsTheModeAndTheBytesOfAnExistingFile) {
  const ScratchFolder folder;
  const std::string path = folder.path("file");
  put(path, "before,");
  test::setMode(path, 0600);
  const ino_t inode = inodeOf(path);

  const Descriptor file = openForAppending(path);
  ASSERT_TRUE(writeAll(file.number(), "after"));

  EXPECT_EQ(contents(path), "before,after");
  EXPECT_EQ(modeOf(path), 0600U);
  EXPECT_EQ(inodeOf(path), inode);
}

TEST(AppendingOpening, writesAtTheCurrentEndOfTheFile) {
  const ScratchFolder folder;
  const std::string path = folder.path("file");
  const Descriptor file = openForAppending(path);
  ASSERT_TRUE(writeAll(file.number(), "one,"));
  put(path, "somebody else,");
  ASSERT_TRUE(writeAll(file.number(), "two"));
  EXPECT_EQ(contents(path), "somebody else,two");
}

TEST(AppendingOpening, followsALinkToAFileButNotADanglingOne) {
  const ScratchFolder folder;
  put(folder.path("target"), "text");
  test::makeLink(folder.path("good"), folder.path("target"));
  test::makeLink(folder.path("dangling"), folder.path("nothing"));
  EXPECT_TRUE(openForAppending(folder.path("good")));
  EXPECT_FALSE(openForAppending(folder.path("dangling")));
  EXPECT_FALSE(test::exists(folder.path("nothing")));
}

TEST(WriteAll, reportsAnIncompleteWrite) {
  const ScratchFolder folder;
  const std::string path = folder.path("file");
  const auto ended = inChild([&path] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit tenBytes{10, 10};
    ::setrlimit(RLIMIT_FSIZE, &tenBytes);
    const Descriptor file = openForAppending(path);
    // Reported by the exit status, because output is truncated at ten bytes too.
    ::_exit(writeAll(file.number(), "0123456789abcdef") ? 1 : 2);
  });
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(contents(path), "0123456789");
}

TEST(WriteAll, failsOnAFullDevice) {
  const Descriptor device(::open("/dev/full", O_WRONLY));
  if (!device) GTEST_SKIP() << "this system has no /dev/full";
  EXPECT_FALSE(writeAll(device.number(), "text"));
  EXPECT_TRUE(writeAll(device.number(), ""));
}

std::array<int, 2> gPipe{};
std::size_t gTaken = 0;

void takeFromPipe() {
  std::array<char, 4096> bytes{};
  for (ssize_t size = 0; (size = ::read(gPipe[0], bytes.data(), bytes.size())) > 0;) {
    gTaken += static_cast<std::size_t>(size);
  }
}

// Makes room only now and then, so that some writes return without having written anything.
void takeFromPipeNowAndThen(int) {
  static int calls = 0;
  if (++calls % 4 == 0) takeFromPipe();
}

TEST(WriteAll, continuesAfterAnInterruptingSignal) {
  ASSERT_EQ(::pipe(gPipe.data()), 0);
  ASSERT_EQ(::fcntl(gPipe[0], F_SETFL, O_NONBLOCK), 0);
  struct sigaction action {};
  action.sa_handler = takeFromPipeNowAndThen;  // without SA_RESTART, so the write returns early
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval often{{0, 1000}, {0, 1000}};
  ::setitimer(ITIMER_REAL, &often, nullptr);

  constexpr std::size_t size = 1U << 20U;  // more than a pipe holds
  EXPECT_TRUE(writeAll(gPipe[1], std::string(size, 'x')));

  const itimerval never{};
  ::setitimer(ITIMER_REAL, &never, nullptr);
  takeFromPipe();
  EXPECT_EQ(gTaken, size);
}

}  // namespace
}  // namespace brisko::files_test
