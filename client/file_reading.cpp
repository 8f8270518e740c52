#include "client/file_reading.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"
#include "base/json_file.h"
#include "base/volume_path.h"

namespace brisko::client {
namespace {

constexpr off_t largestFile = off_t{16} << 20U;  // as in base/json_file.h

FileProblem problemAt(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return FileProblem::missing;
    return errno == EACCES ? FileProblem::notPermitted : FileProblem::unreadable;
  }
  if (!S_ISREG(status.st_mode)) return FileProblem::notAFile;
  if (::access(path.c_str(), R_OK) != 0) return FileProblem::notPermitted;
  return status.st_size > largestFile ? FileProblem::tooLarge : FileProblem::unreadable;
}

}  // namespace

FileText readFile(const std::string& path) {
  if (auto bytes = readWholeFile(path)) return {.bytes = std::move(*bytes)};
  return {.problem = problemAt(path)};
}

std::string readEnd(const std::string& path, std::size_t longest) {
  const Descriptor file = openRegularFile(path, O_RDONLY);
  struct stat status {};
  if (!file || ::fstat(file.number(), &status) != 0) return "";
  const off_t begin =
      status.st_size > static_cast<off_t>(longest) ? status.st_size - static_cast<off_t>(longest) : 0;
  std::string bytes(longest, '\0');
  std::size_t filled = 0;
  while (filled < longest) {
    const ssize_t got =
        ::pread(file.number(), bytes.data() + filled, longest - filled, begin + static_cast<off_t>(filled));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    filled += static_cast<std::size_t>(got);
  }
  bytes.resize(filled);
  if (begin == 0) return bytes;
  const std::size_t lineFeed = bytes.find('\n');
  return lineFeed == std::string::npos ? "" : bytes.substr(lineFeed + 1);
}

std::string clauseOf(FileProblem problem) {
  switch (problem) {
    case FileProblem::missing:
      return "it is missing";
    case FileProblem::notPermitted:
      return "you may not read it";
    case FileProblem::notAFile:
      return "it is not a regular file";
    case FileProblem::tooLarge:
      return "it is larger than any file of the daemon";
    case FileProblem::unreadable:
      return "it cannot be read";
    case FileProblem::none:
      break;
  }
  return "it can be read";
}

Volume::Volume(std::optional<std::string> root) : root_(std::move(root)) {
  while (root_ && root_->size() > 1 && root_->back() == '/') root_->pop_back();
}

std::string Volume::at(std::string_view path) const {
  return root_ && path.starts_with('/') ? *root_ + std::string(path) : onVolume(path);
}

}  // namespace brisko::client
