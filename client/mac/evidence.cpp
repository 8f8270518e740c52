#include <sys/stat.h>

#include "client/doctor/gathering.h"
#include "platform/host.h"

namespace brisko::client {
namespace {

constexpr const char* notThere = "there is no such file";

double secondsOf(const timespec& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void gatherTimes(Evidence& evidence) {
  struct stat file {};
  const bool hasSettings = ::stat(evidence.state.settingsFile.path.c_str(), &file) == 0;
  evidence.configCreatedAt =
      hasSettings ? gathered(secondsOf(file.st_birthtimespec)) : notGathered<double>(notThere);
  const bool hasProgram = ::stat(installedProgram, &file) == 0;
  evidence.programChangedAt =
      hasProgram ? gathered(secondsOf(file.st_mtimespec)) : notGathered<double>(notThere);
}

}  // namespace

Evidence gather(const Volume& volume) {
  Evidence evidence = gatherFiles(volume);
  if (volume.isForeign()) {
    explainGaps(evidence, onAnotherVolume);
    return evidence;
  }
  gatherTimes(evidence);
  gatherHardware(evidence);
  gatherFromCommands(evidence, platform::effectiveUserId() == 0, runTogether);
  gatherLater(evidence);
  return evidence;
}

}  // namespace brisko::client
