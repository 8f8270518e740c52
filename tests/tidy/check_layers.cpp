#include <algorithm>
#include <optional>
#include <sstream>

#include "tidy/cpp_text.h"
#include "tidy/tree_check.h"

namespace brisko::test {
namespace {

const std::string listingPath = "docs/architecture.md";

// The folders of the listing, as "src/base/", from the top to the bottom.
std::vector<std::string> listedFolders(const std::string& document) {
  std::vector<std::string> folders;
  std::istringstream lines(document);
  for (std::string line; std::getline(lines, line);) {
    const std::string folder = line.substr(0, line.find(' ', 4));
    if (line.starts_with("    ") && folder.ends_with('/')) folders.push_back(folder.substr(4));
  }
  return folders;
}

// The innermost listed folder that contains the file.
std::optional<std::size_t> layerOf(const std::string& path, const std::vector<std::string>& folders) {
  std::optional<std::size_t> layer;
  for (std::size_t index = 0; index < folders.size(); ++index) {
    const bool inside = path.starts_with(folders[index]);
    if (inside && (!layer || folders[index].size() > folders[*layer].size())) layer = index;
  }
  return layer;
}

// Includes are relative to src/ or the project's folder, or to tests/ or benchmarks/ for files there.
std::string included(const Include& include, const Tree& tree) {
  for (const std::string root : {"src/", "", "tests/", "benchmarks/"}) {
    if (tree.contains(root + include.path)) return root + include.path;
  }
  return "";
}

bool implementsTheSeam(const std::string& path) {
  return inPlatform(path) || path.starts_with("sim/machine/") || path.starts_with("sim/seam/");
}

// Settings of several listed folders may be in a folder above them.
bool wantsALayer(const std::string& path) {
  return !folderOf(path).empty() && !path.starts_with('.') && !path.ends_with("/CMakeLists.txt") &&
         !path.ends_with("/.clang-tidy");
}

// Why a file at `path` may not include the one at `target`; empty when it may.
std::string whyNot(const std::string& path, const std::string& target,
                   const std::vector<std::string>& folders) {
  if (target.empty()) return "there is no such file; write the path from src/ or the project's folder on";
  const auto from = layerOf(path, folders);
  const auto to = layerOf(target, folders);
  if (!from || !to) return "";  // reported for the file itself
  if (*to < *from) return "it points upwards; hand the value down, or move what is needed further down";
  if (*to != *from && implementsTheSeam(path) && isDaemonSource(target) && !inPlatform(target))
    return "what implements the seam knows nothing above it; pass it what it needs";
  return "";
}

}  // namespace

Findings checkLayers(const Tree& tree) {
  const auto document = tree.find(listingPath);
  if (document == tree.end()) return {listingPath + ": it is missing; it lists the folders"};
  const std::vector<std::string> folders = listedFolders(document->second);

  Findings findings;
  std::vector<std::size_t> files(folders.size());
  for (const auto& [path, text] : tree) {
    const auto layer = layerOf(path, folders);
    if (layer) ++files[*layer];
    if (!layer && wantsALayer(path))
      findings.push_back(path + ": its folder is not in the listing of " + listingPath +
                         "; find its place there");
    if (!isCpp(path)) continue;
    for (const Include& include : takeApart(text).includes) {
      if (include.angled) continue;
      const std::string reason = whyNot(path, included(include, tree), folders);
      if (reason.empty()) continue;
      findings.push_back(place(path, lineOf(text, include.offset)) + "includes " + include.path + ": " +
                         reason);
    }
  }
  for (std::size_t index = 0; index < folders.size(); ++index) {
    if (files[index] == 0) findings.push_back(listingPath + ": there is no " + folders[index]);
  }
  return findings;
}

}  // namespace brisko::test
