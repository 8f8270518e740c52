#include "tools/lab/what_if_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "client/exit_status.h"
#include "client/file_writing.h"
#include "client/output.h"
#include "client/setting_assignment.h"
#include "sim/what_if/other_settings.h"
#include "sim/what_if/play_days.h"
#include "sim/what_if/prepared_days.h"
#include "sim/what_if/what_if_text.h"
#include "tools/lab/readers_zone.h"

namespace brisko::lab {
namespace {

using client::ExitStatus;

constexpr double longestHistory = 400;  // days

struct WhatIfCommandLine {
  std::string days = {};  // a bug report; "-" for standard input
  std::vector<std::string> assignments = {};
  std::string page = {};  // a file to write; "" for none
  bool json = false;
};

// The days, prepared; or the status that the command ends with.
struct Beginning {
  ReportedDays days = {};
  Reconstruction asSet = {};
};

int refuse(const client::Output& output, const std::string& text, ExitStatus status = ExitStatus::notDone) {
  output.complain(text);
  return static_cast<int>(status);
}

std::optional<std::string> bytesOf(const std::string& path) {
  std::ifstream file;
  if (path != "-") file.open(path, std::ios::binary);
  std::istream& stream = path == "-" ? std::cin : file;
  if (!stream) return std::nullopt;
  std::string bytes{std::istreambuf_iterator<char>(stream), {}};
  return bytes;
}

// None after a complaint.
std::optional<Beginning> begin(const client::Output& output, const std::string& path) {
  const auto bytes = bytesOf(path);
  if (!bytes) {
    output.complain("\"" + path + "\" cannot be read");
    return std::nullopt;
  }
  ReportReading reading = readReport(*bytes, {.longestDays = longestHistory, .needsBattery = false});
  if (!reading.days) {
    output.complain("these days cannot be played: " + reading.error);
    return std::nullopt;
  }
  if (const std::string reason = whyTooFew(reading.days->trace); !reason.empty()) {
    output.complain(reason);
    return std::nullopt;
  }
  Reconstruction asSet = prepare(*reading.days);
  return Beginning{.days = std::move(*reading.days), .asSet = std::move(asSet)};
}

// On standard error, if that is a terminal; erased at the end.
class Progress {
 public:
  explicit Progress(std::size_t all) : all_(all), isShown_(::isatty(STDERR_FILENO) == 1) { show(0); }
  ~Progress() {
    if (isShown_) static_cast<void>(std::fputs("\r\033[K", stderr));
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void show(std::size_t played) const {
    if (isShown_) static_cast<void>(std::fprintf(stderr, "\rplayed %zu of %zu times", played, all_));
  }

 private:
  std::size_t all_;
  bool isShown_;
};

// None when a signal ended it.
std::optional<std::vector<PlayedDays>> playWithProgress(const std::vector<Reconstruction>& all) {
  const Progress progress(all.size());
  return playAll(all, [&progress](std::size_t played) { progress.show(played); });
}

// A daemon that recorded nothing leaves nothing to compare.
bool areComparable(const std::vector<PlayedDays>& plays) {
  return std::all_of(plays.begin(), plays.end(),
                     [](const PlayedDays& days) { return days.moments.size() > 1; });
}

PlayedHistory historyOf(const Beginning& beginning, const PlayedDays& asSet) {
  return {.begin = beginning.days.begin(),
          .end = beginning.days.end(),
          .agreement = agreementOf(beginning.days.trace, asSet.moments),
          .assumptions = beginning.asSet.assumptions};
}

void printSentences(const client::Output& output, const std::vector<std::string>& sentences,
                    const std::vector<std::string>& assumptions) {
  for (const auto* each : {&sentences, &assumptions}) {
    output.line("");
    for (const std::string& sentence : *each) output.line(client::wrapped(sentence, output.style().width));
  }
}

// The reason, as a clause, when the page was not written; else empty.
std::string writePage(const WhatIf& whatIf, const std::vector<PlayedDays>& plays, const std::string& path) {
  Picture picture = comparedPicture(plays[0].moments, plays[1].moments);
  picture.title = "What if " + askedText(whatIf.asked) + "?";
  picture.facts = daysText(whatIf.history);
  picture.notes = whatIf.history.assumptions;
  const std::string page =
      whatIfPage({.picture = picture, .figures = comparedFigures(whatIf), .sentences = sentencesOf(whatIf)});
  std::string reason;
  return client::writeDrawing(path, page, whatIfMark, reason) ? "" : reason;
}

int finish(const client::Output& output, int status) {
  if (output.flush()) return status;
  return refuse(output, "the output could not be written");
}

int interrupted() { return 128 + SIGINT; }

int whatIf(const WhatIfCommandLine& line) {
  const client::Output output(client::styleOfStandardOutput(false), false);
  nlohmann::json asked = nlohmann::json::object();
  for (const std::string& word : line.assignments) {
    const std::string reason = client::takeAssignment(word, "what-if", asked);
    if (!reason.empty()) return refuse(output, reason, ExitStatus::misused);
  }
  const auto beginning = begin(output, line.days);
  if (!beginning) return static_cast<int>(ExitStatus::notDone);
  Reconstruction asAsked = beginning->asSet;
  setThroughout(asked, asAsked);
  const auto plays = playWithProgress({beginning->asSet, asAsked});
  if (!plays) return interrupted();
  if (!areComparable(*plays))
    return refuse(output, "the daemon recorded nothing while these days were played");
  const WhatIf whatIf{.history = historyOf(*beginning, plays->at(0)),
                      .asked = asked,
                      .asSet = figuresOf(plays->at(0)),
                      .asAsked = figuresOf(plays->at(1))};
  const std::string reason = line.page.empty() ? "" : writePage(whatIf, *plays, line.page);
  if (line.json) {
    nlohmann::json object = whatIfObject(whatIf);
    if (!line.page.empty() && reason.empty()) object["file"] = line.page;
    output.json(object);
  } else {
    output.line("What if " + askedText(asked) + "?  " + daysText(whatIf.history) + "\n");
    output.lines(comparisonTable(comparedFigures(whatIf)));
    printSentences(output, sentencesOf(whatIf), whatIf.history.assumptions);
  }
  if (!reason.empty()) return refuse(output, "\"" + line.page + "\" was not written: " + reason);
  return finish(output, static_cast<int>(ExitStatus::done));
}

int advise(const WhatIfCommandLine& line) {
  const client::Output output(client::styleOfStandardOutput(false), false);
  const auto beginning = begin(output, line.days);
  if (!beginning) return static_cast<int>(ExitStatus::notDone);
  const std::vector<std::int64_t> limits = limitsToTry();
  std::vector<Reconstruction> all{beginning->asSet};
  for (const std::int64_t limit : limits) {
    all.push_back(beginning->asSet);
    setThroughout({{"enabled", true}, {"limit", limit}}, all.back());
  }
  const auto plays = playWithProgress(all);
  if (!plays) return interrupted();
  if (!areComparable(*plays))
    return refuse(output, "the daemon recorded nothing while these days were played");
  Advice advice{.history = historyOf(*beginning, plays->front())};
  for (std::size_t index = 0; index < limits.size(); ++index)
    advice.tried.push_back({limits[index], figuresOf(plays->at(index + 1))});
  if (line.json) {
    output.json(adviceObject(advice));
  } else {
    output.line(daysText(advice.history) + "\n");
    output.lines(adviceTable(advice));
    printSentences(output, sentencesOf(advice), advice.history.assumptions);
  }
  return finish(output, static_cast<int>(ExitStatus::done));
}

CLI::App* addCommand(CLI::App& program, const std::string& name, const std::string& meaning,
                     WhatIfCommandLine& line) {
  CLI::App* command = program.add_subcommand(name, meaning);
  command->add_option("days", line.days, "REPORT.tar with the days, or - for standard input")->required();
  command->add_flag("--json", line.json, "print one JSON object");
  return command;
}

}  // namespace

void addWhatIfCommands(CLI::App& program, std::function<int()>& chosen) {
  const auto line = std::make_shared<WhatIfCommandLine>();
  const auto choose = [line, &chosen](int (*run)(const WhatIfCommandLine&)) {
    return [line, run, &chosen] {
      chosen = [line, run] {
        // A closed pipe ends no play.
        std::signal(SIGPIPE, SIG_IGN);
        useReadersZone();
        return run(*line);
      };
    };
  };
  CLI::App* asks = addCommand(program, "what-if", "play days with other settings (brisko what-if)", *line);
  asks->add_option("settings", line->assignments, "KEY=VALUE …")->required();
  asks->add_option("--html", line->page, "OUT.html: a page with both curves");
  asks->callback(choose(whatIf));
  CLI::App* advises = addCommand(program, "advise", "play days with each limit (brisko advise)", *line);
  advises->callback(choose(advise));
}

}  // namespace brisko::lab
