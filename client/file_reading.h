// client/file_reading.h
// Reading the daemon's files from outside, with the reason when one cannot be read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brisko::client {

enum class FileProblem : std::uint8_t {
  none,
  missing,
  notPermitted,  // only another user may read it
  notAFile,      // a folder, a pipe, a socket …
  tooLarge,      // for any file of the daemon
  unreadable,    // for another reason
};

struct FileText {
  std::string bytes = {};
  FileProblem problem = FileProblem::none;
};

// Never blocks, whatever is at the path. Follows links.
[[nodiscard]] FileText readFile(const std::string& path);

// The last part of a file, at most `longest` bytes, from the beginning of a line; empty when it is
// unreadable.
[[nodiscard]] std::string readEnd(const std::string& path, std::size_t longest);

// Why the file cannot be used, as a clause: "it is missing".
[[nodiscard]] std::string clauseOf(FileProblem problem);

// Where the daemon's files are: on this Mac, or on another volume.
class Volume {
 public:
  Volume() = default;
  explicit Volume(std::optional<std::string> root);

  // Where a path of the Mac is on this computer.
  [[nodiscard]] std::string at(std::string_view path) const;
  // True for another volume, which no daemon of this Mac uses.
  [[nodiscard]] bool isForeign() const { return root_.has_value(); }

 private:
  std::optional<std::string> root_ = std::nullopt;
};

}  // namespace brisko::client
