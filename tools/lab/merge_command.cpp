#include "tools/lab/merge_command.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/json_file.h"
#include "sim/generate/campaign.h"
#include "sim/generate/campaign_summary.h"
#include "tools/lab/campaign_commands.h"

namespace brisko::lab {
namespace {

struct MergeCommandLine {
  std::vector<std::string> files = {};
  std::string summary = {};  // the file to write; empty: none
};

// Reads all files, also after one that cannot be used, so that each of these is named.
std::vector<NamedSummary> readAll(const std::vector<std::string>& files, std::vector<std::string>& problems) {
  std::vector<NamedSummary> all;
  for (const std::string& file : files) {
    std::string reason = "cannot be read";
    const auto text = readWholeFile(file);
    const auto summary = text ? readSummary(*text, reason) : std::nullopt;
    if (summary) {
      all.push_back({file, *summary});
    } else {
      problems.push_back(std::string(file).append(": ").append(reason));
    }
  }
  return all;
}

int mergeFiles(const MergeCommandLine& line) {
  std::vector<std::string> problems;
  const std::vector<NamedSummary> all = readAll(line.files, problems);
  const auto merged = all.empty() ? std::nullopt : mergeSummaries(all, problems);
  if (problems.empty() && merged && !line.summary.empty() && !writeSummary(line.summary, *merged))
    problems.push_back(line.summary + ": cannot be written");
  for (const std::string& problem : problems)
    static_cast<void>(std::fprintf(stderr, "brisko-lab: %s\n", problem.c_str()));
  if (!problems.empty() || !merged) return usageError;
  static_cast<void>(std::fputs(reportOf(*merged).c_str(), stdout));
  return merged->failures.empty() ? campaignPassed : campaignFailed;
}

}  // namespace

void addMergeCommand(CLI::App& program, std::function<int()>& chosen) {
  const auto line = std::make_shared<MergeCommandLine>();
  CLI::App* merge = program.add_subcommand(
      "merge",
      "add up the summaries of a campaign's shards and print what they have seen; status 1: an invariant was "
      "violated, 2: a shard is missing, truncated, unfinished or of another commit");
  merge->add_option("files", line->files, "SUMMARY.json …")->required();
  merge->add_option("--summary", line->summary, "OUT.json: the summary of all of them");
  merge->callback([line, &chosen] { chosen = [line] { return mergeFiles(*line); }; });
}

}  // namespace brisko::lab
