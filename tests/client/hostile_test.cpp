// What brisko does with files, folders, programs, limits and arguments that somebody else has prepared for
// it.
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/paths.h"
#include "client/file_writing.h"
#include "client/live_brisko.h"
#include "client/output.h"
#include "client/state_reader.h"
#include "support/child.h"
#include "support/testing.h"

namespace brisko::hostile_test {
namespace {

using namespace test;
using nlohmann::json;

constexpr const char* dataFolder = "/Library/Application Support/Brisko";

// A volume whose files were written by somebody who wants to command the reader's terminal.
struct HostileVolume {
  HostileVolume() {
    std::filesystem::create_directories(volume.path() + historyDir);
    std::filesystem::create_directories(volume.path() + "/Library/Logs/Brisko");
    const std::string command =
        "\x1b]0;title\x07\x1b[2J\xC2\x9B"
        "31m\x7f";
    const json status{{"state", "hold"},    {"pct", 80},
                      {"ts", 1772352000},   {"chargeMode", "CHTE" + command},
                      {"plugged", true},    {"daemonVersion", "1.0" + command},
                      {"startedAt", 1},     {"daemonPath", "/" + command},
                      {"guards", {command}}};
    put(volume.path() + statusPath, status.dump());
    put(volume.path() + defaultConfigPath, "{\"limit\":80,\"" + command);
    put(volume.path() + "/Library/Logs/Brisko/daemon.log", "2026-03-01T08:00:00Z  app missing at " + command +
                                                               " — handing the charge back\n" +
                                                               "2026-03-01T08:00:01Z  \x9b"
                                                               "2J " +
                                                               command + "\n");
    put(volume.path() + "/Library/Logs/Brisko/daemon.err.log", "⛔️ " + command + "\n");
    put(volume.path() + historyDir + "/2026-03-01.jsonl", command + "\n");
  }
  ScratchFolder volume;
};

bool isControl(char letter) {
  const auto byte = static_cast<unsigned char>(letter);
  return (byte < 0x20 && letter != '\n') || byte == 0x7f;
}

TEST(HostileTexts, commandNoTerminal) {
  const HostileVolume hostile;
  for (const Words& words :
       {Words{"status"}, Words{"why"}, Words{"doctor"}, Words{"log", "--since", "9999d"}, Words{"get"},
        Words{"history", "--from", "2026-03-01"}, Words{"limit", "70"},
        Words{"report", "--output", "\x1b[2J"}, Words{"\x1b[2J"}, Words{"log", "\x9b"}}) {
    Words all = words;
    all.insert(all.end(), {"--volume", hostile.volume.path()});
    const Finished finished = run("brisko", all, {{"LC_ALL", "C.UTF-8"}});
    const std::string text = finished.output + finished.errors;
    EXPECT_NE(text, "") << words.front();
    for (const char letter : text) EXPECT_FALSE(isControl(letter)) << words.front() << ": " << text;
    EXPECT_EQ(text.find("\xC2\x9B"), std::string::npos) << words.front();
    EXPECT_EQ(finished.endSignal, std::nullopt) << words.front();
  }
}

// A file gets the bytes as they are, a terminal does not.
TEST(HostileTexts, areGivenToFilesOnlyWhenAskedForAsTheyAre) {
  const HostileVolume hostile;
  const Finished finished =
      run("brisko", {"log", "--raw", "--since", "9999d", "--volume", hostile.volume.path()});
  EXPECT_THAT(finished.output, HasSubstr("\x1b]0;title"));
  const Ended shown = inChild([] {
    const client::Output output({.terminal = true}, false);
    output.raw("a\x1b[2J\n");
    output.json({{"key", "\xC2\x9B"}});
    static_cast<void>(output.flush());
  });
  EXPECT_EQ(shown.output, "a?[2J\n{\"key\":\"?\"}\n");
}

TEST(HighlightedTexts, stayHighlightedWhereThereAreColours) {
  const Ended shown = inChild([] {
    const client::Output plain({.color = false, .terminal = true}, false);
    plain.line(client::highlighted("a"));
    const client::Output output({.color = true, .terminal = true}, false);
    output.line("x\x1b[2J " + client::highlighted("y\x1b[31m") + " z");
    static_cast<void>(output.flush());
  });
  EXPECT_EQ(shown.output, "?[1ma?[0m\nx?[2J \x1b[1my?[31m\x1b[0m z\n");
}

// Each level would take a hundred times its byte in memory, up to a gigabyte.
TEST(HostileSettings, areNotSearchedForTheirErrorWhenTheyAreLong) {
  const ScratchFolder folder;
  const std::string path = folder.path("config.json");
  put(path, std::string(65'536, '['));
  EXPECT_THAT(client::readSettingsFile(path).flaw.value_or(""), HasSubstr("it is not JSON (line 1"));
  put(path, std::string(65'537, '['));
  EXPECT_EQ(client::readSettingsFile(path).flaw, "it is not JSON, or nested too deeply");
}

// ---------------------------------------------------------------------------------------------------------
// Links and folders

// Whoever owns TMPDIR can put another folder in the place of the one that was just made.
TEST(FolderForPrivateFiles, isOursOrNotUsed) {
  const ScratchFolder folder;
  const std::string own = folder.path("own");
  ASSERT_EQ(::mkdir(own.c_str(), 0700), 0);
  EXPECT_TRUE(client::openOwnFolder(own));
  makeLink(folder.path("link"), own);
  EXPECT_FALSE(client::openOwnFolder(folder.path("link")));
  put(folder.path("file"), "");
  EXPECT_FALSE(client::openOwnFolder(folder.path("file")));
  EXPECT_FALSE(client::openOwnFolder(folder.path("nowhere")));
  setMode(own, 0701);
  EXPECT_FALSE(client::openOwnFolder(own));
  EXPECT_EQ(errno, EPERM);
  setMode(own, 0700);
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  ASSERT_EQ(::chown(own.c_str(), 65534, 65534), 0);
  EXPECT_FALSE(client::openOwnFolder(own));
}

TEST(DoctorsFix, movesALinkItselfAside) {
  LiveBrisko mac;
  mac.boot();
  mac.end();
  const std::string target = mac.mac.folder() + "/target.json";
  put(target, "{\"limit\":99999999999999999999}");
  std::filesystem::remove(mac.configPath());
  makeLink(mac.configPath(), target);
  EXPECT_THAT(said(mac.brisko({"doctor", "--fix", "D06", "--yes"})), HasSubstr(".aside"));
  EXPECT_TRUE(std::filesystem::is_symlink(mac.configPath() + ".aside"));
  EXPECT_FALSE(exists(mac.configPath()));
  EXPECT_EQ(std::filesystem::hard_link_count(target), 1U);
}

// As root in a folder of somebody else, with that folder in front of everything in PATH.
TEST(FolderOfAnotherUser, isNoPlaceForProgramsOrLibraries) {
  LiveBrisko mac;
  mac.boot();
  const ScratchFolder trap;
  for (const char* name : {"brisko", "brisko-daemon", "codesign", "ioreg", "launchctl", "open", "pmset",
                           "plutil", "ps", "sh", "sysctl", "xdg-open"}) {
    put(trap.path(name), "#!/bin/sh\n: >'" + trap.path("sprung") + "'\n");
    setMode(trap.path(name), 0755);
  }
  for (const Words& words : {Words{"status"}, Words{"doctor"}, Words{"limit", "75"}, Words{"history"},
                             Words{"restart"}, Words{"report", "--yes"}}) {
    const Ended ended = runPrepared(
        words, {{"BRISKO_VIRTUAL_MAC", mac.mac.folder()}, {"PATH", ".:" + trap.path()}, {"IFS", "/"}},
        [&] { static_cast<void>(::chdir(trap.path().c_str())); }, "brisko");
    EXPECT_EQ(ended.signal, std::nullopt) << words.front() << ended.errors;
    EXPECT_FALSE(exists(trap.path("sprung"))) << words.front();
  }
}

// ---------------------------------------------------------------------------------------------------------
// Descriptors, limits and arguments

Ended briskoWith(const Words& words, const std::function<void()>& prepare) {
  return runPrepared(words, {{"LC_ALL", "C.UTF-8"}}, prepare, "brisko");
}

template <typename Resource>
void limitTo(Resource resource, rlim_t most) {
  const rlimit limit{.rlim_cur = most, .rlim_max = most};
  static_cast<void>(::setrlimit(resource, &limit));
}

// Otherwise the first files would be opened as the standard streams, and answers be written into them.
TEST(ClosedStreams, areNotTheFilesThatAreWritten) {
  const ScratchFolder volume;
  std::filesystem::create_directories(volume.path() + dataFolder);
  const Ended ended = briskoWith({"limit", "70", "--volume", volume.path()}, [] {
    for (int stream = 0; stream < 3; ++stream) ::close(stream);
  });
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(json::parse(contents(volume.path() + defaultConfigPath))["limit"], 70);
}

// The signal of the limit would end brisko between two steps, and leave what it was writing.
TEST(LimitsOfResources, leaveNoPartOfAFile) {
  const ScratchFolder volume;
  std::filesystem::create_directories(volume.path() + dataFolder);
  put(volume.path() + defaultConfigPath, "{\"limit\":60}");
  const auto narrow = [] { limitTo(RLIMIT_FSIZE, 200); };
  const Ended changed = briskoWith({"limit", "70", "--volume", volume.path()}, narrow);
  EXPECT_EQ(changed.signal, std::nullopt);
  EXPECT_THAT(changed.errors, HasSubstr("File too large"));
  EXPECT_EQ(contents(volume.path() + defaultConfigPath), "{\"limit\":60}");
  const std::filesystem::directory_iterator files(volume.path() + dataFolder);
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);

  const std::string report = volume.path() + "/report.tar";
  const Ended reported =
      briskoWith({"report", "--yes", "--quiet", "--output", report, "--volume", volume.path()}, narrow);
  EXPECT_EQ(reported.status, 1) << reported.errors;
  EXPECT_FALSE(exists(report));
}

TEST(LimitsOfResources, endInARefusalNotInACrash) {
  const ScratchFolder volume;
  std::filesystem::create_directories(volume.path() + dataFolder);
  for (const rlim_t descriptors : {3U, 4U, 5U}) {
    for (const Words& words : {Words{"status"}, Words{"doctor"}, Words{"limit", "70"}}) {
      Words all = words;
      all.insert(all.end(), {"--volume", volume.path()});
      const Ended ended = briskoWith(all, [&] { limitTo(RLIMIT_NOFILE, descriptors); });
      EXPECT_EQ(ended.signal, std::nullopt) << words.front() << descriptors;
    }
  }
}

TEST(ManyOrLongArguments, areRefused) {
  for (const Words& words :
       {Words{std::string(100'000, 'x')}, Words(20'000, "limit"), Words{"limit", std::string(100'000, '9')},
        Words{"--volume", std::string(5000, '/')}, Words{"set", "limit=" + std::string(100'000, '=')}}) {
    const Ended ended = briskoWith(words, [] {});
    EXPECT_NE(ended.status, 99) << "brisko was not started";
    EXPECT_EQ(ended.signal, std::nullopt) << words.front().substr(0, 10);
    EXPECT_NE(ended.status, 0) << words.front().substr(0, 10);
  }
}

}  // namespace
}  // namespace brisko::hostile_test
