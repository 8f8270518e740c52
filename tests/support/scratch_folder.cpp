#include "support/scratch_folder.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "support/record_schemas.h"

namespace brisko::test {

namespace {

std::string scratchRoot() {
  if (::access("/dev/shm", W_OK | X_OK) == 0) return "/dev/shm";
  const char* named = std::getenv("TMPDIR");
  return named == nullptr ? "/tmp" : named;
}

[[noreturn]] void giveUp(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

ScratchFolder::ScratchFolder() : path_(scratchRoot() + "/brisko-test-XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) giveUp(path_);
}

ScratchFolder::~ScratchFolder() {
  checkRecords(path_);
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

int namelessFile() {
  std::string path = scratchRoot() + "/brisko-test-XXXXXX";
  const int file = ::mkstemp(path.data());
  if (file < 0 || ::unlink(path.c_str()) != 0 || ::fcntl(file, F_SETFL, O_APPEND) != 0) giveUp(path);
  return file;
}

}  // namespace brisko::test
