// Calls for files that fail or are interrupted although the file is all right.
#include "base/file_calls.h"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"
#include "base/log.h"
#include "base/plain_files.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::file_calls_test {
namespace {

// So many calls fail, after so many that the system answers.
struct Refusal {
  int error = 0;
  int after = 0;
  int times = 1;
};
Refusal gOpens;
Refusal gStatuses;
Refusal gReads;
Refusal gSeeks;

bool isRefused(Refusal& refusal) {
  if (refusal.error == 0 || refusal.after-- > 0 || refusal.times-- <= 0) return false;
  errno = refusal.error;
  return true;
}

}  // namespace
}  // namespace brisko::file_calls_test

// In place of the weak functions in base/file_calls.cpp.
namespace brisko::file_calls {

int open(const char* path, int flags, mode_t mode) {
  return isRefused(file_calls_test::gOpens) ? -1 : ::open(path, flags, mode);
}
int status(int file, struct stat& status) {
  return isRefused(file_calls_test::gStatuses) ? -1 : ::fstat(file, &status);
}
ssize_t read(int file, void* bytes, std::size_t size) {
  return isRefused(file_calls_test::gReads) ? -1 : ::read(file, bytes, size);
}
off_t seek(int file, off_t offset, int from) {
  return isRefused(file_calls_test::gSeeks) ? -1 : ::lseek(file, offset, from);
}

}  // namespace brisko::file_calls

namespace brisko::file_calls_test {
namespace {

using namespace test;

class FileCalls : public testing::Test {
 protected:
  FileCalls() { put(path, "content"); }

  ScratchFolder folder;
  const std::string path = folder.path("file");
};

TEST_F(FileCalls, openNoFileWhoseKindIsUnknown) {
  gStatuses = {.error = EIO};
  EXPECT_FALSE(plain::openRegularFile(path, O_RDONLY, 0));
  EXPECT_TRUE(plain::openRegularFile(path, O_RDONLY, 0));
}

TEST_F(FileCalls, readNoFileWhoseSizeIsUnknown) {
  gStatuses = {.error = EIO, .after = 1};
  EXPECT_EQ(plain::readWholeFile(path), std::nullopt);
  EXPECT_EQ(plain::readWholeFile(path), "content");
}

TEST_F(FileCalls, readAFileToItsEndDespiteInterruptingSignals) {
  gReads = {.error = EINTR, .times = 3};
  EXPECT_EQ(plain::readWholeFile(path), "content");
  gReads = {.error = EIO};
  EXPECT_EQ(plain::readWholeFile(path), std::nullopt);
}

class LogFileCalls : public testing::Test {
 protected:
  LogFileCalls() { LogFile::reset(folder.path(), 10); }

  ScratchFolder folder;
  const std::string file = folder.path("daemon.log");
  const std::string previous = folder.path("daemon.log.1");
};

TEST_F(LogFileCalls, countAnInheritedFileOfUnknownSizeAsEmpty) {
  put(file, "inherited\n");
  gSeeks = {.error = EIO};
  LogFile::append("one\n");
  EXPECT_EQ(contents(file), "inherited\none\n");
  LogFile::append("another\n");
  EXPECT_EQ(contents(previous), "inherited\none\n");
  EXPECT_EQ(contents(file), "another\n");
}

TEST_F(LogFileCalls, loseALineIfTheNextFileCannotBeOpened) {
  LogFile::append("the first\n");
  gOpens = {.error = EACCES, .times = 2};  // to make it, and if it were there
  LogFile::append("lost\n");
  EXPECT_FALSE(exists(file));
  LogFile::append("the next\n");
  EXPECT_EQ(contents(previous), "the first\n");
  EXPECT_EQ(contents(file), "the next\n");
}

TEST_F(LogFileCalls, repairNoPermissionsThatAreUnknown) {
  put(file, "");
  setMode(folder.path(), 0700);
  setMode(file, 0600);
  gStatuses = {.error = EIO};
  EXPECT_THAT(LogFile::repairPermissions(), ElementsAre("daemon.log 600 → 644"));
  EXPECT_EQ(modeOf(folder.path()), 0700U);
}

}  // namespace
}  // namespace brisko::file_calls_test
