#include "sim/process/kept_files.h"

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"
#include "base/plain_files.h"
#include "platform/file_watch.h"
#include "sim/machine/machine_store.h"
#include "sim/machine/models.h"
#include "sim/process/shared_memory.h"
#include "sim/seam/simulated/driver.h"
#include "support/child.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::kept_files_test {
namespace {

using namespace test;
namespace fs = std::filesystem;

// A volume whose files this process keeps. Processes that keep files never stop it, so each test is a child.
class KeptVolume {
 public:
  explicit KeptVolume(const std::string& root)
      : store_(virtual_mac::MachineStore::inMemory(
            virtual_mac::makeMachine(virtual_mac::models().front(), {}))) {
    store_->setVolumeRoot(root);
    virtual_mac::attachMachine(store_.get());
    sim::keepFilesIn(*memory_);
    sim::resumeWithFiles(true);
  }
  void pause() { sim::writeKeptFiles(*memory_); }
  [[nodiscard]] sim::KeptFiles& memory() const { return *memory_; }

 private:
  sim::SharedMemory<sim::KeptFiles> memory_;
  std::unique_ptr<virtual_mac::MachineStore> store_;
};

void overwrite(const std::string& path, const std::string& text) {
  if (!overwriteFile(path, text)) tell("not written; ");
}

// --- The same work on kept files and on plain ones, and what everybody sees compared

constexpr std::array names{"config.json", "status.json", "stats.json", "daemon.log", "folder"};

std::string typeOf(const fs::path& path) {
  const fs::file_status status = fs::symlink_status(path);
  if (fs::is_symlink(status)) return "link to " + fs::read_symlink(path).filename().string();
  return fs::is_directory(status) ? "folder" : fs::exists(status) ? "file" : "nothing";
}

std::string pictureOf(const std::string& root) {
  std::string picture;
  for (const std::string name : names) {
    const std::string path = root + "/" + name;
    struct stat file {};
    const bool found = ::stat(path.c_str(), &file) == 0;
    picture += name + ": " + typeOf(path);
    if (found && S_ISREG(file.st_mode)) {
      picture +=
          " " + std::to_string(file.st_nlink) + " " + std::to_string(file.st_mode) + " " + contents(path);
    }
    picture += "\n";
  }
  return picture;
}

// One implementation, with the functions that the daemon calls.
class Worker {
 public:
  Worker(std::string root, bool keeps) : root_(std::move(root)), keeps_(keeps) {}

  [[nodiscard]] std::string pathOf(const std::string& name) const { return root_ + "/" + name; }
  [[nodiscard]] const std::string& root() const { return root_; }

  // Returns what the daemon learns.
  std::string work(int kind, const std::string& name, const std::string& other,
                   const std::string& text) const {
    const std::string path = pathOf(name);
    std::error_code failure;
    if (kind < 4) {
      return (keeps_ ? overwriteFile(path, text) : plain::overwriteFile(path, text)) ? "written"
                                                                                     : "not written";
    }
    if (kind < 8) return (keeps_ ? readWholeFile(path) : plain::readWholeFile(path)).value_or("none");
    if (kind == 8) return append(path, text);
    if (kind == 9) {
      keeps_ ? removeFile(path, failure) : plain::removeFile(path, failure);
    } else if (kind == 10) {
      const std::string to = pathOf(other);
      keeps_ ? renameFile(path, to, failure) : plain::renameFile(path, to, failure);
    } else {
      keeps_ ? removeTree(path, failure) : plain::removeTree(path, failure);
    }
    return failure.message();
  }

  // What others do meanwhile.
  void disturb(int kind, const std::string& name, const std::string& other, const std::string& text) const {
    const std::string path = pathOf(name);
    std::error_code ignored;
    if (kind == 0) std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    if (kind == 1) fs::remove_all(path, ignored);
    if (kind == 2) fs::create_symlink(pathOf(other), path, ignored);
    if (kind == 3) fs::create_hard_link(pathOf(other), path, ignored);
    if (kind == 4) fs::rename(path, pathOf(other), ignored);
    if (kind == 5) fs::create_directory(path, ignored);
  }

