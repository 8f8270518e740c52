// A process on these fakes works on the files of its volume at once, as one on a Mac does. So the comparison
// of both platforms also compares this with the files that a process in virtual time keeps in memory.

#include "base/plain_files.h"

#include "base/files.h"
#include "sim/process/kept_files.h"

namespace brisko {

// Defined here too, so that no other definition is linked.
Descriptor openRegularFile(const std::string& path, int flags, mode_t mode) {
  return plain::openRegularFile(path, flags, mode);
}
bool writeAll(int descriptor, std::string_view bytes) { return plain::writeAll(descriptor, bytes); }
bool changeMode(int descriptor, mode_t mode) { return plain::changeMode(descriptor, mode); }
std::optional<std::string> readWholeFile(const std::string& path) { return plain::readWholeFile(path); }
bool overwriteFile(const std::string& path, std::string_view text) {
  return plain::overwriteFile(path, text);
}
void removeTree(const std::string& path, std::error_code& failure) { plain::removeTree(path, failure); }
void removeFile(const std::string& path, std::error_code& failure) { plain::removeFile(path, failure); }
void renameFile(const std::string& from, const std::string& to, std::error_code& failure) {
  plain::renameFile(from, to, failure);
}

namespace sim {

void keepFilesIn(KeptFiles&) {}

void resumeWithFiles(bool) {}

KeptWrites takeKeptWrites() { return {}; }

void writeKeptFiles(KeptFiles&) {}

}  // namespace sim
}  // namespace brisko
