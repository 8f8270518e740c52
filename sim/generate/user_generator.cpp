#include "sim/generate/user_generator.h"

#include <array>
#include <string_view>
#include <utility>

// No two random numbers may be drawn in the arguments of one call: compilers differ in the order in which
// they evaluate them.

namespace brisko::lab {
namespace {

// In minutes.
constexpr std::int64_t hour = 60;
constexpr std::int64_t noon = 12 * hour;

// Plans what such a user does on one day and in the night after it.
using PlanDay = void (*)(std::int64_t day, const Habits& habits, Rng& rng, Timeline& timeline);

// A moment near this minute, to the second.
std::int64_t about(std::int64_t day, std::int64_t minute, std::int64_t jitter, Rng& rng,
                   const Timeline& timeline) {
  return timeline.moment(day, minute) + rng.between(-jitter * 60, jitter * 60);
}

ScenarioJson goToSleep(const Habits& habits) { return habits.closesLid ? "close-lid" : "idle-sleep"; }

bool isWeekend(std::int64_t day) { return day % 7 >= 5; }

// --- Days

// On a dock while at work, with meetings; at home on the battery, if at all.
void workAtDesk(std::int64_t day, const Habits& habits, Rng& rng, Timeline& timeline) {
  if (isWeekend(day)) {
    const std::int64_t from = about(day, noon, 120, rng, timeline);
    timeline.note(from, "open-lid");
    timeline.note(from + rng.between(600, 7200), "close-lid");
    return;
  }
  const std::int64_t start = about(day, habits.wakesAt + 60, 25, rng, timeline);
  timeline.note(start, "plug");
  timeline.note(start + 20, "open-lid");
  for (std::int64_t meeting = rng.between(0, 2); meeting > 0; --meeting) {
    const std::int64_t from = about(day, noon + 60, 200, rng, timeline);
    timeline.note(from, "unplug");
    timeline.note(from + rng.between(1200, 5400), "plug");
  }
  const std::int64_t lunch = about(day, noon + 15, 20, rng, timeline);
  timeline.note(lunch, goToSleep(habits));
  timeline.note(lunch + rng.between(1500, 4500), "open-lid");
  const std::int64_t leaving = about(day, 17 * hour + 30, 40, rng, timeline);
  timeline.note(leaving, "unplug");
  timeline.note(leaving + 5, "close-lid");
  if (rng.percent(50)) {
    timeline.note(about(day, 20 * hour + 30, 30, rng, timeline), "open-lid");
    if (rng.percent(30)) timeline.note(about(day, 22 * hour, 30, rng, timeline), "plug");
  }
}

// On the battery on the train, plugged in at work and at night.
void commute(std::int64_t day, const Habits& habits, Rng& rng, Timeline& timeline) {
  const std::int64_t leaving = about(day, habits.wakesAt, 10, rng, timeline);
  timeline.note(leaving, "unplug");
  timeline.note(leaving + 900, "open-lid");
  timeline.note(leaving + 2700, "close-lid");
  if (!isWeekend(day)) {
    timeline.note(leaving + 4000, "plug");
    timeline.note(leaving + 4030, "open-lid");
    const std::int64_t home = about(day, 17 * hour + 30, 30, rng, timeline);
    timeline.note(home, "unplug");
    timeline.note(home + 10, "close-lid");
    timeline.note(home + 1200, "open-lid");
    timeline.note(home + 3600, "close-lid");
  }
  timeline.note(about(day, 20 * hour, 30, rng, timeline), "open-lid");
  timeline.note(about(day, habits.sleepsAt - 20, 15, rng, timeline), "plug");
}

// Closed on a dock for weeks; taken away once in a while.
void standOnDock(std::int64_t day, const Habits& habits, Rng& rng, Timeline& timeline) {
  timeline.note(about(day, habits.wakesAt, 15, rng, timeline), "wake");
  if (day % 7 == 6 && rng.percent(30)) {
    const std::int64_t trip = about(day, noon, 120, rng, timeline);
    timeline.note(trip, "unplug");
    timeline.note(trip + rng.between(3600, 20000), "plug");
  }
}

// On the battery all day, and full by the morning if nothing stops the charging.
void chargeAtNight(std::int64_t day, const Habits& habits, Rng& rng, Timeline& timeline) {
  const std::int64_t up = about(day, habits.wakesAt, 15, rng, timeline);
  timeline.note(up, "unplug");
  timeline.note(up + rng.between(0, 3600), "open-lid");
  for (std::int64_t nap = rng.between(0, 3); nap > 0; --nap) {
    const std::int64_t from = about(day, noon + 120, 240, rng, timeline);
    timeline.note(from, goToSleep(habits));
    timeline.note(from + rng.between(600, 6000), "open-lid");
  }
  timeline.note(about(day, habits.sleepsAt - 10, 30, rng, timeline), "plug");
}

// From lecture to lecture, plugged in wherever there is a socket.
void study(std::int64_t day, const Habits& habits, Rng& rng, Timeline& timeline) {
  std::int64_t now = about(day, habits.wakesAt, 30, rng, timeline);
  const std::int64_t night = timeline.moment(day, habits.sleepsAt);
  timeline.note(now, "open-lid");
  while (now < night) {
    now += rng.between(3000, 6600);
    timeline.note(now, goToSleep(habits));
    now += rng.between(300, 3600);
    timeline.note(now, "open-lid");
    if (rng.percent(35)) {
      timeline.note(now + 60, rng.oneIn(4) ? actionOf("plug", 30) : ScenarioJson("plug"));
      timeline.note(now + rng.between(1200, 9000), "unplug");
    }
  }
  if (rng.percent(50)) {
    timeline.note(night - 60, "plug");
    timeline.note(timeline.moment(day + 1, habits.wakesAt - 5), "unplug");
  }
}

// Plugs in and unplugs at random moments, which may be days apart.
void forget(std::int64_t day, const Habits& habits, Rng& rng, Timeline& timeline) {
  timeline.note(about(day, habits.wakesAt + 60, 60, rng, timeline), "open-lid");
  if (rng.percent(40)) timeline.note(about(day, noon, 240, rng, timeline), "plug");
  if (rng.percent(35)) timeline.note(about(day, noon + 300, 240, rng, timeline), "unplug");
}

struct Kind {
  const char* name;
  PlanDay day;
};
constexpr std::array kinds{
    Kind{"a desk worker", workAtDesk},      Kind{"a commuter", commute}, Kind{"a Mac on a dock", standOnDock},
    Kind{"a night-charger", chargeAtNight}, Kind{"a student", study},    Kind{"somebody forgetful", forget},
};

// --- Besides the daily routine

void night(std::int64_t day, const Habits& habits, Rng& rng, Timeline& timeline) {
  const std::int64_t bed = about(day, habits.sleepsAt, 30, rng, timeline);
  const std::int64_t up = timeline.moment(day + 1, habits.wakesAt) - 2400;
  if (habits.shutsDown && rng.percent(70)) {
    timeline.note(bed, "shutdown");
    timeline.note(up + rng.between(0, 2000), "boot");
    return;
  }
  timeline.note(bed, goToSleep(habits));
  // If the Mac is not asleep by now, its user closes the lid, or chooses Sleep from the menu.
  if (rng.percent(70)) timeline.note(bed + 900, habits.closesLid ? "close-lid" : "sleep");
}

void work(std::int64_t day, const Habits& habits, Rng& rng, Timeline& timeline) {
  const std::int64_t night = timeline.moment(day, habits.sleepsAt);
  std::int64_t now = timeline.moment(day, habits.wakesAt);
  while (now < night) {
    now += rng.between(1200, 9000);
    const std::int64_t most = rng.oneIn(5) ? habits.heaviestLoad : rng.oneIn(3) ? 20 : 10;
    timeline.note(now, actionOf("load", rng.between(3, most)));
  }
}

void weather(std::int64_t day, Rng& rng, Timeline& timeline) {
  timeline.note(timeline.moment(day, 7 * hour), actionOf("ambient", rng.between(17, 27)));
  const std::int64_t from = about(day, noon + 120, 200, rng, timeline);
  if (rng.percent(15)) {
    // A car in the sun, a blanket, a beach.
    timeline.note(from, actionOf("ambient", rng.between(34, 52)));
  } else if (rng.percent(4)) {
    timeline.note(from, actionOf("ambient", rng.between(-12, 8)));
  } else {
    return;
  }
  const std::int64_t back = from + rng.between(900, 14400);
  timeline.note(back, actionOf("ambient", rng.between(18, 26)));
}

// --- The app

ScenarioJson randomLimit(Rng& rng) {
  switch (rng.between(0, 9)) {
    case 0:
      return rng.between(20, 100);
    case 1:
      return rng.oneOf(std::array{20, 21, 79, 81, 99, 100});
    default:
      return rng.oneOf(std::array{50, 60, 65, 70, 75, 80, 80, 80, 85, 90});
  }
}

// One change of the settings as the app makes it.
ScenarioJson randomEdit(Rng& rng) {
  ScenarioJson edit = ScenarioJson::object();
  switch (rng.between(0, 11)) {
    case 0:
      edit["hysteresis"] = rng.oneOf(std::array{0, 1, 2, 3, 5, 5, 10, 20, 50});
      break;
    case 1:
      edit["discharge"] = rng.percent(60);
      break;
    case 2:
      edit["thermal"] = rng.percent(60);
      edit["thermalLimit"] = rng.between(30, 45);
      break;
    case 3:
      edit["led"] = rng.percent(60);
      edit["blinkSeconds"] = rng.oneOf(std::array{0.5, 1.0, 2.0, 3.5});
      break;
    case 4:
      edit["topUp"] = true;
      edit["topUpHours"] = rng.oneOf(std::array{0, 0, 1, 2, 6, 24});
      break;
    case 5:
      edit["topUp"] = false;
      break;
    case 6:
      edit["calibrate"] = true;
      edit["calDrain"] = rng.between(5, 50);
      edit["calSoakMinutes"] = rng.oneOf(std::array{10, 30, 60, 60, 120});
      break;
    case 7:
      edit["calibrate"] = false;
      break;
    case 8:
      edit["enabled"] = rng.percent(60);
      break;
    case 9:
      edit["resetStats"] = true;
      break;
    case 10:
      edit["history"] = rng.percent(60);
      edit["historyDays"] = rng.oneOf(std::array{1, 7, 30, 365});
      break;
    default:
      edit["limit"] = randomLimit(rng);
  }
  return edit;
}

// The app's copy of the settings: what the app asked for, without what the daemon withdrew.
void merge(ScenarioJson& settings, const ScenarioJson& edit) {
  for (const char* oneShot : {"topUp", "calibrate", "resetStats"}) settings[oneShot] = false;
  for (const auto& [name, value] : edit.items()) settings[name] = value;
}

void changeSettings(std::int64_t at, ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  const ScenarioJson edit = randomEdit(rng);
  merge(settings, edit);
  switch (rng.between(0, 3)) {
    case 0:
      timeline.note(at, actionOf("settings", edit));
      break;
    case 1:
      timeline.note(at, actionOf("settings-replaced", settings));
      break;
    default:
      timeline.note(at, actionOf("ask", {{"request", "apply"}, {"settings", settings}}));
  }
}

void fiddle(std::int64_t day, const Habits& habits, ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  if (!rng.percent(habits.fiddling)) return;
  for (std::int64_t count = rng.between(1, 4); count > 0; --count) {
    changeSettings(about(day, noon + 180, 480, rng, timeline), settings, rng, timeline);
  }
}

// Uses macOS's slider and the battery's menu.
void useMacOSLimit(std::int64_t day, Rng& rng, Timeline& timeline) {
  const std::int64_t at = about(day, noon + 180, 480, rng, timeline);
  if (rng.percent(3)) timeline.note(at, actionOf("limit", 5 * rng.between(16, 20)));
  if (rng.percent(2)) timeline.note(at + 600, actionOf("charge-to-full", rng.between(1800, 43200)));
}

// --- The app and the service

void updateTheApp(std::int64_t at, const ScenarioJson&, Rng& rng, Timeline& timeline) {
  timeline.note(at, "app-deleted");
  timeline.note(at + rng.between(2, 200), "app-restored");
  timeline.note(at + 210, rng.oneIn(2) ? actionOf("ask", "restart") : ScenarioJson("terminate"));
}

void removeTheApp(std::int64_t at, const ScenarioJson&, Rng& rng, Timeline& timeline) {
  timeline.note(at, rng.oneIn(2) ? "app-deleted" : "app-moved");
  const std::int64_t back = at + rng.oneOf(std::array{300, 590, 610, 3600, 40000});
  timeline.note(back, "app-restored");
  if (rng.oneIn(2)) timeline.note(back + 120, "terminate");
}

// The app removes the service and installs it again later.
void reinstall(std::int64_t at, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  timeline.note(at + rng.between(1, 5), actionOf("ask", "release"));
  if (rng.percent(80)) timeline.note(at + 10 + rng.between(0, 40), "unload");
  const std::int64_t again = at + rng.oneOf(std::array{120, 3600, 90000});
  timeline.note(again, actionOf("settings-file", settings));
  timeline.note(again + 1, "load");
  // A user who finds the Mac off comes back to it.
  timeline.note(again + 20000, "load");
}

void restartTheMac(std::int64_t at, const ScenarioJson&, Rng& rng, Timeline& timeline) {
  timeline.note(at, "shutdown");
  timeline.note(at + rng.between(20, 120), "boot");
}

void eraseAndReinstall(std::int64_t at, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  timeline.note(at, actionOf("ask", "purge"));
  reinstall(at, settings, rng, timeline);
}

void restartTheDaemon(std::int64_t at, const ScenarioJson&, Rng&, Timeline& timeline) {
  timeline.note(at, actionOf("ask", "restart"));
}

void endTheDaemon(std::int64_t at, const ScenarioJson&, Rng&, Timeline& timeline) {
  timeline.note(at, "terminate");
}

void leaveItAlone(std::int64_t, const ScenarioJson&, Rng&, Timeline&) {}

struct AppEvent {
  unsigned weight;
  void (*add)(std::int64_t at, const ScenarioJson& settings, Rng& rng, Timeline& timeline);
};
constexpr std::array appEvents{AppEvent{100, leaveItAlone},    AppEvent{3, updateTheApp},
                               AppEvent{3, removeTheApp},      AppEvent{1, reinstall},
                               AppEvent{1, eraseAndReinstall}, AppEvent{5, restartTheMac},
                               AppEvent{2, restartTheDaemon},  AppEvent{2, endTheDaemon}};

void lookAfterTheApp(std::int64_t day, const ScenarioJson& settings, Rng& rng, Timeline& timeline) {
  const std::int64_t at = about(day, noon + 240, 420, rng, timeline);
  rng.weighted(appEvents).add(at, settings, rng, timeline);
}

const Kind& kindNamed(std::string_view name) {
  for (const Kind& kind : kinds) {
    if (name == kind.name) return kind;
  }
  return kinds.front();
}

}  // namespace

ScenarioJson randomSettings(Rng& rng) {
  ScenarioJson settings = {{"enabled", !rng.oneIn(12)},
                           {"limit", randomLimit(rng)},
                           {"discharge", rng.percent(40)},
                           {"led", rng.percent(75)},
                           {"blinkSeconds", 2.0},
                           {"thermal", rng.percent(50)},
                           {"thermalLimit", rng.between(30, 40)},
                           {"topUp", rng.oneIn(15)},
                           {"topUpHours", rng.oneOf(std::array{0, 0, 2, 8})},
                           {"hysteresis", rng.oneOf(std::array{0, 2, 5, 5, 5, 5, 10, 30})},
                           {"history", !rng.oneIn(6)},
                           {"historyDays", rng.oneOf(std::array{3, 30, 365, 365})},
                           {"calibrate", rng.oneIn(20)},
                           {"calDrain", rng.oneOf(std::array{10, 15, 15, 30})},
                           {"calSoakMinutes", rng.oneOf(std::array{20, 60, 60})},
                           {"resetStats", false}};
  return settings;
}

Habits randomHabits(Rng& rng) {
  return {.name = rng.oneOf(kinds).name,
          .wakesAt = rng.between(6 * hour, 9 * hour),
          .sleepsAt = rng.between(22 * hour, 25 * hour),
          .fiddling = static_cast<unsigned>(rng.oneOf(std::array{2, 5, 10, 60})),
          .closesLid = rng.percent(60),
          .shutsDown = rng.oneIn(8),
          .heaviestLoad = rng.between(20, 90)};
}

void addUserActions(std::int64_t days, const Habits& habits, ScenarioJson settings, Rng& rng,
                    Timeline& timeline) {
  const Kind& kind = kindNamed(habits.name);
  for (std::int64_t day = -1; day <= days; ++day) {
    kind.day(day, habits, rng, timeline);
    work(day, habits, rng, timeline);
    night(day, habits, rng, timeline);
    weather(day, rng, timeline);
    useMacOSLimit(day, rng, timeline);
    fiddle(day, habits, settings, rng, timeline);
    lookAfterTheApp(day, settings, rng, timeline);
  }
}

}  // namespace brisko::lab