 private:
  [[nodiscard]] std::string append(const std::string& path, const std::string& text) const {
    constexpr int flags = O_WRONLY | O_APPEND | O_CREAT;
    const Descriptor file =
        keeps_ ? openRegularFile(path, flags, 0644) : plain::openRegularFile(path, flags, 0644);
    if (!file) return "not opened";
    return (keeps_ ? writeAll(file.number(), text) : plain::writeAll(file.number(), text)) ? "appended"
                                                                                           : "failed";
  }

  std::string root_;
  bool keeps_;
};

class Comparison {
 public:
  Comparison(const std::string& plainRoot, const std::string& keptRoot, unsigned seed)
      : volume_(keptRoot), plain_(plainRoot, false), kept_(keptRoot, true), random_(seed) {}

  // Returns the first difference.
  std::string run() {
    for (int slice = 0; slice < 60; ++slice) {
      for (int step = below(30); step > 0; --step) {
        const int kind = below(40) < 37 ? below(8) : 8 + below(4);
        // Mostly the same files again and again, as the daemon does it.
        const std::string name = names.at(static_cast<std::size_t>(below(10) < 8 ? below(3) : below(5)));
        const std::string other = names.at(static_cast<std::size_t>(below(5)));
        const std::string text =
            std::string(static_cast<std::size_t>(below(40)), 'x') + std::to_string(++texts_);
        const std::string one = plain_.work(kind, name, other, text);
        const std::string two = kept_.work(kind, name, other, text);
        writes_ += sim::takeKeptWrites().kept.size();
        if (one != two) return "work " + std::to_string(kind) + " on " + name + ": " + one + " | " + two;
      }
      volume_.pause();
      if (pictureOf(plain_.root()) != pictureOf(kept_.root())) {
        return "plain:\n" + pictureOf(plain_.root()) + "kept:\n" + pictureOf(kept_.root());
      }
      disturb();
      sim::resumeWithFiles(below(5) != 0);
    }
    return "";
  }
  [[nodiscard]] std::size_t writes() const { return writes_; }

 private:
  void disturb() {
    for (int count = below(3); count > 0; --count) {
      const int kind = below(6);
      const std::string name = names.at(static_cast<std::size_t>(below(5)));
      const std::string other = names.at(static_cast<std::size_t>(below(5)));
      const std::string text = "of others " + std::to_string(++texts_);
      for (const Worker* worker : {&plain_, &kept_}) worker->disturb(kind, name, other, text);
    }
  }
  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

  KeptVolume volume_;
  Worker plain_;
  Worker kept_;
  std::mt19937 random_;
  int texts_ = 0;
  std::size_t writes_ = 0;
};

TEST(KeptFiles, areForEverybodyWhatPlainFilesAre) {
  for (unsigned seed = 1; seed <= 30; ++seed) {
    const sim::ScratchFolder plainRoot("brisko-plain");
    const sim::ScratchFolder keptRoot("brisko-kept");
    const auto ended = inChild([&] {
      Comparison comparison(plainRoot.path(), keptRoot.path(), seed);
      tell(comparison.run());
      if (comparison.writes() < 20) tell("only " + std::to_string(comparison.writes()) + " writes were kept");
    });
    EXPECT_EQ(ended.output, "") << "seed " << seed;
    EXPECT_EQ(ended.status, 0) << "seed " << seed << ": " << ended.errors;
  }
}

// --- One by one

class KeptStatus : public ::testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return folder_.path("status.json"); }
  [[nodiscard]] std::string keptBy(const std::function<void(KeptVolume&)>& body) const {
    return inChild([&] {
             KeptVolume volume(folder_.path());
             body(volume);
           })
        .output;
  }
  sim::ScratchFolder folder_{"brisko-kept"};
};

