// The sessions in docs/using-it.md, repeated on a new virtual Mac.
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/live_brisko.h"
#include "support/files.h"

namespace brisko::test::using_it_test {
namespace {

struct Step {
  Words words;
  std::string expected;
};

Words wordsIn(const std::string& line) {
  std::istringstream stream(line);
  Words words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

std::vector<Step> stepsIn(const std::string& document) {
  std::vector<Step> steps;
  std::istringstream lines(document);
  bool inside = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) {
      inside = line == "```console";
    } else if (inside && line.starts_with("$ brisko ")) {
      steps.push_back({wordsIn(line.substr(9)), ""});
    } else if (inside) {
      steps.back().expected += line + "\n";
    }
  }
  return steps;
}

// Times of day differ from run to run.
std::string withoutTimes(const std::string& text) {
  static const std::regex time("([A-Z][a-z]{2} [0-9]{1,2}, )?[0-9]{2}:[0-9]{2}");
  return std::regex_replace(text, time, "HH:MM");
}

TEST(UsingIt, showsTheRealOutputOfEachSession) {
  const auto steps = stepsIn(contents(BRISKO_DOCUMENTS "/using-it.md"));
  ASSERT_GT(steps.size(), 15U);
  // Slow enough that the charge stays the same, however long the test takes.
  LiveBrisko mac({"--charge", "62", "--speed", "0.01"});
  mac.boot();
  for (const Step& step : steps) {
    const std::string output = said(mac.brisko(step.words));
    EXPECT_EQ(withoutTimes(output), withoutTimes(step.expected));
  }
}

// Paragraphs, cells of tables, and items of lists.
std::vector<std::string> paragraphsIn(const std::string& document) {
  static const std::regex between("\n\n|\n- |\\||\n\\.(Pp|It|Sh)");
  std::sregex_token_iterator piece(document.begin(), document.end(), between, -1);
  return {piece, {}};
}

TEST(Documents, askNobodyToEditTheSettingsFile) {
  namespace fs = std::filesystem;
  static const std::regex file("config\\.json|settings file");
  static const std::regex edits("\\b([Ee]dit|[Cc]orrect|[Ff]ix|[Rr]ewrite|editor)\\b");
  std::vector<fs::path> pages{BRISKO_DOCUMENTS "/../README.md"};
  for (const char* folder : {BRISKO_DOCUMENTS, BRISKO_MANUALS}) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      if (entry.is_regular_file() && entry.path().filename() != "files.md") pages.push_back(entry.path());
    }
  }
  EXPECT_GT(pages.size(), 8U);
  for (const fs::path& page : pages) {
    for (const std::string& paragraph : paragraphsIn(contents(page.string()))) {
      EXPECT_FALSE(std::regex_search(paragraph, file) && std::regex_search(paragraph, edits))
          << page << " asks to edit the settings file; name a command of brisko instead:\n"
          << paragraph;
    }
  }
}

}  // namespace
}  // namespace brisko::test::using_it_test
