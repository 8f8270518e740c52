#include "sim/invariants/watched_folders.h"

#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include <sys/stat.h>

// kqueue reports events of open files only, and not which files of a folder are written. So the folders are
// searched, and compared with the search before.

namespace brisko::lab {
namespace {

namespace fs = std::filesystem;

using Files = std::map<std::string, struct stat>;  // by path, unmapped

bool isAt(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

void search(const std::string& volume, const std::string& path, Files& found) {
  struct stat file {};
  if (::lstat((volume + path).c_str(), &file) != 0) return;
  found[path] = file;
  if (!S_ISDIR(file.st_mode)) return;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(volume + path, ignored)) {
    search(volume, path + "/" + entry.path().filename().string(), found);
  }
}

Files searchFolders(const std::string& volume) {
  Files found;
  for (const char* folder : dataFolders) search(volume, folder, found);
  return found;
}

// A folder is written whenever something in it comes or goes, which its own entry reports.
void compare(const std::string& path, const struct stat& before, const struct stat& now,
             std::vector<FileChange>& changes) {
  if (before.st_ino != now.st_ino) {
    changes.push_back({.path = path});
  } else if (!isAt(before.st_mtimespec, now.st_mtimespec) || before.st_size != now.st_size) {
    if (!S_ISDIR(now.st_mode)) changes.push_back({.path = path, .overwritten = true});
  } else if (!isAt(before.st_ctimespec, now.st_ctimespec)) {
    changes.push_back({.path = path, .attributes = true});
  }
}

}  // namespace

struct WatchedFolders::Impl {
  std::string volume;
  Files known = {};
};

WatchedFolders::WatchedFolders(std::string volume)
    : impl_(std::make_unique<Impl>(Impl{.volume = std::move(volume)})) {}

WatchedFolders::~WatchedFolders() = default;

void WatchedFolders::begin() { impl_->known = searchFolders(impl_->volume); }

std::vector<FileChange> WatchedFolders::changes() {
  std::vector<FileChange> changes;
  Files now = searchFolders(impl_->volume);
  for (const auto& [path, file] : now) {
    const auto before = impl_->known.find(path);
    if (before == impl_->known.end()) {
      changes.push_back({.path = path});
    } else {
      compare(path, before->second, file, changes);
    }
  }
  for (const auto& [path, file] : impl_->known) {
    if (!now.contains(path)) changes.push_back({.path = path, .removed = true});
  }
  impl_->known = std::move(now);
  return changes;
}

}  // namespace brisko::lab