TEST_F(KeptStatus, isOnTheVolumeAfterAPause) {
  EXPECT_EQ(keptBy([this](KeptVolume& volume) {
              for (const char* text : {"1", "2", "3"}) overwrite(path(), text);
              tell(contents(path()));
              tell(readWholeFile(path()).value_or("none"));
              volume.pause();
              tell(contents(path()));
            }),
            "133");
}

TEST_F(KeptStatus, survivesAnEndWithoutWarning) {
  const sim::SharedMemory<sim::KeptFiles> memory;
  const auto ended = inChild([&] {
    const KeptVolume volume(folder_.path());
    sim::keepFilesIn(*memory);
    sim::resumeWithFiles(true);
    for (const char* text : {"1", "2", "3"}) overwrite(path(), text);
    ::raise(SIGKILL);
  });
  EXPECT_EQ(ended.signal, SIGKILL);
  EXPECT_EQ(contents(path()), "1");
  sim::writeKeptFiles(*memory);
  EXPECT_EQ(contents(path()), "3");
}

TEST_F(KeptStatus, isOnTheVolumeBeforeOtherWorkOnFiles) {
  EXPECT_EQ(keptBy([this](KeptVolume&) {
              for (const char* text : {"1", "2"}) overwrite(path(), text);
              const Descriptor history = openForAppending(folder_.path("2026-03-01.jsonl"));
              tell(contents(path()));
            }),
            "2");
}

TEST_F(KeptStatus, goesToTheVolumeAtOnceOnAFullDisk) {
  EXPECT_EQ(keptBy([this](KeptVolume&) {
              sim::resumeWithFiles(false);
              for (const char* text : {"1", "2"}) overwrite(path(), text);
              tell(contents(path()));
            }),
            "2");
}

TEST_F(KeptStatus, goesToTheVolumeAtOnceOnceItIsWatched) {
  EXPECT_EQ(keptBy([this](KeptVolume&) {
              for (const char* text : {"1", "2"}) overwrite(path(), text);
              const auto descriptor = platform::openForEvents(path());
              static_cast<void>(platform::watchFile(
                  *descriptor, platform::fileWritten, [](auto) {}, [] {}));
              for (const char* text : {"3", "4"}) overwrite(path(), text);
              tell(contents(path()));
            }),
            "4");
}

TEST_F(KeptStatus, isNotKeptWhenItIsTooLong) {
  const std::string longest(sim::KeptFile::mostBytes, 'x');
  const std::string longer = longest + "x";
  EXPECT_EQ(keptBy([&](KeptVolume&) {
              overwrite(path(), "1");
              overwrite(path(), longest);
              tell(contents(path()));
              overwrite(path(), longer);
              if (contents(path()) == longer) tell("2");
            }),
            "12");
}

TEST_F(KeptStatus, tellsWhatWasKeptAndWhatFollowedLater) {
  EXPECT_EQ(keptBy([this](KeptVolume&) {
              overwrite(path(), "1");
              static_cast<void>(sim::takeKeptWrites());
              overwrite(path(), "2");
              tell(std::to_string(sim::takeKeptWrites().kept.size()));
              const Descriptor history = openForAppending(folder_.path("2026-03-01.jsonl"));
              const sim::KeptWrites later = sim::takeKeptWrites();
              for (const std::string& delayed : later.delayed) tell(delayed);
              tell(std::to_string(later.kept.size()));
            }),
            "1/status.json0");
}

// --- The settings

TEST_F(KeptStatus, answersSettingsFromMemoryUntilAPause) {
  EXPECT_EQ(keptBy([this](KeptVolume&) {
              const std::string config = folder_.path("config.json");
              put(config, "1");
              tell(*readWholeFile(config));
              put(config, "2");
              tell(*readWholeFile(config));
              sim::resumeWithFiles(true);
              tell(*readWholeFile(config));
              overwrite(config, "3");
              tell(*readWholeFile(config));
              overwrite(config, "4");
              tell(contents(config));
            }),
            "11234");
}

}  // namespace
}  // namespace brisko::kept_files_test
