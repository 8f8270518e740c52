#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "base/files.h"
#include "client/doctor/gathering.h"

namespace brisko::client {
namespace {

namespace fs = std::filesystem;

// Nothing of a process that ends meanwhile.
std::string bytesOf(const fs::path& path) { return readWholeFile(path).value_or(""); }

// The parent in /proc/…/stat: after the name, which is in parentheses and may contain anything, and the
// state.
std::int64_t parentOf(const fs::path& process) {
  const std::string text = bytesOf(process / "stat");
  const std::size_t end = text.rfind(") ");
  return end == std::string::npos ? 0 : std::strtoll(text.c_str() + end + 4, nullptr, 10);
}

bool runsOn(const fs::path& process, const std::string& variable) {
  const std::string environment = '\0' + bytesOf(process / "environ");
  return environment.find('\0' + variable + '\0') != std::string::npos;
}

// Those with the same virtual Mac in their environment.
std::vector<DaemonProcess> daemonsOfThisMachine() {
  const char* folder = std::getenv("BRISKO_VIRTUAL_MAC");
  std::vector<DaemonProcess> daemons;
  if (folder == nullptr) return daemons;
  const std::string variable = std::string("BRISKO_VIRTUAL_MAC=") + folder;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    const std::int64_t id = std::strtoll(entry->path().filename().c_str(), nullptr, 10);
    if (id <= 0 || bytesOf(entry->path() / "comm") != "brisko-daemon\n") continue;
    if (runsOn(entry->path(), variable)) daemons.push_back({id, parentOf(entry->path())});
  }
  return daemons;
}

// Of the program that the running daemon was started from.
Gathered<std::string> versionOnTheDisk(const Evidence& evidence) {
  constexpr double longest = 1.5;  // seconds
  const auto& job = evidence.state.system.job;
  if (!job || !job->processId) return notGathered<std::string>("no daemon runs");
  const std::string program = "/proc/" + std::to_string(*job->processId) + "/exe";
  CommandResult result = runTogether({{{program, "--version"}, longest}}).front();
  if (!result.succeeded()) return notGathered<std::string>(clauseOf(result.end));
  return gathered(result.output.substr(0, result.output.find('\n')));
}

}  // namespace

Evidence gather(const Volume& volume) {
  Evidence evidence = gatherFiles(volume);
  if (volume.isForeign()) {
    explainGaps(evidence, onAnotherVolume);
    return evidence;
  }
  explainGaps(evidence, "no such command here");
  evidence.daemons = gathered(daemonsOfThisMachine());
  evidence.installedVersion = versionOnTheDisk(evidence);
  gatherHardware(evidence);
  gatherLater(evidence);
  return evidence;
}

}  // namespace brisko::client
