#include <filesystem>
#include <fstream>

#include "platform/clock.h"
#include "platform/file_watch.h"
#include "platform/run_loop.h"
#include "tools/first_light/questions.h"

namespace brisko::first_light {
namespace {

namespace fs = std::filesystem;

constexpr double patience = 5;  // seconds

// What is removed, and whether the watch on it has reported that.
struct Removal {
  std::string name;
  fs::path path;
  bool reported = false;
  double start = 0;
};

void watch(Removal& removal, int& missing) {
  const auto descriptor = platform::openForEvents(removal.path.string());
  if (!descriptor) return;
  ++missing;
  static_cast<void>(platform::watchFile(
      *descriptor, platform::fileDeleted | platform::fileRenamed,
      [&removal, &missing](platform::FileEvents) {
        if (removal.reported) return;
        removal.reported = true;
        answerAfter(removal.name, "reported", removal.start);
        if (--missing == 0) platform::stopMain();
      },
      [] {}));
}

}  // namespace

int watchRemovals(const std::string& folder) {
  Removal file{.name = "file", .path = fs::path(folder) / "watched-file"};
  Removal bundle{.name = "bundle", .path = fs::path(folder) / "Watched.app"};
  std::ofstream(file.path) << "{}";
  fs::create_directories(bundle.path / "Contents" / "MacOS");
  std::ofstream(bundle.path / "Contents" / "Info.plist") << "<plist/>";
  int missing = 0;
  watch(file, missing);
  watch(bundle, missing);
  platform::postMain([&] {
    file.start = bundle.start = platform::uptime();
    fs::remove(file.path);
    fs::remove_all(bundle.path);
  });
  platform::postMainAfter(patience, platform::stopMain);
  platform::runMain();
  for (const Removal* removal : {&file, &bundle}) {
    if (!removal->reported) answer(removal->name, "not reported");
  }
  return file.reported && bundle.reported ? 0 : 1;
}

}  // namespace brisko::first_light
