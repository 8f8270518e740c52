#include "sim/machine/machine_store.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brisko::virtual_mac {

namespace {

using Magic = std::array<char, 16>;
constexpr Magic ourMagic = {"brisko-machine\n"};

// The file "machine". Its first two fields never move, so that every version can recognise the file and its
// version.
struct Header {
  Magic magic;
  std::uint32_t version;
  std::uint32_t copyBytes;
  std::uint32_t journalBytes;
  std::atomic<std::uint32_t> shown;  // index of the current copy
};
struct Copy {
  Machine machine;
  // The journal has a file of its own, too large for a second copy. The number here counts; entries beyond it
  // belong to an interrupted update.
  std::uint64_t journalWritten;
};
struct MachineFile {
  Header header;
  std::array<Copy, 2> copies;
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

// A descriptor that is closed by its destructor.
class File {
 public:
  File() = default;
  explicit File(int descriptor) : descriptor_(descriptor) {}
  File(File&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  File& operator=(File&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~File() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

template <class Contents>
Contents* mapped(int descriptor) {
  const int sharing = descriptor < 0 ? MAP_SHARED | MAP_ANONYMOUS : MAP_SHARED;
  void* memory = ::mmap(nullptr, sizeof(Contents), PROT_READ | PROT_WRITE, sharing, descriptor, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<Contents*>(memory);
}

std::string errorText() { return std::strerror(errno); }

// Writes all bytes instead of only setting the length: a full disk then shows here, not as a fault in the
// mapping later.
bool writeNewFile(const std::string& path, const void* bytes, std::size_t count) {
  const File file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file.isOpen()) return false;
  const auto* next = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = ::write(file.descriptor(), next, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    next += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

// Under its final name the file is either complete or absent.
bool writeMachineFile(const std::string& folder, const Machine& machine) {
  const auto contents = std::make_unique<MachineFile>();
  contents->header.magic = ourMagic;
  contents->header.version = machineVersion;
  contents->header.copyBytes = sizeof(Copy);
  contents->header.journalBytes = sizeof(Journal);
  contents->copies[0].machine = machine;
  contents->copies[1].machine = machine;
  const std::string unfinished = folder + "/machine.new";
  return writeNewFile(unfinished, contents.get(), sizeof(MachineFile)) &&
         ::rename(unfinished.c_str(), (folder + "/machine").c_str()) == 0;
}

bool writeJournalFile(const std::string& folder) {
  const auto contents = std::make_unique<Journal>();
  return writeNewFile(folder + "/journal", contents.get(), sizeof(Journal));
}

bool isFolder(const std::string& path) {
  struct stat found {};
  return ::stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

// The size of a regular file; none for anything else.
std::optional<std::uint64_t> regularSize(const File& file) {
  struct stat found {};
  if (::fstat(file.descriptor(), &found) != 0 || !S_ISREG(found.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(found.st_size);
}

// Non-blocking: opening never waits, whatever is at the path.
File openWhole(const std::string& path) {
  return File(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
}

// Why the file is not a machine that this program can use; empty when it is one.
std::string flawOf(const File& file, const std::string& folder) {
  std::string notOurs = "the file " + folder + "/machine is not a virtual Mac";
  std::string halfWritten = "the machine in " + folder + " is half-written";
  const std::optional<std::uint64_t> size = regularSize(file);
  if (!size) return notOurs;

  struct Prefix {
    Magic magic;
    std::uint32_t version;
    std::uint32_t copyBytes;
    std::uint32_t journalBytes;
    std::uint32_t shown;
  } prefix{};
  static_assert(sizeof(Prefix) == sizeof(Header));
  const ssize_t count = ::pread(file.descriptor(), &prefix, sizeof prefix, 0);
  const std::size_t known = count < 0 ? 0 : static_cast<std::size_t>(count);
  if (std::memcmp(&prefix.magic, &ourMagic, std::min(known, sizeof(Magic))) != 0) return notOurs;
  if (known < offsetof(Prefix, copyBytes)) return halfWritten;
  if (prefix.version != machineVersion) {
    return "the machine in " + folder + " is of version " + std::to_string(prefix.version) +
           ", this program works with version " + std::to_string(machineVersion);
  }
  if (known < sizeof prefix || *size != sizeof(MachineFile) || prefix.copyBytes != sizeof(Copy) ||
      prefix.journalBytes != sizeof(Journal) || prefix.shown > 1) {
    return halfWritten;
  }
  return {};
}

}  // namespace

struct MachineStore::Impl {
  std::string folder;
  std::string volumeRoot;
  Machine* memory = nullptr;        // in memory: the machine itself
  MachineFile* contents = nullptr;  // in a folder: the mapped file
  Journal* journal = nullptr;
  File file;
  // The lock on the file excludes other processes; this one excludes other threads of this process.
  std::mutex threads;

  ~Impl() {
    if (memory != nullptr) ::munmap(memory, sizeof(Machine));
    if (contents != nullptr) ::munmap(contents, sizeof(MachineFile));
    if (journal != nullptr) ::munmap(journal, sizeof(Journal));
  }

  void lock() {
    threads.lock();
    while (::flock(file.descriptor(), LOCK_EX) != 0 && errno == EINTR) continue;
    const std::uint64_t written = shown().journalWritten;
    if (journal->written != written) journal->written = written;  // an update was interrupted
  }
  void unlock() {
    ::flock(file.descriptor(), LOCK_UN);
    threads.unlock();
  }
  [[nodiscard]] Copy& shown() const {
    return contents->copies[contents->header.shown.load(std::memory_order_acquire)];
  }
  [[nodiscard]] Copy& hidden() const {
    return contents->copies[1 - contents->header.shown.load(std::memory_order_relaxed)];
  }
  void showHidden() {
    hidden().journalWritten = journal->written;
    const std::uint32_t next = 1 - contents->header.shown.load(std::memory_order_relaxed);
    contents->header.shown.store(next, std::memory_order_release);
  }
};

MachineStore::MachineStore() : impl_(std::make_unique<Impl>()) {}
MachineStore::~MachineStore() = default;

std::unique_ptr<MachineStore> MachineStore::inMemory(const Machine& machine) {
  std::unique_ptr<MachineStore> store(new MachineStore);
  store->impl_->memory = mapped<Machine>(-1);
  store->impl_->journal = mapped<Journal>(-1);
  if (store->impl_->memory == nullptr || store->impl_->journal == nullptr) return nullptr;
  *store->impl_->memory = machine;
  return store;
}

std::unique_ptr<MachineStore> MachineStore::create(const std::string& folder, const Machine& machine,
                                                   std::string& reason) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (!isFolder(folder)) {
    reason = "the folder " + folder + " cannot be made" + (error ? ": " + error.message() : "");
    return nullptr;
  }
  const bool empty = std::filesystem::is_empty(folder, error);
  if (error || !empty) {
    reason = "the folder " + folder + (error ? " cannot be read: " + error.message() : " is not empty");
    return nullptr;
  }
  // The machine file comes last, so an unfinished folder contains none.
  if (!makeVolume(folder + "/volume") || !writeJournalFile(folder) || !writeMachineFile(folder, machine)) {
    reason = "the machine in " + folder + " cannot be written: " + errorText();
    for (const std::string_view made : {"/machine.new", "/journal", "/volume"}) {
      std::filesystem::remove_all(folder + std::string(made), error);
    }
    return nullptr;
  }
  return open(folder, reason);
}

std::unique_ptr<MachineStore> MachineStore::open(const std::string& folder, std::string& reason) {
  if (!isFolder(folder)) {
    reason = "the folder " + folder + " does not exist";
    return nullptr;
  }
  File file = openWhole(folder + "/machine");
  if (!file.isOpen()) {
    reason = errno == ENOENT ? "the folder " + folder + " holds no machine"
                             : "the machine in " + folder + " cannot be opened: " + errorText();
    return nullptr;
  }
  reason = flawOf(file, folder);
  if (!reason.empty()) return nullptr;
  const File journal = openWhole(folder + "/journal");
  if (!journal.isOpen() || regularSize(journal) != sizeof(Journal)) {
    reason = "the journal of the machine in " + folder + " is half-written or missing";
    return nullptr;
  }

  std::unique_ptr<MachineStore> store(new MachineStore);
  Impl& inside = *store->impl_;
  inside.contents = mapped<MachineFile>(file.descriptor());
  inside.journal = mapped<Journal>(journal.descriptor());
  if (inside.contents == nullptr || inside.journal == nullptr) {
    reason = "the machine in " + folder + " cannot be mapped: " + errorText();
    return nullptr;
  }
  if (inside.contents->copies[0].machine.version != machineVersion ||
      inside.contents->copies[1].machine.version != machineVersion) {
    reason = "the machine in " + folder + " is half-written";
    return nullptr;
  }
  inside.file = std::move(file);
  inside.folder = folder;
  inside.volumeRoot = folder + "/volume";
  return store;
}

MachineStore::View MachineStore::view() {
  if (impl_->memory != nullptr) return {*this, *impl_->memory, *impl_->journal};
  impl_->lock();
  return {*this, impl_->shown().machine, *impl_->journal};
}

MachineStore::View::~View() {
  if (store_.impl_->memory == nullptr) store_.impl_->unlock();
}

MachineStore::Update MachineStore::update() {
  if (impl_->memory != nullptr) return {*this, *impl_->memory, *impl_->journal};
  impl_->lock();
  impl_->hidden() = impl_->shown();
  return {*this, impl_->hidden().machine, *impl_->journal};
}

MachineStore::Update::~Update() {
  if (store_.impl_->memory != nullptr) return;
  store_.impl_->showHidden();
  store_.impl_->unlock();
}

const std::string& MachineStore::folder() const { return impl_->folder; }
const std::string& MachineStore::volumeRoot() const { return impl_->volumeRoot; }
void MachineStore::setVolumeRoot(std::string root) { impl_->volumeRoot = std::move(root); }

bool makeVolume(const std::string& root) {
  for (const std::string_view folder :
       {"/Library/Application Support", "/Library/Logs", "/Applications/Brisko.app"}) {
    std::error_code error;
    std::filesystem::create_directories(root + std::string(folder), error);
    if (error) return false;
  }
  return true;
}

}  // namespace brisko::virtual_mac
