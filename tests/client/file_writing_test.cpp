#include "client/file_writing.h"

#include <cstdlib>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/files.h"
#include "support/scratch_folder.h"

namespace brisko::client::file_writing_test {
namespace {

using ::testing::HasSubstr;

class Drawings : public ::testing::Test {
 protected:
  [[nodiscard]] bool write(const std::string& to, const std::string& text = "<!-- mark --> new") {
    return writeDrawing(to, text, "mark", reason);
  }
  // What must still be the only things in the folder.
  [[nodiscard]] std::size_t files() const {
    const std::filesystem::directory_iterator all(folder.path());
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }
  test::ScratchFolder folder;
  const std::string path = folder.path("page.html");
  std::string reason;
};

TEST_F(Drawings, areWrittenWithTheModeOfOrdinaryFiles) {
  ::umask(027);
  EXPECT_TRUE(write(path)) << reason;
  EXPECT_EQ(test::contents(path), "<!-- mark --> new");
  EXPECT_EQ(test::modeOf(path), 0640U);
  EXPECT_EQ(files(), 1U);
}

TEST_F(Drawings, replaceAnEarlierOne) {
  test::put(path, "<!-- mark --> old");
  EXPECT_TRUE(write(path)) << reason;
  EXPECT_EQ(test::contents(path), "<!-- mark --> new");
  test::put(path, "");
  EXPECT_TRUE(write(path)) << reason;
}

TEST_F(Drawings, replaceNothingElse) {
  const std::string late = std::string(512, ' ') + "mark";
  for (const std::string& other : {std::string("my notes"), late}) {
    test::put(path, other);
    EXPECT_FALSE(write(path));
    EXPECT_THAT(reason, HasSubstr("another file is there"));
    EXPECT_EQ(test::contents(path), other);
  }
  EXPECT_EQ(files(), 1U);
}

TEST_F(Drawings, replaceNoLinkFolderOrPipe) {
  test::put(folder.path("target"), "<!-- mark -->");
  test::makeLink(folder.path("link"), folder.path("target"));
  test::makeFolder(folder.path("sub"));
  test::makePipe(folder.path("pipe"));
  EXPECT_FALSE(write(folder.path("link")));
  EXPECT_EQ(reason, "it is a link");
  EXPECT_FALSE(write(folder.path("sub")));
  EXPECT_EQ(reason, "it is a folder");
  EXPECT_FALSE(write(folder.path("pipe")));
  EXPECT_EQ(reason, "it is not a regular file");
  EXPECT_FALSE(write("/dev/null"));
  EXPECT_FALSE(write(""));
  EXPECT_EQ(test::contents(folder.path("target")), "<!-- mark -->");
  EXPECT_EQ(files(), 4U);
}

TEST_F(Drawings, leaveEverythingAsItWasWhenTheyFail) {
  EXPECT_FALSE(write(folder.path("nowhere/page.html")));
  EXPECT_EQ(reason, "No such file or directory");
  EXPECT_EQ(files(), 0U);
}

TEST_F(Drawings, mayBePrivate) {
  ::setenv("TMPDIR", folder.path().c_str(), 1);
  const std::string first = writePrivateFile("page.html", "one", reason);
  const std::string second = writePrivateFile("page.html", "two", reason);
  ASSERT_THAT(first, ::testing::StartsWith(folder.path() + "/brisko."));
  EXPECT_NE(first, second);
  EXPECT_EQ(test::contents(first), "one");
  EXPECT_EQ(test::modeOf(first), 0600U);
  EXPECT_EQ(test::modeOf(first.substr(0, first.rfind('/'))), 0700U);
  ::setenv("TMPDIR", folder.path("nowhere").c_str(), 1);
  EXPECT_EQ(writePrivateFile("page.html", "three", reason), "");
  EXPECT_THAT(reason, HasSubstr("No such file or directory"));
}

}  // namespace
}  // namespace brisko::client::file_writing_test
