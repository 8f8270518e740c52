#include "tidy/tree.h"

#include <filesystem>
#include <fstream>

namespace brisko::test {

namespace fs = std::filesystem;

namespace {

bool isSkipped(const fs::directory_entry& folder, int depth) {
  const std::string name = folder.path().filename().string();
  if (depth == 0 && name == "build") return true;
  return name.starts_with('.') && name != ".ci" && name != ".github";
}

}  // namespace

Tree readTree(const std::string& folder) {
  Tree tree;
  std::error_code error;
  fs::recursive_directory_iterator entry(folder, error);
  for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    if (entry->is_directory(error) && isSkipped(*entry, entry.depth())) entry.disable_recursion_pending();
    if (!entry->is_regular_file(error)) continue;
    std::string text(entry->file_size(error), '\0');
    std::ifstream file(entry->path(), std::ios::binary);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (text.find('\0') != std::string::npos) continue;
    tree[entry->path().lexically_relative(folder).generic_string()] = std::move(text);
  }
  return tree;
}

bool isCpp(std::string_view path) {
  return path.ends_with(".h") || path.ends_with(".cpp") || path.ends_with(".mm");
}

bool isDaemonSource(std::string_view path) { return path.starts_with("src/") && isCpp(path); }

bool inPlatform(std::string_view path) { return path.starts_with("src/platform/"); }

std::string folderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? "" : std::string(path.substr(0, slash));
}

std::string withoutExtension(std::string_view path) { return std::string(path.substr(0, path.rfind('.'))); }

std::string place(const std::string& path, std::size_t line) {
  return path + ":" + std::to_string(line) + ": ";
}

}  // namespace brisko::test
