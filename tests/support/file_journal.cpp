#include "support/file_journal.h"

#include <stdexcept>

#if __has_include(<sys/inotify.h>)
#include <array>
#include <cstring>

#include <sys/inotify.h>
#include <unistd.h>

namespace brisko::test {

bool FileJournal::canBeKept() { return true; }

FileJournal::FileJournal(const std::string& folder) : watch_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  // Watches openings too, because the kernel merges two equal events that follow one another.
  if (watch_ < 0 || ::inotify_add_watch(watch_, folder.c_str(), IN_OPEN | IN_CLOSE_WRITE) < 0) {
    throw std::runtime_error("cannot watch " + folder);
  }
}

FileJournal::~FileJournal() { ::close(watch_); }

void FileJournal::watchOpenFiles(const std::string& folder) {
  if (::inotify_add_watch(watch_, folder.c_str(), IN_MODIFY) < 0) {
    throw std::runtime_error("cannot watch " + folder);
  }
}

std::vector<std::string> FileJournal::written() {
  std::vector<std::string> names;
  alignas(inotify_event) std::array<char, 65'536> bytes{};
  for (;;) {
    const ssize_t count = ::read(watch_, bytes.data(), bytes.size());
    if (count <= 0) return names;
    for (std::size_t at = 0; at < static_cast<std::size_t>(count);) {
      inotify_event event{};
      std::memcpy(&event, bytes.data() + at, sizeof event);
      if ((event.mask & (IN_CLOSE_WRITE | IN_MODIFY)) != 0)
        names.emplace_back(bytes.data() + at + sizeof event);
      at += sizeof event + event.len;
    }
  }
}

}  // namespace brisko::test

#else

namespace brisko::test {

bool FileJournal::canBeKept() { return false; }

FileJournal::FileJournal(const std::string& folder) : watch_(-1) {
  throw std::runtime_error("this kernel does not tell which files of " + folder + " are written");
}
FileJournal::~FileJournal() = default;
void FileJournal::watchOpenFiles(const std::string&) { throw std::logic_error(std::to_string(watch_)); }
std::vector<std::string> FileJournal::written() { throw std::logic_error(std::to_string(watch_)); }

}  // namespace brisko::test

#endif
