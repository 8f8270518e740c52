#include "client/settings_file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/file_writing.h"
#include "client/real_time.h"
#include "client/setting_keys.h"
#include "client/state_reader.h"
#include "platform/clock.h"

namespace brisko::client {
namespace {

constexpr int mostAttempts = 20;  // against a daemon that writes at the same time
constexpr double retrySeconds = 0.02;

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

FileChange refusal(ExitStatus status, std::string reason) {
  return {.status = status, .reason = std::move(reason)};
}

FileChange failure(const std::string& what) {
  const ExitStatus status = errno == EACCES || errno == EPERM ? ExitStatus::notAllowed : ExitStatus::notDone;
  return refusal(status, what + ": " + std::strerror(errno));
}

// Allows one client at a time. The lock is on the folder, so no file is left behind.
Descriptor lockFolder(const std::string& folder) {
  Descriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor) return descriptor;
  for (const double end = steadyNow() + 5; ::flock(descriptor.number(), LOCK_EX | LOCK_NB) != 0;) {
    if (errno != EWOULDBLOCK && errno != EINTR) return {};
    if (steadyNow() > end) return {};
    pauseReally(retrySeconds);
  }
  return descriptor;
}

// The file at the path as it was read.
struct Original {
  Descriptor file = {};  // none: there was no file
  struct stat status = {};
  std::filesystem::file_time_type written = {};
  std::string bytes = {};
  Json object = Json::object();
};

std::string allBytes(int descriptor) {
  std::string bytes;
  std::array<char, 4096> piece;
  for (;;) {
    const ssize_t got = ::pread(descriptor, piece.data(), piece.size(), static_cast<off_t>(bytes.size()));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return bytes;
    bytes.append(piece.data(), static_cast<std::size_t>(got));
  }
}

// Why the thing at the path must not be replaced; empty when it may.
std::string whyNotOurs(const struct stat& status, const std::string& path) {
  if (S_ISLNK(status.st_mode)) return path + " is a link; replace it with the file itself";
  if (!S_ISREG(status.st_mode)) return path + " is not a regular file; remove it";
  if (status.st_uid != 0 && status.st_uid != ::geteuid())
    return path + " belongs to another user; give it to root (sudo chown root)";
  return "";
}

bool isUnchanged(const std::string& path, const Original& original) {
  struct stat now {};
  if (::lstat(path.c_str(), &now) != 0) return errno == ENOENT && !original.file;
  std::error_code error;
  return original.file && now.st_ino == original.status.st_ino && now.st_size == original.status.st_size &&
         std::filesystem::last_write_time(path, error) == original.written && !error;
}

// The settings in the file. Retries for a short time, because the daemon may just be writing it.
FileChange readOriginal(const std::string& path, const Json& defaults, bool force, Original& original) {
  for (int count = 1;; ++count) {
    original = Original{};
    if (::lstat(path.c_str(), &original.status) != 0) {
      original.object = defaults;
      return errno == ENOENT ? FileChange{.done = true} : failure(path);
    }
    if (std::string reason = whyNotOurs(original.status, path); !reason.empty())
      return refusal(ExitStatus::notDone, std::move(reason));
    std::error_code error;
    original.written = std::filesystem::last_write_time(path, error);
    original.file = openRegularFile(path, O_RDONLY | O_NOFOLLOW);
    if (!original.file) return failure(path);
    original.bytes = allBytes(original.file.number());
    SettingsFile settings = readSettingsFile(path);
    if (settings.object && settings.text.bytes == original.bytes) {
      original.object = *settings.object;
      return {.done = true};
    }
    if (count < mostAttempts) {
      pauseReally(retrySeconds);
    } else if (force) {
      original.object = defaults;
      return {.done = true};
    } else {
      return refusal(ExitStatus::notDone,
                     path + " is not usable: " + settings.flaw.value_or("it keeps changing") +
                         "; correct it, or start from the defaults with --force");
    }
  }
}

std::string settingsText(const Json& original, const Json& keys) {
  Json object = configObject(parseConfig(original));
  object.update(keys);
  return jsonText(configObject(parseConfig(object))).value_or("");
}

}  // namespace

FileChange changeSettingsFile(const std::string& path, const Json& keys, const Settings& defaults,
                              bool force) {
  const Descriptor lock = lockFolder(folderOf(path));
  if (!lock) return failure(folderOf(path) + " cannot be locked");
  for (int count = 1; count <= mostAttempts; ++count) {
    Original original;
    FileChange change = readOriginal(path, configObject(defaults), force, original);
    if (!change.done) return change;
    const std::string temporary = writeBeside(path, settingsText(original.object, keys), 0644);
    if (temporary.empty()) return failure(path + " cannot be written");
    if (!isUnchanged(path, original)) {
      static_cast<void>(::unlink(temporary.c_str()));
      continue;
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
      FileChange failed = failure(path + " cannot be replaced");
      static_cast<void>(::unlink(temporary.c_str()));
      return failed;
    }
    change.replacedAt = platform::wallNow();
    static_cast<void>(::fsync(lock.number()));
    change.replaced = std::move(original.file);
    change.read = std::move(original.bytes);
    return change;
  }
  return refusal(ExitStatus::notDone, path + " keeps changing while it is read; try again");
}

bool clearServedRequests(const std::string& path, const Json& keys, FileChange& change) {
  if (!change.replaced) return true;
  const std::string bytes = allBytes(change.replaced.number());
  if (bytes == change.read) return true;
  const auto before = parseJson(change.read);
  const auto after = parseJson(bytes);
  // Truncated during a write: it will be complete the next time.
  if (!before || !after) return false;
  Json cleared = Json::object();
  for (const SettingKey& key : settingKeys()) {
    if (!key.isRequest || keys.contains(key.name)) continue;
    const bool wasAsked = booleanAt(*before, key.name).value_or(false);
    if (wasAsked && !booleanAt(*after, key.name).value_or(false)) cleared[key.name] = false;
  }
  change.read = bytes;
  if (cleared.empty()) return true;
  change.cleared += cleared.size();
  return changeSettingsFile(path, cleared, Settings{}, false).done;
}

}  // namespace brisko::client
