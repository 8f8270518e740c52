#include "daemon/config_watch.h"

#include "base/options.h"
#include "base/volume_path.h"
#include "policy/evaluation.h"

namespace brisko {
namespace {

constexpr platform::FileEvents everyChange = platform::fileWritten | platform::fileExtended |
                                             platform::fileAttributes | platform::fileDeleted |
                                             platform::fileRenamed;
constexpr platform::FileEvents fileWentAway = platform::fileDeleted | platform::fileRenamed;

// The tick comes first: a replaced file is read through its path without waiting for the new watch.
void configChanged(platform::FileEvents events) {
  evaluate();
  if ((events & fileWentAway) != 0 && gConfigSource) platform::cancelWatch(*gConfigSource);
}

void watchNextFile(int descriptor) {
  platform::closeWatched(descriptor);
  gConfigSource.reset();
  watchConfig();
}

}  // namespace

void watchConfig() {
  const auto descriptor = platform::openForEvents(onVolume(gConfigPath));
  if (!descriptor) return;
  gConfigSource = platform::watchFile(*descriptor, everyChange, configChanged,
                                      [file = *descriptor] { watchNextFile(file); });
}

}  // namespace brisko
