// The machine in a folder: which folders are refused, and that the machine is always consistent.

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/seam/live/live_folder.h"
#include "support/testing.h"

namespace brisko::virtual_mac::store_test {
namespace {

using namespace test;

std::string contentsOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

void overwrite(const std::string& path, std::size_t offset, const std::string& bytes) {
  std::fstream stream(path, std::ios::binary | std::ios::in | std::ios::out);
  stream.seekp(static_cast<std::streamoff>(offset));
  ASSERT_TRUE(stream << bytes << std::flush);
}

// Every file of the folder, with its contents, its mode and the time of its last change.
std::string pictureOf(const std::string& folder) {
  std::ostringstream picture;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    struct stat found {};
    ::stat(entry.path().c_str(), &found);
    picture << entry.path() << ' ' << found.st_mode << ' ' << found.st_mtim.tv_sec << '.'
            << found.st_mtim.tv_nsec << '\n';
    if (entry.is_regular_file()) picture << std::hash<std::string>{}(contentsOf(entry.path())) << '\n';
  }
  return picture.str();
}

// Why `folder` is refused, which must not change its contents.
std::string refusal(const std::string& folder) {
  const std::string before = std::filesystem::exists(folder) ? pictureOf(folder) : "";
  std::string reason;
  EXPECT_EQ(MachineStore::open(folder, reason), nullptr);
  EXPECT_EQ(std::filesystem::exists(folder) ? pictureOf(folder) : "", before);
  EXPECT_THAT(reason, ::testing::Not(HasSubstr("\n")));
  return reason;
}

TEST(MachineStore, isCreatedInAFolderThatDoesNotExistYet) {
  const ScratchFolder scratch;
  std::string reason;
  const std::string folder = scratch.path() + "/a/b";
  const auto store = MachineStore::create(folder, machineFromNow({.percent = 61}), reason);
  ASSERT_NE(store, nullptr) << reason;
  EXPECT_EQ(store->view().machine().powerSource.percent, 61);
  EXPECT_EQ(store->view().journal().written, 0U);
  EXPECT_EQ(store->folder(), folder);
  EXPECT_EQ(store->volumeRoot(), folder + "/volume");
  EXPECT_TRUE(std::filesystem::is_directory(folder + "/volume/Applications/Brisko.app"));
}

TEST(MachineStore, isCreatedInAnEmptyFolder) {
  const ScratchFolder scratch;
  std::string reason;
  EXPECT_NE(MachineStore::create(scratch.path(), machineFromNow(), reason), nullptr) << reason;
}

TEST(MachineStore, isNotCreatedInAFolderWithContents) {
  const ScratchFolder scratch;
  std::ofstream(scratch.path() + "/letter") << "dear";
  std::string reason;
  EXPECT_EQ(MachineStore::create(scratch.path(), machineFromNow(), reason), nullptr);
  EXPECT_EQ(reason, "the folder " + scratch.path() + " is not empty");
  EXPECT_FALSE(std::filesystem::exists(scratch.path() + "/machine"));
}

TEST(MachineStore, isNotCreatedBelowAFile) {
  const ScratchFolder scratch;
  const std::string file = scratch.path() + "/letter";
  std::ofstream(file) << "dear";
  std::string reason;
  EXPECT_EQ(MachineStore::create(file, machineFromNow(), reason), nullptr);
  EXPECT_THAT(reason, ::testing::StartsWith("the folder " + file + " cannot be made"));
  EXPECT_EQ(MachineStore::create(file + "/mac", machineFromNow(), reason), nullptr);
  EXPECT_THAT(reason, ::testing::StartsWith("the folder " + file + "/mac cannot be made: "));
}

TEST(MachineStore, isReadableByItsOwnerOnly) {
  ::umask(0);
  const LiveFolder folder;
  for (const char* name : {"/machine", "/journal"}) {
    struct stat found {};
    ASSERT_EQ(::stat((folder.path() + name).c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0600U) << name;
  }
}

TEST(MachineStore, showsAnUpdateToAllProcessesThatMapIt) {
  LiveFolder folder;
  std::string reason;
  const auto other = MachineStore::open(folder.path(), reason);
  ASSERT_NE(other, nullptr) << reason;
  for (const std::int64_t cycles : {1, 2, 3}) {
    folder.store().update().machine().battery.cycles = cycles;
    EXPECT_EQ(other->view().machine().battery.cycles, cycles);
  }
}

TEST(MachineStore, keepsTheMachineAndTheJournalAfterItIsClosed) {
  const ScratchFolder scratch;
  std::string reason;
  {
    const auto store = MachineStore::create(scratch.path(), machineFromNow(), reason);
    const auto update = store->update();
    update.machine().battery.cycles = 77;
    update.journal().entries[0].key = keyCode("CHTE");
    update.journal().written = 1;
  }
  const auto store = MachineStore::open(scratch.path(), reason);
  ASSERT_NE(store, nullptr) << reason;
  EXPECT_EQ(store->view().machine().battery.cycles, 77);
  EXPECT_EQ(store->view().journal().written, 1U);
  EXPECT_EQ(store->view().journal().entries[0].key, keyCode("CHTE"));
}

TEST(MachineStore, refusesAFolderThatIsMissing) {
  const ScratchFolder scratch;
  EXPECT_EQ(refusal(scratch.path() + "/none"), "the folder " + scratch.path() + "/none does not exist");
}

TEST(MachineStore, refusesAFolderWithoutAMachine) {
  const ScratchFolder scratch;
  EXPECT_EQ(refusal(scratch.path()), "the folder " + scratch.path() + " holds no machine");
}

TEST(MachineStore, refusesAFileThatIsNotAMachine) {
  const ScratchFolder scratch;
  const std::string file = scratch.path() + "/machine";
  const std::string reason = "the file " + file + " is not a virtual Mac";
  std::ofstream(file) << "{\"model\": \"air13\"}";
  EXPECT_EQ(refusal(scratch.path()), reason);
  std::ofstream(file) << std::string(100'000, 'x');
  EXPECT_EQ(refusal(scratch.path()), reason);
}

TEST(MachineStore, refusesOtherThanFilesWithoutBlocking) {
  const ScratchFolder scratch;
  const std::string path = scratch.path() + "/machine";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(refusal(scratch.path()), "the file " + path + " is not a virtual Mac");
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_THAT(refusal(scratch.path()), HasSubstr("cannot be opened: "));
}

TEST(MachineStore, refusesAnotherVersionAndNamesBoth) {
  const LiveFolder folder;
  const std::uint32_t version = machineVersion + 6;
  std::string bytes(sizeof version, '\0');
  std::memcpy(bytes.data(), &version, sizeof version);
  overwrite(folder.path() + "/machine", 16, bytes);
  EXPECT_EQ(refusal(folder.path()), "the machine in " + folder.path() + " is of version " +
                                        std::to_string(version) + ", this program works with version " +
                                        std::to_string(machineVersion));
}

TEST(MachineStore, refusesAnotherVersionWhateverItsSize) {
  const LiveFolder folder;
  overwrite(folder.path() + "/machine", 16, std::string(1, '\x7f'));
  std::filesystem::resize_file(folder.path() + "/machine", 64);
  EXPECT_THAT(refusal(folder.path()), HasSubstr("is of version 127"));
}

TEST(MachineStore, refusesAMachineThatWasTruncatedAnywhere) {
  LiveFolder folder;
  const std::string file = folder.path() + "/machine";
  const std::string whole = contentsOf(file);
  for (const std::size_t length :
       {std::size_t{0}, std::size_t{1}, std::size_t{15}, std::size_t{16}, std::size_t{19}, std::size_t{20},
        std::size_t{31}, std::size_t{32}, whole.size() / 2, whole.size() - 1}) {
    std::ofstream(file, std::ios::binary) << whole.substr(0, length);
    EXPECT_EQ(refusal(folder.path()), "the machine in " + folder.path() + " is half-written") << length;
  }
  std::ofstream(file, std::ios::binary) << whole << 'x';
  EXPECT_EQ(refusal(folder.path()), "the machine in " + folder.path() + " is half-written");
  std::ofstream(file, std::ios::binary) << whole;
  std::string reason;
  EXPECT_NE(MachineStore::open(folder.path(), reason), nullptr) << reason;
}

TEST(MachineStore, refusesATornHeader) {
  for (const std::size_t offset : {20U, 24U, 28U}) {
    const LiveFolder folder;
    overwrite(folder.path() + "/machine", offset, "\xff\xff");
    EXPECT_EQ(refusal(folder.path()), "the machine in " + folder.path() + " is half-written") << offset;
  }
}

TEST(MachineStore, refusesACopyThatWasNeverWritten) {
  const LiveFolder folder;
  const std::size_t size = std::filesystem::file_size(folder.path() + "/machine");
  overwrite(folder.path() + "/machine", size / 2, std::string(size / 2, '\0'));
  EXPECT_EQ(refusal(folder.path()), "the machine in " + folder.path() + " is half-written");
}

TEST(MachineStore, refusesAMachineWithoutItsJournal) {
  const LiveFolder folder;
  const std::string reason = "the journal of the machine in " + folder.path() + " is half-written or missing";
  std::filesystem::resize_file(folder.path() + "/journal", 4096);
  EXPECT_EQ(refusal(folder.path()), reason);
  std::filesystem::remove(folder.path() + "/journal");
  EXPECT_EQ(refusal(folder.path()), reason);
}

// --- Killed at any point

// Writes `mark` into the machine from end to end, and a journal entry with it.
void mark(const MachineStore::Update& update, std::int64_t mark) {
  Machine& machine = update.machine();
  machine.battery.cycles = mark;
  for (SmcKey& key : machine.smc.keys) key.releaseAt = static_cast<double>(mark);
  for (Planned& planned : machine.planned) planned.order = static_cast<std::uint64_t>(mark);
  Journal& journal = update.journal();
  journal.entries[journal.written % Journal::capacity].status = static_cast<std::uint32_t>(mark);
  journal.written += 1;
  machine.machineAnchor = static_cast<double>(mark);
}

// The mark of a consistent machine with its complete journal; -1 and a test failure for a mixture of marks.
std::int64_t wholeMark(MachineStore& store) {
  const auto look = store.view();
  const Machine& machine = look.machine();
  const std::int64_t cycles = machine.battery.cycles;
  bool whole = machine.machineAnchor == static_cast<double>(cycles) &&
               look.journal().written == static_cast<std::uint64_t>(cycles);
  for (const SmcKey& key : machine.smc.keys) whole &= key.releaseAt == static_cast<double>(cycles);
  for (const Planned& planned : machine.planned) whole &= planned.order == static_cast<std::uint64_t>(cycles);
  if (cycles > 0) {
    const auto& last = look.journal().entries[static_cast<std::size_t>(cycles - 1) % Journal::capacity];
    whole &= last.status == static_cast<std::uint32_t>(cycles);
  }
  EXPECT_TRUE(whole) << "a mixture around mark " << cycles;
  return whole ? cycles : -1;
}

Machine unmarked() {
  Machine machine = machineFromNow();
  machine.battery.cycles = 0;
  for (SmcKey& key : machine.smc.keys) key.releaseAt = 0;
  for (Planned& planned : machine.planned) planned.order = 0;
  machine.machineAnchor = 0;
  return machine;
}

std::unique_ptr<MachineStore> openAgain(const std::string& folder) {
  std::string reason;
  auto store = MachineStore::open(folder, reason);
  EXPECT_NE(store, nullptr) << reason;
  return store;
}

TEST(MachineStore, keepsItsOldContentIfItsWriterIsKilledInAnUpdate) {
  const LiveFolder folder(unmarked());
  const pid_t child = ::fork();
  if (child == 0) {
    const auto store = openAgain(folder.path());
    mark(store->update(), 1);
    const auto update = store->update();
    mark(update, 2);
    ::raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));

  const auto store = openAgain(folder.path());
  EXPECT_EQ(wholeMark(*store), 1);
  mark(store->update(), 2);
  EXPECT_EQ(wholeMark(*store), 2);
}

TEST(MachineStore, staysConsistentWheneverItsWriterIsKilled) {
  const LiveFolder folder(unmarked());
  void* memory = ::mmap(nullptr, sizeof(std::atomic<std::int64_t>), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto& written = *new (memory) std::atomic<std::int64_t>(0);

  constexpr int rounds = 300;
  for (int round = 0; round < rounds; ++round) {
    const std::int64_t before = written;
    const pid_t child = ::fork();
    if (child == 0) {
      const auto store = openAgain(folder.path());
      for (std::int64_t next = wholeMark(*store) + 1;; ++next) {
        mark(store->update(), next);
        written = next;
      }
    }
    // The child only updates, so from its second update on it is killed somewhere in an update.
    while (written < before + 2 + round % 7) ::sched_yield();
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);

    const auto store = openAgain(folder.path());
    const std::int64_t seen = wholeMark(*store);
    // The last published update is kept; at most the interrupted one was published too.
    ASSERT_GE(seen, written);
    ASSERT_LE(seen, written + 1);
    written = seen;
  }
}

TEST(MachineStore, serialisesUpdatesOfManyProcesses) {
  const LiveFolder folder(unmarked());
  constexpr std::int64_t processes = 4;
  constexpr std::int64_t updatesEach = 100;
  for (std::int64_t process = 0; process < processes; ++process) {
    if (::fork() != 0) continue;
    const auto store = openAgain(folder.path());
    for (std::int64_t time = 0; time < updatesEach; ++time) {
      const auto update = store->update();
      const std::int64_t next = update.machine().battery.cycles + 1;
      ::sched_yield();  // gives the other processes a chance to interfere
      mark(update, next);
    }
    ::_exit(0);
  }
  for (std::int64_t process = 0; process < processes; ++process) ::wait(nullptr);
  EXPECT_EQ(wholeMark(*openAgain(folder.path())), processes * updatesEach);
}

}  // namespace
}  // namespace brisko::virtual_mac::store_test
