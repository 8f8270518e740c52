#include "sim/scenario/trace.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

#include "sim/machine/journal_text.h"

namespace brisko::lab {
namespace {

std::string heading(const std::string& name) { return "=== " + name + "\n"; }

// Unmapped, and sorted.
std::vector<std::string> filesOf(const std::string& root) {
  std::vector<std::string> paths;
  std::error_code error;
  std::filesystem::recursive_directory_iterator entry(root, error);
  for (; !error && entry != std::filesystem::recursive_directory_iterator(); entry.increment(error)) {
    if (entry->is_regular_file(error)) paths.push_back(entry->path().string().substr(root.size()));
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

std::string lineOf(const virtual_mac::JournalEntry& entry) {
  char time[40];
  static_cast<void>(std::snprintf(time, sizeof time, "%.3f ", entry.time));
  return time + sim::journalText(entry) + "\n";
}

}  // namespace

std::string traceOf(const sim::Simulation& simulation) {
  std::string text = heading("log");
  for (const std::string& line : simulation.stampedLog()) text += line + "\n";
  for (const std::string& path : filesOf(simulation.root()))
    text += heading(path) + simulation.read(path).value_or("unreadable\n");
  text += heading("journal");
  for (const virtual_mac::JournalEntry& entry : simulation.entriesSinceCheckpoint()) text += lineOf(entry);
  return text;
}

}  // namespace brisko::lab
