#include "process/live_mac.h"

#include <algorithm>
#include <cstdlib>

#include <sys/stat.h>

#include "support/testing.h"

namespace brisko::test {

LiveMac::LiveMac(const Words& options) {
  Words all = options;
  if (std::ranges::find(options, "--start") == options.end()) {
    all.insert(all.end(), {"--start", std::to_string(startTime)});
  }
  static_cast<void>(vmac("new", all));
}

std::string LiveMac::vmac(const std::string& verb, const Words& words) const {
  Words all{verb, folder()};
  all.insert(all.end(), words.begin(), words.end());
  const Finished finished = run("brisko-vmac", all);
  EXPECT_EQ(finished.status, 0) << verb << ": " << finished.errors;
  return finished.output;
}

std::unique_ptr<Program> LiveMac::daemon(const Words& arguments, Environment environment) const {
  environment["BRISKO_VIRTUAL_MAC"] = folder();
  return std::make_unique<Program>("brisko-daemon", arguments, environment);
}

void LiveMac::settings(const std::string& json) const {
  const std::string directory = folder() + "/volume/Library/Application Support/Brisko";
  static_cast<void>(::mkdir(directory.c_str(), 0755));
  put(directory + "/config.json", json);
}

std::string LiveMac::log() const { return contents(folder() + "/volume/Library/Logs/Brisko/daemon.log"); }

bool LiveMac::logs(const std::string& text) const {
  return eventually([&] { return log().find(text) != std::string::npos; });
}

std::string LiveMac::key(const std::string& name) const {
  const std::string shown = vmac("show");
  const std::string label = "\n  " + name + " ";
  const std::size_t at = shown.find(label);
  if (at == std::string::npos) return "";
  const std::size_t begin = at + label.size();
  return shown.substr(begin, shown.find_first_of(",\n", begin) - begin);
}

double LiveMac::charge() const {
  const std::string shown = vmac("show");
  const std::string label = "\ncharge ";
  const std::size_t at = shown.find(label);
  return at == std::string::npos ? -1 : std::strtod(shown.c_str() + at + label.size(), nullptr);
}

std::size_t countOf(const std::string& text, const std::string& piece) {
  std::size_t count = 0;
  for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++count;
  return count;
}

}  // namespace brisko::test
