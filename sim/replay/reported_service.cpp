#include "sim/replay/reported_service.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>

#include "sim/scenario/timing.h"

namespace brisko::lab {
namespace {

using virtual_mac::ChangeKind;

// A process that ends is started again at once, but at most every ten seconds.
constexpr double longestRestart = 40;
// Without a line about its end: a daemon that was killed, or a Mac that lost its power.
constexpr double longestKill = 900;
// From what happened until the daemon logged it.
constexpr double appLead = 2;
constexpr double menuLead = 5;
constexpr double sliderLead = 35;

// The text after the beginning of a line; none when the line begins otherwise.
std::optional<std::string> restOf(const std::string& line, std::string_view beginning) {
  if (!line.starts_with(beginning)) return std::nullopt;
  return line.substr(beginning.size());
}

// "80%", or 100 for "off".
std::optional<std::int64_t> limitIn(const std::string& text) {
  if (text.starts_with("off")) return 100;
  char* end = nullptr;
  const long long number = std::strtoll(text.c_str(), &end, 10);
  if (end == text.c_str() || number < 0 || number > 100) return std::nullopt;
  return number == 0 ? 100 : number;
}

constexpr std::string_view limitBefore = "native limit before Brisko: ";
constexpr std::string_view limitKept = "macOS limit changed in System Settings while Brisko's is off: ";
constexpr std::string_view limitHandedBack = "macOS limit handed back: ";

// The limit of macOS that the daemon keeps, if the line shows it.
std::optional<std::int64_t> keptLimitIn(const std::string& line) {
  for (const std::string_view beginning : {limitBefore, limitKept, limitHandedBack}) {
    if (const auto rest = restOf(line, beginning)) return limitIn(*rest);
  }
  return std::nullopt;
}

// What stats.json has at the end.
std::optional<std::int64_t> nativeLimitAtEnd(const ReportedDays& days) {
  if (!days.stats) return std::nullopt;
  const auto before = days.stats->find("nativeBefore");
  if (before == days.stats->end() || !before->is_number_integer()) return std::nullopt;
  const auto limit = before->get<std::int64_t>();
  return limit >= 1 && limit <= 100 ? std::optional(limit) : std::nullopt;
}

class ServiceReader {
 public:
  explicit ServiceReader(const ReportedDays& days) : days_(days) {}

  std::vector<DatedAction> read() {
    for (const LoggedLine& line : days_.trace.lines) follow(line);
    if (end_) note(end_->time, "unload");
    std::stable_sort(actions_.begin(), actions_.end(),
                     [](const DatedAction& one, const DatedAction& other) { return one.time < other.time; });
    return std::move(actions_);
  }

 private:
  void note(double time, ScenarioJson action) { actions_.push_back({time, std::move(action)}); }

  void follow(const LoggedLine& line) {
    const std::string& text = line.text;
    if (isStart(text)) {
      followStart(line.time);
    } else if (isEnd(text)) {
      end_ = line;
    } else if (text.starts_with("charge released by the app")) {
      note(line.time, actionOf("ask", "release"));
      released_ = true;
    } else if (text.starts_with("still running 30 s after the release")) {
      released_ = false;
    } else if (text.starts_with("app missing at ")) {
      note(line.time - appLead, "app-deleted");
      appIsMissing_ = true;
    } else if (text.starts_with("app is back")) {
      bringAppBack(line.time - appLead);
    } else {
      followLimit(line);
    }
    latest_ = line.time;
  }

  void bringAppBack(double time) {
    if (appIsMissing_) note(time, "app-restored");
    appIsMissing_ = false;
  }

  // The first start begins the scenario.
  void followStart(double time) {
    bringAppBack(time - 1);
    if (end_) {
      restart(*end_, time);
    } else if (started_ || time > days_.begin() + longestRestart) {
      startAgain(time);
    }
    started_ = true;
    released_ = false;
    end_.reset();
  }

  void restart(const LoggedLine& end, double time) {
    if (end.text.starts_with("restart requested")) {
      note(end.time, actionOf("ask", "restart"));
    } else if (time - end.time <= longestRestart) {
      note(end.time, "terminate");
    } else if (released_ || wasUsed(end.time, time)) {
      note(end.time, "unload");
      note(time, "load");
    } else {
      note(end.time, "shutdown");
      note(time, "boot");
    }
  }

  void startAgain(double time) {
    const double silence = time - lastTrailBefore(time);
    if (silence > longestKill) {
      note(time - silence + 1, "power-loss");
      note(time, "boot");
    } else {
      note(time, "kill");
    }
  }

  [[nodiscard]] double lastTrailBefore(double time) const {
    double last = std::max(latest_, days_.begin());
    for (const Sighting& sighting : days_.trace.sightings) {
      if (sighting.time < time) last = std::max(last, sighting.time);
    }
    return last;
  }

  // On the battery a Mac that is off consumes nothing.
  [[nodiscard]] bool wasUsed(double from, double until) const {
    const Sighting* before = nullptr;
    for (const Sighting& sighting : days_.trace.sightings) {
      if (sighting.time <= from) before = &sighting;
      if (sighting.time < until) continue;
      return before != nullptr && before->percent - sighting.percent >= 2;
    }
    return false;
  }

  void followLimit(const LoggedLine& line) {
    const auto set = [&](const std::string& text, double lead) {
      if (const auto limit = limitIn(text))
        note(line.time - lead, measured("limit", ChangeKind::limit, static_cast<double>(*limit)));
    };
    if (const auto before = restOf(line.text, limitBefore)) {
      if (limitIn(*before) != 100) set(*before, line.time - days_.begin() + 1);
    } else if (const auto seen = restOf(line.text, "macOS limit changed outside Brisko (bfG0 reads ")) {
      set(*seen, sliderLead);
    } else if (const auto kept = restOf(line.text, limitKept)) {
      set(*kept, sliderLead);
    } else if (const auto until = restOf(line.text, "macOS charges to full until ")) {
      const auto date = parseDate(until->substr(0, 19));
      if (date && *date > line.time) {
        const double seconds = *date - line.time + menuLead;
        note(line.time - menuLead, measured("charge-to-full", ChangeKind::chargeToFull, seconds));
      }
    }
  }

  const ReportedDays& days_;
  std::vector<DatedAction> actions_ = {};
  std::optional<LoggedLine> end_ = {};  // of the daemon, without a start since
  double latest_ = 0;                   // line
  bool started_ = false;
  bool released_ = false;
  bool appIsMissing_ = false;
};

}  // namespace

std::vector<DatedAction> serviceActions(const ReportedDays& days) { return ServiceReader(days).read(); }

std::optional<std::int64_t> nativeLimitAtBeginning(const ReportedDays& days) {
  for (const LoggedLine& line : days.trace.lines) {
    if (!keptLimitIn(line.text)) continue;
    // What it hands back it had before; what it has read since is new.
    if (line.text.starts_with(limitHandedBack)) return keptLimitIn(line.text);
    break;
  }
  for (auto line = days.trace.earlier.rbegin(); line != days.trace.earlier.rend(); ++line) {
    if (const auto limit = keptLimitIn(line->text)) return limit;
  }
  return nativeLimitAtEnd(days);
}

}  // namespace brisko::lab
