#include "base/log.h"

#include <array>
#include <cstdio>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_calls.h"
#include "base/files.h"
#include "base/folders.h"
#include "base/log_output.h"
#include "base/process_flags.h"
#include "base/utc_text.h"
#include "base/volume_path.h"
#include "platform/clock.h"

namespace brisko {
namespace {

// "2026-03-01T08:15:30Z"
std::string timeStamp(double secondsSince1970) {
  const UtcText text = utcText(secondsSince1970);
  return text.date + "T" + text.time + "Z";
}

}  // namespace

void log(std::string_view message) {
  std::string line = timeStamp(platform::wallNow());
  line.append("  ").append(message).append("\n");
  offerLogLine(line);
  LogFile::append(line);
}

namespace LogFile {

namespace {

constexpr mode_t folderMode = 0755;
constexpr mode_t fileMode = 0644;

// Constructed before main() and destroyed after every exit hook, because those may still log.
struct State {
  Descriptor handle;
  std::int64_t written = 0;  // bytes in the file as far as this process knows
  std::string directory = defaultDirectory;
  std::int64_t cap = defaultCap;
};
State state;

std::string pathOf(const char* name) { return onVolume(state.directory + "/" + name); }

// True when the file is open.
bool open() {
  if (state.handle) return true;
  makeFolders(onVolume(state.directory));
  state.handle = openForAppending(pathOf("daemon.log"));
  if (!state.handle) return false;
  const off_t end = file_calls::seek(state.handle.number(), 0, SEEK_END);
  state.written = end < 0 ? 0 : end;
  return true;
}

void rotate() {
  state.handle.close();
  // Also removes a folder in the place of the previous generation. Otherwise the log could never be rotated
  // and would grow without limit.
  std::error_code ignored;
  removeTree(pathOf("daemon.log.1"), ignored);
  renameFile(pathOf("daemon.log"), pathOf("daemon.log.1"), ignored);
  state.written = 0;
}

std::string octal(mode_t mode) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%o", static_cast<unsigned>(mode));
  return text.data();
}

// Sets the mode of a descriptor of this kind (S_IFREG, S_IFDIR) if it differs, and describes the change.
std::optional<std::string> setMode(const Descriptor& file, mode_t kind, mode_t mode) {
  struct stat status {};
  if (file_calls::status(file.number(), status) != 0 || (status.st_mode & S_IFMT) != kind)
    return std::nullopt;
  const mode_t old = status.st_mode & 07777;
  if (old == mode || !changeMode(file.number(), mode)) return std::nullopt;
  return octal(old) + " → " + octal(mode);
}

}  // namespace

void append(std::string_view line) {
  if (gPurged || !open()) return;
  const auto size = static_cast<std::int64_t>(line.size());
  if (state.written + size > state.cap) {
    rotate();
    if (!open()) return;
  }
  // Counted even if it could not be written: a full disk must not stop the rotation.
  static_cast<void>(writeAll(state.handle.number(), line));
  state.written += size;
}

std::vector<std::string> repairPermissions() {
  std::vector<std::string> repairs;
  const Descriptor folder(
      file_calls::open(onVolume(state.directory).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) return repairs;
  if (const auto change = setMode(folder, S_IFDIR, folderMode)) {
    repairs.push_back(state.directory + " " + *change);
  }
  for (const char* name : {"daemon.log", "daemon.log.1", "daemon.err.log"}) {
    const Descriptor file(
        file_calls::openAt(folder.number(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) continue;
    if (const auto change = setMode(file, S_IFREG, fileMode)) {
      repairs.push_back(std::string(name) + " " + *change);
    }
  }
  return repairs;
}

void reset(const std::string& directory, std::int64_t cap) {
  state.handle.close();
  state.written = 0;
  state.directory = directory;
  state.cap = cap;
}

}  // namespace LogFile
}  // namespace brisko
