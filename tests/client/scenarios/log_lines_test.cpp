// Every line that a daemon logs in any scenario fits exactly one entry of the catalogue.
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "client/log_catalogue.h"
#include "client/log_reader.h"
#include "sim/scenario/run_scenario.h"
#include "support/files.h"

namespace brisko::client {
namespace {

std::vector<std::string> scenarios() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(BRISKO_SCENARIOS)) {
    if (entry.path().extension() == ".json") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

class LogLinesOf : public ::testing::TestWithParam<std::string> {};

TEST_P(LogLinesOf, aScenarioFitOneEntryEach) {
  // Paths in a scenario begin in its folder.
  const std::string path = std::string(BRISKO_SCENARIOS) + "/" + GetParam() + ".json";
  lab::Diagnostics diagnostics(path);
  const std::string text = test::contents(path);
  const auto scenario = lab::readScenario(text, diagnostics);
  ASSERT_TRUE(scenario);
  lab::Recording recording;
  static_cast<void>(lab::runScenario(*scenario, diagnostics, {.recording = &recording}));
  for (const lab::LoggedLine& logged : recording.picture().log) {
    const auto line = logLineIn(logged.text);
    ASSERT_TRUE(line) << logged.text;
    std::string fitting;
    std::size_t count = 0;
    for (const LogEntry& entry : logCatalogue()) {
      if (!fieldsIn(entry, line->message)) continue;
      ++count;
      fitting += " " + entry.id;
    }
    EXPECT_EQ(count, 1U) << line->message << " fits" << fitting;
  }
}

std::string testName(const ::testing::TestParamInfo<std::string>& info) {
  std::string name = info.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(All, LogLinesOf, ::testing::ValuesIn(scenarios()), testName);

}  // namespace
}  // namespace brisko::client
