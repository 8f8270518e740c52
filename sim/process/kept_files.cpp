#include "sim/process/kept_files.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"
#include "base/plain_files.h"
#include "platform/host.h"
#include "sim/seam/file_events.h"
#include "sim/seam/news.h"

namespace brisko::sim {
namespace {

using File = struct stat;

bool isSame(const File& one, const File& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Of a regular file that has this one name only: no other path leads to it, except through a linked folder.
std::optional<File> onlyFileAt(const std::string& path) {
  File file{};
  if (::lstat(path.c_str(), &file) != 0 || !S_ISREG(file.st_mode) || file.st_nlink != 1) return std::nullopt;
  return file;
}

std::string_view pathOf(const KeptFile& kept) { return kept.path.data(); }

std::string_view textOf(const KeptFile& kept) {
  const KeptFile::Text& text = kept.texts.at(kept.valid.load(std::memory_order_acquire));
  return {text.bytes.data(), text.size};
}

// A process that is killed in this moment leaves the text before.
void put(KeptFile& kept, std::string_view text) {
  const std::uint32_t next = 1 - kept.valid.load(std::memory_order_relaxed);
  text.copy(kept.texts.at(next).bytes.data(), text.size());
  kept.texts.at(next).size = static_cast<std::uint32_t>(text.size());
  kept.valid.store(next, std::memory_order_release);
  kept.waits.store(true, std::memory_order_release);
}

// Returns whether there was anything to write.
bool writeOut(KeptFile& kept) {
  if (!kept.waits.load(std::memory_order_acquire)) return false;
  // Nothing else was there since the file was written before, so it can still be written.
  static_cast<void>(plain::overwriteFile(std::string(pathOf(kept)), textOf(kept)));
  kept.waits.store(false, std::memory_order_release);
  return true;
}

// What this process knows of a place in the shared memory.
struct Place {
  bool isTrue = false;  // the kept text, and nothing else, is what the file contains
  File file{};
};

// The file that was read last.
struct LastRead {
  std::string path;
  std::optional<std::string> bytes;  // none: must be read again
  File file{};
};

class Keeper {
 public:
  void use(KeptFiles& memory) { memory_ = &memory; }
  [[nodiscard]] bool isUsed() const { return memory_ != nullptr; }

  void resume(bool keep) {
    keeps_ = keep && isUsed();
    watches_ = virtual_mac::watchesSoFar();
    forget();
  }

  // The work that follows may be on any file.
  void beforeWork() {
    if (!isUsed()) return;
    virtual_mac::expectNews();
    for (KeptFile& kept : memory_->files) {
      if (writeOut(kept)) note(pathOf(kept), writes_.delayed);
    }
  }

  // Nothing that is known of the volume is certain any more.
  void forget() {
    if (!isUsed()) return;
    for (Place& place : places_) place.isTrue = false;
    lastRead_.bytes.reset();
  }

  // The daemon's log, for example. Nobody sees whether it comes before the kept files or after them, but
  // another name may lead from a kept file to this one.
  void beforeWriting(int descriptor) {
    if (!isUsed()) return;
    virtual_mac::expectNews();
    File file{};
    const bool isStream = descriptor <= STDERR_FILENO;
    if (isStream || !keeps_ || ::fstat(descriptor, &file) != 0 || !isKnown(file)) return;
    beforeWork();
    forget();
  }

  void afterOpeningToWrite(const Descriptor& opened) {
    File file{};
    if (keeps_ && opened && ::fstat(opened.number(), &file) == 0 && isKnown(file)) forget();
  }

  [[nodiscard]] std::optional<std::string> read(const std::string& path) {
    if (!keeps_) return readFromVolume(path);
    if (const KeptFile* kept = truePlace(path)) return std::string(textOf(*kept));
    if (lastRead_.bytes && lastRead_.path == path) return lastRead_.bytes;
    return readFromVolume(path);
  }

  [[nodiscard]] bool overwrite(const std::string& path, std::string_view text) {
    if (std::exchange(watches_, virtual_mac::watchesSoFar()) != virtual_mac::watchesSoFar()) forget();
    KeptFile* kept = keeps_ && text.size() <= KeptFile::mostBytes ? truePlace(path) : nullptr;
    if (kept == nullptr) return overwriteOnVolume(path, text);
    put(*kept, text);
    note(path, writes_.kept);
    return true;
  }

  [[nodiscard]] KeptWrites takeWrites() { return std::exchange(writes_, {}); }

 private:
  [[nodiscard]] static bool isOnVolume(const std::string& path) {
    const std::string& root = platform::volumeRoot();
    return !root.empty() && path.size() > root.size() && path.starts_with(root) && path[root.size()] == '/';
  }

  [[nodiscard]] static std::string_view unmapped(std::string_view path) {
    return path.substr(std::min(path.size(), platform::volumeRoot().size()));
  }

  // Once each, because a process may have nobody who takes them.
  static void note(std::string_view path, std::vector<std::string>& list) {
    const std::string_view name = unmapped(path);
    if (std::find(list.begin(), list.end(), name) == list.end()) list.emplace_back(name);
  }

  // Whether what is known here depends on this file.
  [[nodiscard]] bool isKnown(const File& file) const {
    return (lastRead_.bytes && isSame(lastRead_.file, file)) ||
           std::any_of(places_.begin(), places_.end(),
                       [&file](const Place& place) { return place.isTrue && isSame(place.file, file); });
  }

  [[nodiscard]] KeptFile* truePlace(const std::string& path) {
    for (std::size_t index = 0; index < places_.size(); ++index) {
      KeptFile& kept = memory_->files.at(index);
      if (places_.at(index).isTrue && pathOf(kept) == path) return &kept;
    }
    return nullptr;
  }

  [[nodiscard]] std::optional<std::string> readFromVolume(const std::string& path) {
    beforeWork();
    std::optional<std::string> bytes = plain::readWholeFile(path);
    if (!keeps_ || !isOnVolume(path)) return bytes;
    const auto file = bytes ? onlyFileAt(path) : std::nullopt;
    if (file && isKnown(*file)) forget();
    lastRead_ = {.path = path, .bytes = file ? bytes : std::nullopt, .file = file.value_or(File{})};
    return bytes;
  }

  [[nodiscard]] bool overwriteOnVolume(const std::string& path, std::string_view text) {
    beforeWork();
    const auto& delayed = writes_.delayed;
    const bool wasDelayed = std::find(delayed.begin(), delayed.end(), unmapped(path)) != delayed.end();
    if (wasDelayed) note(path, writes_.kept);
    const bool written = plain::overwriteFile(path, text);
    if (!keeps_) return written;
    const auto file = onlyFileAt(path);
    if (!file || isKnown(*file) || path == lastRead_.path) forget();
    if (file && written && mayBeKept(path, text, *file)) take(path, text, *file);
    return written;
  }

  // The settings are not: the process reads them before it writes them, and others wait for them to change.
  [[nodiscard]] bool mayBeKept(const std::string& path, std::string_view text, const File& file) const {
    return isOnVolume(path) && path != lastRead_.path && !isSame(file, lastRead_.file) &&
           path.size() <= KeptFile::longestPath && text.size() <= KeptFile::mostBytes &&
           !virtual_mac::isWatched(file);
  }

  void take(const std::string& path, std::string_view text, const File& file) {
    const auto unused =
        std::find_if(places_.begin(), places_.end(), [](const Place& place) { return !place.isTrue; });
    if (unused == places_.end()) return;
    KeptFile& kept = memory_->files.at(static_cast<std::size_t>(unused - places_.begin()));
    kept.path.fill('\0');
    path.copy(kept.path.data(), path.size());
    put(kept, text);
    kept.waits.store(false, std::memory_order_release);
    *unused = {.isTrue = true, .file = file};
  }

  KeptFiles* memory_ = nullptr;
  bool keeps_ = false;
  std::uint64_t watches_ = 0;  // how many there were when the places were taken
  std::array<Place, std::tuple_size_v<decltype(KeptFiles::files)>> places_{};
  LastRead lastRead_;
  KeptWrites writes_;
};

// Exit hooks may still write, so it is never destroyed.
Keeper& keeper() {
  static Keeper& kept = *new Keeper;
  return kept;
}

}  // namespace

void keepFilesIn(KeptFiles& memory) {
  keeper().use(memory);
  virtual_mac::beAlone();
}

void resumeWithFiles(bool keep) {
  virtual_mac::expectNews();
  keeper().resume(keep);
}

KeptWrites takeKeptWrites() { return keeper().takeWrites(); }

void writeKeptFiles(KeptFiles& memory) {
  for (KeptFile& kept : memory.files) static_cast<void>(writeOut(kept));
}

}  // namespace brisko::sim

// In place of the weak functions in base/files.cpp.
namespace brisko {

using sim::keeper;

Descriptor openRegularFile(const std::string& path, int flags, mode_t mode) {
  keeper().beforeWork();
  Descriptor file = plain::openRegularFile(path, flags, mode);
  if ((flags & O_ACCMODE) != O_RDONLY) keeper().afterOpeningToWrite(file);
  return file;
}

bool writeAll(int descriptor, std::string_view bytes) {
  keeper().beforeWriting(descriptor);
  return plain::writeAll(descriptor, bytes);
}

bool changeMode(int descriptor, mode_t mode) {
  keeper().beforeWork();
  return plain::changeMode(descriptor, mode);
}

std::optional<std::string> readWholeFile(const std::string& path) { return keeper().read(path); }

bool overwriteFile(const std::string& path, std::string_view text) { return keeper().overwrite(path, text); }

void removeTree(const std::string& path, std::error_code& failure) {
  keeper().beforeWork();
  plain::removeTree(path, failure);
  keeper().forget();
}

void removeFile(const std::string& path, std::error_code& failure) {
  keeper().beforeWork();
  plain::removeFile(path, failure);
  keeper().forget();
}

void renameFile(const std::string& from, const std::string& to, std::error_code& failure) {
  keeper().beforeWork();
  plain::renameFile(from, to, failure);
  keeper().forget();
}

}  // namespace brisko
