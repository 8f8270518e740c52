#include "client/doctor/command_text.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string_view>

#include "base/json_file.h"
#include "base/options.h"

namespace brisko::client {
namespace {

constexpr std::string_view jobLabel = "com.brisko.daemon";
constexpr std::string_view creatorKey = "\"IOUserClientCreator\" = \"pid ";

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

template <typename Take>
void forEachLine(const std::string& text, const Take& take) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) take(withoutBlanks(line));
}

std::string_view nameIn(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// Where macOS keeps its own programs.
bool isOfTheSystem(std::string_view path) {
  constexpr std::array folders{"/System/", "/usr/libexec/", "/usr/sbin/", "/usr/bin/", "/sbin/", "/bin/"};
  return std::any_of(folders.begin(), folders.end(),
                     [path](std::string_view folder) { return path.starts_with(folder); });
}

bool isOurs(std::string_view path) { return nameIn(path) == "brisko-daemon" || nameIn(path) == "brisko"; }

}  // namespace

// "com.brisko.daemon" => disabled; before macOS 13 "=> true".
bool isDisabledIn(const std::string& list) {
  bool disabled = false;
  forEachLine(list, [&disabled](std::string_view line) {
    if (line.find("\"" + std::string(jobLabel) + "\"") == std::string_view::npos) return;
    disabled = line.ends_with("=> disabled") || line.ends_with("=> true");
  });
  return disabled;
}

// Items begin with "#" and a number; each has a line such as "Disposition: [enabled, disallowed, notified]".
std::optional<bool> backgroundAllowedIn(const std::string& dump) {
  std::optional<bool> allowed;
  std::optional<bool> ofThisItem;
  bool isTheJob = false;
  const auto closeItem = [&] {
    if (isTheJob && ofThisItem) allowed = ofThisItem;
    ofThisItem.reset();
    isTheJob = false;
  };
  forEachLine(dump, [&](std::string_view line) {
    if (line.starts_with('#')) closeItem();
    if (line.starts_with("Disposition:")) ofThisItem = line.find("disallowed") == std::string_view::npos;
    const bool names = line.starts_with("Identifier:") || line.starts_with("URL:");
    if (names && line.find(jobLabel) != std::string_view::npos) isTheJob = true;
  });
  closeItem();
  return allowed;
}

std::vector<ProcessLine> processesIn(const std::string& list) {
  std::vector<ProcessLine> processes;
  std::istringstream lines(list);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    ProcessLine process;
    std::string path;
    if (!(words >> process.id >> process.parent) || !std::getline(words, path)) continue;
    process.path = withoutBlanks(path);
    processes.push_back(std::move(process));
  }
  return processes;
}

std::vector<DaemonProcess> daemonsIn(const std::vector<ProcessLine>& processes) {
  std::vector<DaemonProcess> daemons;
  for (const ProcessLine& process : processes) {
    if (nameIn(process.path) == "brisko-daemon") daemons.push_back({process.id, process.parent});
  }
  return daemons;
}

std::vector<std::string> otherProgramsIn(const std::string& entries,
                                         const std::vector<ProcessLine>& processes) {
  std::vector<std::string> programs;
  for (std::size_t at = entries.find(creatorKey); at != std::string::npos;
       at = entries.find(creatorKey, at + 1)) {
    const std::size_t begin = at + creatorKey.size();
    const auto id = parseInteger(std::string_view(entries).substr(begin, entries.find(',', begin) - begin));
    const auto process = std::find_if(processes.begin(), processes.end(),
                                      [&id](const ProcessLine& each) { return each.id == id; });
    if (process == processes.end() || isOfTheSystem(process->path) || isOurs(process->path)) continue;
    if (std::find(programs.begin(), programs.end(), process->path) == programs.end())
      programs.push_back(process->path);
  }
  return programs;
}

// Each begins with a line such as "_computerlevel[1] attribute: name: …", of which each has several.
std::int64_t profilesIn(const std::string& list) {
  std::int64_t count = 0;
  forEachLine(list, [&count](std::string_view line) {
    if (line.find("attribute: profileIdentifier:") != std::string_view::npos) ++count;
  });
  return count;
}

std::optional<std::vector<std::string>> jobArgumentsInFile(const std::string& json) {
  const auto object = parseJson(json);
  if (!object || !object->is_object()) return std::nullopt;
  const auto list = object->find("ProgramArguments");
  if (list == object->end() || !list->is_array()) return std::nullopt;
  std::vector<std::string> arguments;
  for (const Json& each : *list) {
    if (each.is_string()) arguments.push_back(each.get<std::string>());
  }
  return arguments;
}

}  // namespace brisko::client
