// sim/process/kept_files.h
// The files of a process in virtual time (base/files.h). Between two pauses only the process itself works on
// its volume. So the system is not called where nobody can tell the difference:
//
// - the file that it reads again and again, the settings, is read from the volume once and then answered from
//   memory;
// - the files that it overwrites again and again, the status and the statistics, are kept in memory that the
//   process shares with the one that runs it, and are on the volume whenever somebody can look: after a pause
//   or the end of the process, however it ends, and before anything else that the process does with files.
//
// A file is kept from the second time on that it is overwritten between two pauses. The first time goes to
// the volume and shows that the file can be written, is a regular one with one name, and is watched by
// nobody. Everything else goes to the volume at once. So does everything in a process whose disk is full.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace brisko::sim {

// In memory that the processes share.
struct KeptFile {
  static constexpr std::size_t longestPath = 511;
  static constexpr std::size_t mostBytes = 4096;
  struct Text {
    std::uint32_t size;
    std::array<char, mostBytes> bytes;
  };

  std::array<char, longestPath + 1> path;
  // The one that is not valid is overwritten, so that there is a whole text at any moment.
  std::array<Text, 2> texts;
  std::atomic<std::uint32_t> valid;
  std::atomic<bool> waits;  // not on the volume yet
};
struct KeptFiles {
  std::array<KeptFile, 4> files;
};

// --- In the process

// From now on this process keeps files in `memory`; before this call everything goes to the volume at once.
void keepFilesIn(KeptFiles& memory);
// To be called at the beginning and after each pause, because others may have changed everything. `keep`:
// until the next pause only this process will act on the volume, and its disk is not full.
void resumeWithFiles(bool keep);

// The files that were kept instead of written, since the last call, and those whose kept text was written to
// the volume meanwhile, which is no new writing. Unmapped paths, each once.
struct KeptWrites {
  std::vector<std::string> kept;
  std::vector<std::string> delayed;
};
[[nodiscard]] KeptWrites takeKeptWrites();

// --- In the process that runs it

// Writes to the volume what waits. To be called while the other process is paused or has ended.
void writeKeptFiles(KeptFiles& memory);

}  // namespace brisko::sim
