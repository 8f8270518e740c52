#include "sim/process/scratch.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace brisko::sim {
namespace {

// Empty until one is set.
std::string& chosenRoot() {
  static std::string root;
  return root;
}

std::string scratchRoot() {
  if (!chosenRoot().empty()) return chosenRoot();
  if (::access("/dev/shm", W_OK | X_OK) == 0) return "/dev/shm";
  const char* named = std::getenv("TMPDIR");
  return named == nullptr ? "/tmp" : named;
}

[[noreturn]] void giveUp(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

void setScratchRoot(const std::string& folder) { chosenRoot() = folder; }

ScratchFolder::ScratchFolder(const std::string& prefix) : path_(scratchRoot() + "/" + prefix + "-XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) giveUp(path_);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

int namelessFile() {
  std::string path = scratchRoot() + "/brisko-nameless-XXXXXX";
  const int file = ::mkstemp(path.data());
  if (file < 0 || ::unlink(path.c_str()) != 0 || ::fcntl(file, F_SETFL, O_APPEND) != 0) giveUp(path);
  return file;
}

}  // namespace brisko::sim
