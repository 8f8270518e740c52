#include "support/files.h"

#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include <sys/stat.h>
#include <unistd.h>

namespace brisko::test {
namespace {

// A test whose setup fails must not continue.
void need(bool done, const std::string& what) {
  if (!done) throw std::runtime_error("cannot make " + what);
}

struct stat statusOf(const std::string& path) {
  struct stat status {};
  need(::stat(path.c_str(), &status) == 0, "a look at " + path);
  return status;
}

struct Put {
  std::set<std::string, std::less<>> texts;
  std::map<std::string, std::string> last;  // by path
};

Put& everPut() {
  static Put put;
  return put;
}

}  // namespace

void notePut(const std::string& path, std::string_view bytes) {
  everPut().texts.emplace(bytes);
  everPut().last[path] = bytes;
}

void put(const std::string& path, std::string_view bytes) {
  notePut(path, bytes);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << bytes << std::flush;
  need(file.good(), path);
}

bool wasPut(std::string_view bytes) { return everPut().texts.contains(bytes); }

std::string lastPut(const std::string& path) {
  const auto put = everPut().last.find(path);
  return put == everPut().last.end() ? "" : put->second;
}

std::string contents(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return std::move(bytes).str();
}

bool exists(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

mode_t modeOf(const std::string& path) { return statusOf(path).st_mode & 07777; }

ino_t inodeOf(const std::string& path) { return statusOf(path).st_ino; }

void setMode(const std::string& path, mode_t mode) { need(::chmod(path.c_str(), mode) == 0, path); }

void makeFolder(const std::string& path) { need(::mkdir(path.c_str(), 0755) == 0, path); }

void makeLink(const std::string& path, const std::string& target) {
  need(::symlink(target.c_str(), path.c_str()) == 0, path);
}

void makePipe(const std::string& path) { need(::mkfifo(path.c_str(), 0600) == 0, path); }

}  // namespace brisko::test
