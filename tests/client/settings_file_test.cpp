#include "client/settings_file.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/files.h"
#include "support/scratch_folder.h"

namespace brisko::client::settings_file_test {
namespace {

using test::contents;
using test::put;
using ::testing::HasSubstr;

class SettingsFileChange : public ::testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return folder_.path() + "/config.json"; }
  [[nodiscard]] FileChange change(const Json& keys, bool force = false) const {
    Settings defaults;
    defaults.limit = 85;
    return changeSettingsFile(path(), keys, defaults, force);
  }
  [[nodiscard]] Json read() const { return Json::parse(contents(path())); }

 private:
  test::ScratchFolder folder_;
};

TEST_F(SettingsFileChange, keepsTheOtherSettingsAndWritesAllKeys) {
  put(path(), R"({"hysteresis":7,"limit":70.9,"calibrate":true,"unknown":1})");
  ASSERT_TRUE(change({{"led", false}}).done);
  EXPECT_EQ(read().size(), 16U);
  EXPECT_EQ(read()["hysteresis"], 7);
  EXPECT_EQ(read()["limit"], 70);
  EXPECT_EQ(read()["calibrate"], true);
  EXPECT_EQ(read()["led"], false);
  EXPECT_EQ(test::modeOf(path()), 0644U);
}

TEST_F(SettingsFileChange, startsFromTheDefaultsWithoutAFile) {
  ASSERT_TRUE(change({{"led", false}}).done);
  EXPECT_EQ(read()["limit"], 85);
}

TEST_F(SettingsFileChange, refusesAnUnreadableFileUnlessForced) {
  put(path(), "{\"limit\":80,\n  x");
  const FileChange refused = change({{"led", false}});
  EXPECT_FALSE(refused.done);
  EXPECT_EQ(refused.status, ExitStatus::notDone);
  EXPECT_THAT(refused.reason, HasSubstr("line 2, column 3"));
  EXPECT_EQ(contents(path()), "{\"limit\":80,\n  x");
  ASSERT_TRUE(change({{"led", false}}, true).done);
  EXPECT_EQ(read()["limit"], 85);
}

TEST_F(SettingsFileChange, leavesNoTemporaryFileBehind) {
  put(path(), "{}");
  ASSERT_TRUE(change({{"led", false}}).done);
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(path().substr(0, path().rfind('/')))) {
    EXPECT_EQ(entry.path().string(), path());
    ++files;
  }
  EXPECT_EQ(files, 1U);
}

// The daemon opened the file before it was replaced, and clears the request in the old one afterwards.
TEST_F(SettingsFileChange, clearsARequestThatTheDaemonServedInTheReplacedFile) {
  put(path(), R"({"topUp":true,"calibrate":true})");
  std::fstream daemon(path(), std::ios::in | std::ios::out);
  FileChange changed = change({{"led", false}});
  ASSERT_TRUE(changed.done);
  EXPECT_EQ(read()["topUp"], true);
  daemon << R"({"topUp":false,"calibrate":true})" << std::flush;
  std::filesystem::resize_file("/proc/self/fd/" + std::to_string(changed.replaced.number()), 32);
  EXPECT_TRUE(clearServedRequests(path(), {{"led", false}}, changed));
  EXPECT_EQ(read()["topUp"], false);
  EXPECT_EQ(read()["calibrate"], true);
  EXPECT_EQ(read()["led"], false);
}

TEST_F(SettingsFileChange, keepsARequestThatWasMadeJustNow) {
  put(path(), R"({"topUp":true})");
  std::fstream daemon(path(), std::ios::in | std::ios::out);
  FileChange changed = change({{"topUp", true}});
  daemon << R"({"led":false })" << std::flush;
  EXPECT_TRUE(clearServedRequests(path(), {{"topUp", true}}, changed));
  EXPECT_EQ(read()["topUp"], true);
}

// A daemon that clears a request in place, as fast as it can, while keys are changed. Whichever comes first,
// no request survives that the daemon has served.
TEST_F(SettingsFileChange, neverBringsAServedRequestBack) {
  constexpr int rounds = 300;
  for (int round = 0; round < rounds; ++round) {
    put(path(), R"({"limit":80,"topUp":true})");
    std::atomic<bool> begin{false};
    std::thread daemon([&] {
      while (!begin) continue;
      for (int turn = 0; turn < round; ++turn) std::this_thread::yield();
      const Settings settings = parseConfig(*parseJson(contents(path())));
      Settings cleared = settings;
      cleared.topUp = false;
      writeJsonFile(path(), configObject(cleared));
    });
    begin = true;
    FileChange changed = change({{"limit", 70}});
    daemon.join();
    ASSERT_TRUE(changed.done) << changed.reason;
    EXPECT_TRUE(clearServedRequests(path(), {{"limit", 70}}, changed));
    EXPECT_EQ(read()["topUp"], false) << round;
    // If the daemon wrote the new file, with the settings of the old one, the change is lost as a whole,
    // which the confirmation notices.
    EXPECT_TRUE(read()["limit"] == 70 || read()["limit"] == 80) << contents(path());
  }
}

}  // namespace
}  // namespace brisko::client::settings_file_test
