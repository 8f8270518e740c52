// How the invariants learn what happened to the daemon's files: the same on every kernel.

#include "sim/invariants/watched_folders.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::lab::watched_folders_test {
namespace {

using namespace test;

const std::string support = dataFolders[0];
const std::string logs = dataFolders[1];

enum class Kind { written, overwritten, attributes, removed };

Kind kindOf(const FileChange& change) {
  if (change.removed) return Kind::removed;
  if (change.overwritten) return Kind::overwritten;
  return change.attributes ? Kind::attributes : Kind::written;
}

class FoldersOfTheDaemon : public ::testing::Test {
 protected:
  FoldersOfTheDaemon() {
    std::filesystem::create_directories(on(support));
    std::filesystem::create_directories(on(logs));
    put(on(support + "/old.json"), "{}");
    put(on(logs + "/daemon.log"), "a line\n");
    folders.begin();
    // Earlier changes may be reported once more.
    static_cast<void>(folders.changes());
  }

  [[nodiscard]] std::string on(const std::string& path) const { return volume.path() + path; }

  // The last change that is reported of each path. A file that is new stays new when it is filled.
  [[nodiscard]] std::vector<std::pair<std::string, Kind>> changes() {
    std::vector<std::pair<std::string, Kind>> told;
    for (const FileChange& change : folders.changes()) {
      const auto same = std::find_if(told.begin(), told.end(),
                                     [&change](const auto& each) { return each.first == change.path; });
      if (same == told.end()) {
        told.emplace_back(change.path, kindOf(change));
      } else if (same->second != Kind::written || change.removed) {
        same->second = kindOf(change);
      }
    }
    return told;
  }

  // The clock of a file system advances in steps of some milliseconds.
  static void awaitLaterThan(const std::string& path) {
    const test::ScratchFolder elsewhere;
    do {
      put(elsewhere.path("file"), "");
    } while (std::filesystem::last_write_time(elsewhere.path("file")) ==
             std::filesystem::last_write_time(path));
  }

  test::ScratchFolder volume;
  WatchedFolders folders{volume.path()};
};

TEST_F(FoldersOfTheDaemon, areUnchangedAtFirst) { EXPECT_THAT(changes(), IsEmpty()); }

TEST_F(FoldersOfTheDaemon, tellOfANewFileOnce) {
  put(on(support + "/status.json"), "{}");
  EXPECT_THAT(changes(), Contains(Pair(support + "/status.json", Kind::written)));
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(FoldersOfTheDaemon, tellOfBothFolders) {
  put(on(logs + "/daemon.err.log"), "");
  put(on(support + "/status.json"), "{}");
  EXPECT_THAT(changes(), IsSupersetOf({Pair(std::string(logs + "/daemon.err.log"), Kind::written),
                                       Pair(std::string(support + "/status.json"), Kind::written)}));
}

TEST_F(FoldersOfTheDaemon, tellWhatANewFolderContains) {
  std::filesystem::create_directories(on(support + "/history"));
  put(on(support + "/history/2026-06-13.jsonl"), "{}\n");
  EXPECT_THAT(changes(),
              IsSupersetOf({Pair(std::string(support + "/history"), Kind::written),
                            Pair(std::string(support + "/history/2026-06-13.jsonl"), Kind::written)}));
  put(on(support + "/history/2026-06-14.jsonl"), "{}\n");
  EXPECT_THAT(changes(), Contains(Pair(support + "/history/2026-06-14.jsonl", Kind::written)));
}

TEST_F(FoldersOfTheDaemon, tellOfALongerFile) {
  std::FILE* const file = std::fopen(on(logs + "/daemon.log").c_str(), "a");
  ASSERT_NE(file, nullptr);
  std::fputs("another line\n", file);
  std::fclose(file);
  EXPECT_THAT(changes(), ElementsAre(Pair(logs + "/daemon.log", Kind::overwritten)));
}

TEST_F(FoldersOfTheDaemon, tellOfAReplacedFile) {
  put(on(support + "/new.json"), "{\"limit\":70}");
  std::filesystem::rename(on(support + "/new.json"), on(support + "/old.json"));
  EXPECT_THAT(changes(), Contains(Pair(support + "/old.json", Kind::written)));
}

TEST_F(FoldersOfTheDaemon, tellOfAnotherMode) {
  awaitLaterThan(on(support + "/old.json"));
  setMode(on(support + "/old.json"), 0600);
  EXPECT_THAT(changes(), ElementsAre(Pair(support + "/old.json", Kind::attributes)));
}

TEST_F(FoldersOfTheDaemon, tellOfARemovedFile) {
  std::filesystem::remove(on(support + "/old.json"));
  EXPECT_THAT(changes(), ElementsAre(Pair(support + "/old.json", Kind::removed)));
}

TEST_F(FoldersOfTheDaemon, tellOfOneThatComesBack) {
  std::filesystem::remove_all(on(logs));
  EXPECT_THAT(changes(), Contains(Pair(logs + "/daemon.log", Kind::removed)));
  std::filesystem::create_directories(on(logs));
  put(on(logs + "/daemon.log"), "a line\n");
  EXPECT_THAT(changes(), Contains(Pair(logs + "/daemon.log", Kind::written)));
}

TEST_F(FoldersOfTheDaemon, doNotFollowLinks) {
  const test::ScratchFolder elsewhere;
  makeLink(on(support + "/link"), elsewhere.path());
  EXPECT_THAT(changes(), ElementsAre(Pair(support + "/link", Kind::written)));
  put(elsewhere.path("file"), "bytes");
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(FoldersOfTheDaemon, forgetWhatWasBeforeTheBeginning) {
  put(on(support + "/status.json"), "{}");
  WatchedFolders others(volume.path());
  others.begin();
  EXPECT_THAT(others.changes(), IsEmpty());
}

}  // namespace
}  // namespace brisko::lab::watched_folders_test
