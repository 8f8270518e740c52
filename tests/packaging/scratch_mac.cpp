#include "packaging/scratch_mac.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>

namespace brisko::test {
namespace {

namespace fs = std::filesystem;

const std::string scripts = BRISKO_PACKAGING;
const std::string fakes = BRISKO_FAKES;

std::string described(const fs::directory_entry& entry, const std::string& root) {
  const std::string path = entry.path().string().substr(root.size());
  if (entry.is_symlink()) return path + " -> " + fs::read_symlink(entry.path()).string();
  std::ostringstream mode;
  mode << std::oct << modeOf(entry.path().string());
  return path + " " + mode.str();
}

Words linesOf(const std::string& text) {
  Words lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace

// With a blank in its name, as a Mac's volumes may have.
ScratchMac::ScratchMac() : root_(folder_.path("Macintosh HD")), mac_(folder_.path("mac")) {
  for (const char* path :
       {"/Applications", "/Library/LaunchDaemons", "/Library/Logs", "/Library/Application Support",
        "/etc/newsyslog.d", "/usr/local", "/var/db/receipts", "/tmp"}) {
    fs::create_directories(root_ + path);
  }
  makeFolder(mac_);
  before_ = everything();
}

Finished ScratchMac::install(const Words& arguments, const Environment& environment) const {
  Words all{"--program", fakes + "/brisko-daemon"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return runScript(scripts + "/install-service.sh", all, environment);
}

Finished ScratchMac::uninstall(const Words& arguments, const Environment& environment) const {
  return runScript(scripts + "/uninstall-service.sh", arguments, environment);
}

// The script keeps the process number of this shell and leads a group of its own, so that a fake can end it
// in the middle with all that it has started.
Finished ScratchMac::runScript(const std::string& path, const Words& arguments,
                               const Environment& environment) const {
  Words words{"--wait", "/bin/sh", "-c", R"(SCRIPT_PID=$$; export SCRIPT_PID; exec "$@")", "sh"};
  words.insert(words.end(), shell_.begin(), shell_.end());
  words.push_back(path);
  words.insert(words.end(), arguments.begin(), arguments.end());
  Environment all = environment;
  all.merge(this->environment());
  all.merge(Environment{{"PATH", fakes}});
  return run("/usr/bin/setsid", words, all);
}

Environment ScratchMac::environment() const {
  std::string shell;
  for (const std::string& word : shell_) shell += word + " ";
  return {{"BRISKO_ROOT", root_}, {"FAKE_MAC", mac_}, {"FAKES", fakes}, {"FAKE_SHELL", shell}};
}

void ScratchMac::put(const std::string& path, const std::string& text) const {
  fs::create_directories(fs::path(at(path)).parent_path());
  test::put(at(path), text);
}

void ScratchMac::putApp(const std::string& path) const { fs::create_directories(at(path) + "/Contents"); }

Words ScratchMac::everything() const {
  Words all;
  for (const auto& entry : fs::recursive_directory_iterator(root_)) all.push_back(described(entry, root_));
  std::sort(all.begin(), all.end());
  return all;
}

Words ScratchMac::added() const {
  const Words now = everything();
  Words result;
  std::set_difference(now.begin(), now.end(), before_.begin(), before_.end(), std::back_inserter(result));
  return result;
}

Words ScratchMac::addedToRun() const {
  Words files = added();
  std::erase_if(files, [](const std::string& file) {
    return file.starts_with("/Library/Brisko/share/") || file.starts_with("/usr/local/");
  });
  return files;
}

Words ScratchMac::journal() const { return linesOf(contents(mac_ + "/journal")); }

Words ScratchMac::journal(const std::string& tool) const {
  Words calls = journal();
  std::erase_if(calls, [&](const std::string& call) { return !call.starts_with(tool + " "); });
  return calls;
}

void ScratchMac::forgetJournal() const { static_cast<void>(std::remove((mac_ + "/journal").c_str())); }

std::optional<std::string> ScratchMac::job() const {
  if (!exists(mac_ + "/job")) return std::nullopt;
  return contents(mac_ + "/job");
}

bool ScratchMac::isHeld() const { return exists(mac_ + "/charge") && contents(mac_ + "/charge") == "held\n"; }

void ScratchMac::crash() const { test::put(mac_ + "/crashing", ""); }

Words installedFiles() {
  return {"/Library/Application Support/Brisko 755",
          "/Library/Application Support/Brisko/config.json 644",
          "/Library/Brisko 755",
          "/Library/Brisko/brisko 755",
          "/Library/Brisko/brisko-daemon 755",
          "/Library/Brisko/brisko-lab 755",
          "/Library/Brisko/made-folders 644",
          "/Library/Brisko/share 755",
          "/Library/Brisko/uninstall-service.sh 755",
          "/Library/LaunchDaemons/com.brisko.daemon.plist 644",
          "/Library/Logs/Brisko 755",
          "/Library/Logs/Brisko/daemon.err.log 644",
          "/etc/newsyslog.d/com.brisko.daemon.conf 644"};
}

}  // namespace brisko::test
