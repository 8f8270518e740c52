#include <algorithm>
#include <optional>
#include <set>
#include <sstream>

#include "tidy/cpp_text.h"
#include "tidy/tree_check.h"

namespace brisko::test {
namespace {

const std::string floorsPath = "tests/tidy/floors.txt";

// The seam lies below all floors.
constexpr int ground = -1;

// Files without "src/" and extension, as in "core/log", with their floor.
using Floors = std::map<std::string, int>;

using IncludeGraph = std::map<std::string, std::vector<std::string>>;

bool isNumber(const std::string& word) {
  return !word.empty() && word.size() < 4 && std::all_of(word.begin(), word.end(), [](char character) {
    return character >= '0' && character <= '9';
  });
}

Floors readFloors(const std::string& list, Findings& findings) {
  Floors floors;
  std::istringstream lines(list);
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    std::istringstream words(line.substr(0, line.find('#')));
    std::string floor;
    if (!(words >> floor)) continue;
    if (!isNumber(floor)) {
      findings.push_back(place(floorsPath, number) + "a line begins with the number of a floor");
      continue;
    }
    for (std::string file; words >> file;) {
      if (floors.emplace(file, std::stoi(floor)).second) continue;
      findings.push_back(place(floorsPath, number) + file + " stands on two floors; keep one");
    }
  }
  return floors;
}

struct Place {
  std::string folder;
  std::optional<int> floor;  // none in a folder that implements the seam: it is outside the house
};

// None for a file that has no floor and should have one.
std::optional<Place> placeOf(const std::string& path, const Floors& floors) {
  const std::string folder = folderOf(path);
  if (folder == "src/platform") return Place{folder, ground};
  if (inPlatform(path)) {
    const std::size_t implementation = std::string("src/platform/").size();
    return Place{path.substr(0, path.find('/', implementation)), std::nullopt};
  }
  const auto floor = floors.find(withoutExtension(path.substr(std::string("src/").size())));
  if (floor == floors.end()) return std::nullopt;
  return Place{folder, floor->second};
}

// Why a file at `from` may not include one at `to`; empty when it may.
std::string whyNot(const Place& from, const Place& to) {
  if (from.folder == to.folder && from.floor == to.floor) return "";
  if (!to.floor) return to.folder + " is for itself alone; call the seam's headers in src/platform";
  if (!from.floor) {
    return *to.floor <= 0 ? ""
                          : "what implements the seam knows nothing above floor 0; pass it what it needs";
  }
  if (*to.floor < *from.floor) return "";
  const std::string floors =
      " (floor " + std::to_string(*from.floor) + " to " + std::to_string(*to.floor) + ")";
  if (*to.floor == *from.floor) {
    return "it points to another folder on its own floor" + floors +
           "; move what both need further down, or one of "
           "the two to another floor in " +
           floorsPath;
  }
  return "it points upwards" + floors + "; hand the value down, or move what is needed to a lower floor";
}

bool mayReachIntoVirtual(const std::string& path) {
  return inVirtual(path) || path.starts_with("tools/") || path.starts_with("tests/") ||
         path.starts_with("benchmarks/");
}

// The circle that is closed at `path`, as "a.h → b.h → a.h"; empty when there is none.
std::string circleAt(const std::string& path, const IncludeGraph& graph, std::vector<std::string>& trail,
                     std::set<std::string>& done) {
  const auto begin = std::find(trail.begin(), trail.end(), path);
  if (begin != trail.end()) {
    std::string circle;
    for (auto step = begin; step != trail.end(); ++step) circle += *step + " → ";
    return circle + path;
  }
  if (!done.insert(path).second) return "";
  trail.push_back(path);
  if (const auto includes = graph.find(path); includes != graph.end()) {
    for (const std::string& next : includes->second) {
      std::string circle = circleAt(next, graph, trail, done);
      if (!circle.empty()) return circle;
    }
  }
  trail.pop_back();
  return "";
}

void findCircle(const IncludeGraph& graph, Findings& findings) {
  std::set<std::string> done;
  for (const auto& [path, includes] : graph) {
    std::vector<std::string> trail;
    const std::string circle = circleAt(path, graph, trail, done);
    if (circle.empty()) continue;
    findings.push_back(circle + ": a circle of includes; move what they share into a header below them");
    return;
  }
}

}  // namespace

Findings checkFloors(const Tree& tree) {
  Findings findings;
  const auto list = tree.find(floorsPath);
  if (list == tree.end()) return {floorsPath + ": it is missing; it lists the files of every floor"};
  const Floors floors = readFloors(list->second, findings);

  IncludeGraph graph;
  for (const auto& [path, text] : tree) {
    if (!isCpp(path)) continue;
    const auto from = isDaemonSource(path) ? placeOf(path, floors) : std::nullopt;
    if (isDaemonSource(path) && !from) {
      findings.push_back(path + ": it stands on no floor; give it one in " + floorsPath);
    }
    for (const Include& include : takeApart(text).includes) {
      if (include.angled) continue;
      const std::string target = "src/" + include.path;
      const std::string begin = place(path, lineOf(text, include.offset)) + "includes " + include.path + ": ";
      if (inVirtual(target) && !mayReachIntoVirtual(path)) {
        findings.push_back(
            begin + "the daemon does not know the virtual Mac; call the seam's headers in src/platform");
        continue;
      }
      if (!isDaemonSource(path)) continue;
      if (!tree.contains(target)) {
        findings.push_back(begin + "there is no such file; write the path from src/ on");
        continue;
      }
      graph[path].push_back(target);
      const auto to = placeOf(target, floors);
      if (!from || !to) continue;
      const std::string reason = whyNot(*from, *to);
      if (!reason.empty()) findings.push_back(begin + reason);
    }
  }
  findCircle(graph, findings);
  return findings;
}

}  // namespace brisko::test
