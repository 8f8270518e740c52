#include "sim/generate/random_person.h"

#include <array>
#include <string_view>
#include <utility>

// No two throws of the dice may stand in the arguments of one call: compilers differ in which they take
// first.

namespace brisko::lab {
namespace {

// Minutes.
constexpr std::int64_t hour = 60;
constexpr std::int64_t noon = 12 * hour;

// What a person who uses the Mac in this way does on a day and in the night after it.
using LiveDay = void (*)(std::int64_t day, const Habits& habits, Dice& dice, Diary& diary);

// A moment about then, to the second.
std::int64_t about(std::int64_t day, std::int64_t minute, std::int64_t jitter, Dice& dice,
                   const Diary& diary) {
  return diary.moment(day, minute) + dice.between(-jitter * 60, jitter * 60);
}

StoryJson goToSleep(const Habits& habits) { return habits.closesLid ? "sleep" : "idle-sleep"; }

bool isWeekend(std::int64_t day) { return day % 7 >= 5; }

// --- Days

// On a dock while at work, with meetings; at home on the battery, if at all.
void workAtDesk(std::int64_t day, const Habits& habits, Dice& dice, Diary& diary) {
  if (isWeekend(day)) {
    const std::int64_t from = about(day, noon, 120, dice, diary);
    diary.note(from, "wake");
    diary.note(from + dice.between(600, 7200), "sleep");
    return;
  }
  const std::int64_t start = about(day, habits.wakesAt + 60, 25, dice, diary);
  diary.note(start, "plug");
  diary.note(start + 20, "wake");
  for (std::int64_t meeting = dice.between(0, 2); meeting > 0; --meeting) {
    const std::int64_t from = about(day, noon + 60, 200, dice, diary);
    diary.note(from, "unplug");
    diary.note(from + dice.between(1200, 5400), "plug");
  }
  const std::int64_t lunch = about(day, noon + 15, 20, dice, diary);
  diary.note(lunch, goToSleep(habits));
  diary.note(lunch + dice.between(1500, 4500), "wake");
  const std::int64_t leaving = about(day, 17 * hour + 30, 40, dice, diary);
  diary.note(leaving, "unplug");
  diary.note(leaving + 5, "sleep");
  if (dice.percent(50)) {
    diary.note(about(day, 20 * hour + 30, 30, dice, diary), "wake");
    if (dice.percent(30)) diary.note(about(day, 22 * hour, 30, dice, diary), "plug");
  }
}

// On the battery on the train, plugged in at work and at night.
void commute(std::int64_t day, const Habits& habits, Dice& dice, Diary& diary) {
  const std::int64_t leaving = about(day, habits.wakesAt, 10, dice, diary);
  diary.note(leaving, "unplug");
  diary.note(leaving + 900, "wake");
  diary.note(leaving + 2700, "sleep");
  if (!isWeekend(day)) {
    diary.note(leaving + 4000, "plug");
    diary.note(leaving + 4030, "wake");
    const std::int64_t home = about(day, 17 * hour + 30, 30, dice, diary);
    diary.note(home, "unplug");
    diary.note(home + 10, "sleep");
    diary.note(home + 1200, "wake");
    diary.note(home + 3600, "sleep");
  }
  diary.note(about(day, 20 * hour, 30, dice, diary), "wake");
  diary.note(about(day, habits.sleepsAt - 20, 15, dice, diary), "plug");
}

// Closed on a dock for weeks; taken along once in a while.
void standOnDock(std::int64_t day, const Habits& habits, Dice& dice, Diary& diary) {
  diary.note(about(day, habits.wakesAt, 15, dice, diary), "wake");
  if (day % 7 == 6 && dice.percent(30)) {
    const std::int64_t trip = about(day, noon, 120, dice, diary);
    diary.note(trip, "unplug");
    diary.note(trip + dice.between(3600, 20000), "plug");
  }
}

// On the battery all day, full by the morning if nothing stopped it.
void chargeAtNight(std::int64_t day, const Habits& habits, Dice& dice, Diary& diary) {
  const std::int64_t up = about(day, habits.wakesAt, 15, dice, diary);
  diary.note(up, "unplug");
  diary.note(up + dice.between(0, 3600), "wake");
  for (std::int64_t nap = dice.between(0, 3); nap > 0; --nap) {
    const std::int64_t from = about(day, noon + 120, 240, dice, diary);
    diary.note(from, goToSleep(habits));
    diary.note(from + dice.between(600, 6000), "wake");
  }
  diary.note(about(day, habits.sleepsAt - 10, 30, dice, diary), "plug");
}

// From lecture to lecture, plugged in wherever there is a socket.
void study(std::int64_t day, const Habits& habits, Dice& dice, Diary& diary) {
  std::int64_t now = about(day, habits.wakesAt, 30, dice, diary);
  const std::int64_t night = diary.moment(day, habits.sleepsAt);
  diary.note(now, "wake");
  while (now < night) {
    now += dice.between(3000, 6600);
    diary.note(now, goToSleep(habits));
    now += dice.between(300, 3600);
    diary.note(now, "wake");
    if (dice.percent(35)) {
      diary.note(now + 60, dice.oneIn(4) ? actionOf("plug", 30) : StoryJson("plug"));
      diary.note(now + dice.between(1200, 9000), "unplug");
    }
  }
  if (dice.percent(50)) {
    diary.note(night - 60, "plug");
    diary.note(diary.moment(day + 1, habits.wakesAt - 5), "unplug");
  }
}

// Plugs in and pulls out when it comes to mind, which may take days.
void forget(std::int64_t day, const Habits& habits, Dice& dice, Diary& diary) {
  diary.note(about(day, habits.wakesAt + 60, 60, dice, diary), "wake");
  if (dice.percent(40)) diary.note(about(day, noon, 240, dice, diary), "plug");
  if (dice.percent(35)) diary.note(about(day, noon + 300, 240, dice, diary), "unplug");
}

struct Kind {
  const char* name;
  LiveDay day;
};
constexpr std::array kinds{
    Kind{"a desk worker", workAtDesk},      Kind{"a commuter", commute}, Kind{"a Mac on a dock", standOnDock},
    Kind{"a night-charger", chargeAtNight}, Kind{"a student", study},    Kind{"somebody forgetful", forget},
};

// --- Around the day

void night(std::int64_t day, const Habits& habits, Dice& dice, Diary& diary) {
  const std::int64_t bed = about(day, habits.sleepsAt, 30, dice, diary);
  const std::int64_t up = diary.moment(day + 1, habits.wakesAt) - 2400;
  if (habits.shutsDown && dice.percent(70)) {
    diary.note(bed, "shutdown");
    diary.note(up + dice.between(0, 2000), "boot");
    return;
  }
  diary.note(bed, goToSleep(habits));
  // One that is not asleep by now has its lid closed.
  if (dice.percent(70)) diary.note(bed + 900, "sleep");
  if (!habits.powerNap) return;
  for (std::int64_t now = bed + 1200; now < up; now += dice.between(1200, 7200)) {
    diary.note(now, actionOf("dark-wake", dice.between(10, 180)));
  }
}

void work(std::int64_t day, const Habits& habits, Dice& dice, Diary& diary) {
  const std::int64_t night = diary.moment(day, habits.sleepsAt);
  std::int64_t now = diary.moment(day, habits.wakesAt);
  while (now < night) {
    now += dice.between(1200, 9000);
    const std::int64_t most = dice.oneIn(5) ? habits.heaviestLoad : dice.oneIn(3) ? 20 : 10;
    diary.note(now, actionOf("load", dice.between(3, most)));
  }
}

void weather(std::int64_t day, Dice& dice, Diary& diary) {
  diary.note(diary.moment(day, 7 * hour), actionOf("ambient", dice.between(17, 27)));
  const std::int64_t from = about(day, noon + 120, 200, dice, diary);
  if (dice.percent(15)) {
    // A car in the sun, a blanket, a beach.
    diary.note(from, actionOf("ambient", dice.between(34, 52)));
  } else if (dice.percent(4)) {
    diary.note(from, actionOf("ambient", dice.between(-12, 8)));
  } else {
    return;
  }
  const std::int64_t back = from + dice.between(900, 14400);
  diary.note(back, actionOf("ambient", dice.between(18, 26)));
}

// --- The app

StoryJson randomLimit(Dice& dice) {
  switch (dice.between(0, 9)) {
    case 0:
      return dice.between(20, 100);
    case 1:
      return dice.oneOf(std::array{20, 21, 79, 81, 99, 100});
    default:
      return dice.oneOf(std::array{50, 60, 65, 70, 75, 80, 80, 80, 85, 90});
  }
}

// One change as the app makes it.
StoryJson randomEdit(Dice& dice) {
  StoryJson edit = StoryJson::object();
  switch (dice.between(0, 11)) {
    case 0:
      edit["hysteresis"] = dice.oneOf(std::array{0, 1, 2, 3, 5, 5, 10, 20, 50});
      break;
    case 1:
      edit["discharge"] = dice.percent(60);
      break;
    case 2:
      edit["thermal"] = dice.percent(60);
      edit["thermalLimit"] = dice.between(30, 45);
      break;
    case 3:
      edit["led"] = dice.percent(60);
      edit["blinkSeconds"] = dice.oneOf(std::array{0.5, 1.0, 2.0, 3.5});
      break;
    case 4:
      edit["topUp"] = true;
      edit["topUpHours"] = dice.oneOf(std::array{0, 0, 1, 2, 6, 24});
      break;
    case 5:
      edit["topUp"] = false;
      break;
    case 6:
      edit["calibrate"] = true;
      edit["calDrain"] = dice.between(5, 50);
      edit["calSoakMinutes"] = dice.oneOf(std::array{10, 30, 60, 60, 120});
      break;
    case 7:
      edit["calibrate"] = false;
      break;
    case 8:
      edit["enabled"] = dice.percent(60);
      break;
    case 9:
      edit["resetStats"] = true;
      break;
    case 10:
      edit["history"] = dice.percent(60);
      edit["historyDays"] = dice.oneOf(std::array{1, 7, 30, 365});
      break;
    default:
      edit["limit"] = randomLimit(dice);
  }
  return edit;
}

// What the app knows of the settings: what it asked for, without what the daemon withdrew.
void merge(StoryJson& settings, const StoryJson& edit) {
  for (const char* oneShot : {"topUp", "calibrate", "resetStats"}) settings[oneShot] = false;
  for (const auto& [name, value] : edit.items()) settings[name] = value;
}

void changeSettings(std::int64_t at, StoryJson& settings, Dice& dice, Diary& diary) {
  const StoryJson edit = randomEdit(dice);
  merge(settings, edit);
  switch (dice.between(0, 3)) {
    case 0:
      diary.note(at, actionOf("settings", edit));
      break;
    case 1:
      diary.note(at, actionOf("settings-replaced", settings));
      break;
    default:
      diary.note(at, actionOf("ask", {{"request", "apply"}, {"settings", settings}}));
  }
}

void fiddle(std::int64_t day, const Habits& habits, StoryJson& settings, Dice& dice, Diary& diary) {
  if (!dice.percent(habits.fiddling)) return;
  for (std::int64_t count = dice.between(1, 4); count > 0; --count) {
    changeSettings(about(day, noon + 180, 480, dice, diary), settings, dice, diary);
  }
}

// The slider of macOS and the menu of the battery.
void useMacOSLimit(std::int64_t day, Dice& dice, Diary& diary) {
  const std::int64_t at = about(day, noon + 180, 480, dice, diary);
  if (dice.percent(3)) diary.note(at, actionOf("limit", 5 * dice.between(16, 20)));
  if (dice.percent(2)) diary.note(at + 600, actionOf("charge-to-full", dice.between(1800, 43200)));
}

// --- The app and the service

void updateTheApp(std::int64_t at, Dice& dice, Diary& diary) {
  diary.note(at, "app-deleted");
  diary.note(at + dice.between(2, 200), "app-restored");
  diary.note(at + 210, dice.oneIn(2) ? actionOf("ask", "restart") : StoryJson("terminate"));
}

void missTheApp(std::int64_t at, Dice& dice, Diary& diary) {
  diary.note(at, dice.oneIn(2) ? "app-deleted" : "app-moved");
  const std::int64_t back = at + dice.oneOf(std::array{300, 590, 610, 3600, 40000});
  diary.note(back, "app-restored");
  if (dice.oneIn(2)) diary.note(back + 120, "terminate");
}

// The app takes the service away and sets it up again later, with all data erased before if asked to.
void reinstall(std::int64_t at, bool erase, const StoryJson& settings, Dice& dice, Diary& diary) {
  if (erase) diary.note(at, actionOf("ask", "purge"));
  diary.note(at + dice.between(1, 5), actionOf("ask", "release"));
  if (dice.percent(80)) diary.note(at + 10 + dice.between(0, 40), "unload");
  const std::int64_t again = at + dice.oneOf(std::array{120, 3600, 90000});
  diary.note(again, actionOf("settings-file", settings));
  diary.note(again + 1, "load");
  // Whoever finds the Mac off comes back to it.
  diary.note(again + 20000, "load");
}

void restartTheMac(std::int64_t at, Dice& dice, Diary& diary) {
  diary.note(at, "shutdown");
  diary.note(at + dice.between(20, 120), "boot");
}

void lookAfterTheApp(std::int64_t day, const StoryJson& settings, Dice& dice, Diary& diary) {
  const std::int64_t at = about(day, noon + 240, 420, dice, diary);
  constexpr std::array<unsigned, 8> weights{100, 3, 3, 1, 1, 5, 2, 2};
  switch (dice.weighted(weights)) {
    case 1:
      return updateTheApp(at, dice, diary);
    case 2:
      return missTheApp(at, dice, diary);
    case 3:
      return reinstall(at, false, settings, dice, diary);
    case 4:
      return reinstall(at, true, settings, dice, diary);
    case 5:
      return restartTheMac(at, dice, diary);
    case 6:
      return diary.note(at, actionOf("ask", "restart"));
    case 7:
      return diary.note(at, "terminate");
    default:
      return;
  }
}

const Kind& kindNamed(std::string_view name) {
  for (const Kind& kind : kinds) {
    if (name == kind.name) return kind;
  }
  return kinds.front();
}

}  // namespace

StoryJson randomSettings(Dice& dice) {
  StoryJson settings = {{"enabled", !dice.oneIn(12)},
                        {"limit", randomLimit(dice)},
                        {"discharge", dice.percent(40)},
                        {"led", dice.percent(75)},
                        {"blinkSeconds", 2.0},
                        {"thermal", dice.percent(50)},
                        {"thermalLimit", dice.between(30, 40)},
                        {"topUp", dice.oneIn(15)},
                        {"topUpHours", dice.oneOf(std::array{0, 0, 2, 8})},
                        {"hysteresis", dice.oneOf(std::array{0, 2, 5, 5, 5, 5, 10, 30})},
                        {"history", !dice.oneIn(6)},
                        {"historyDays", dice.oneOf(std::array{3, 30, 365, 365})},
                        {"calibrate", dice.oneIn(20)},
                        {"calDrain", dice.oneOf(std::array{10, 15, 15, 30})},
                        {"calSoakMinutes", dice.oneOf(std::array{20, 60, 60})},
                        {"resetStats", false}};
  return settings;
}

Habits randomHabits(Dice& dice) {
  return {.name = dice.oneOf(kinds).name,
          .wakesAt = dice.between(6 * hour, 9 * hour),
          .sleepsAt = dice.between(22 * hour, 25 * hour),
          .fiddling = static_cast<unsigned>(dice.oneOf(std::array{2, 5, 10, 60})),
          .powerNap = dice.percent(70),
          .closesLid = dice.percent(60),
          .shutsDown = dice.oneIn(8),
          .heaviestLoad = dice.between(20, 90)};
}

void liveThrough(std::int64_t days, const Habits& habits, StoryJson settings, Dice& dice, Diary& diary) {
  const Kind& kind = kindNamed(habits.name);
  for (std::int64_t day = -1; day <= days; ++day) {
    kind.day(day, habits, dice, diary);
    work(day, habits, dice, diary);
    night(day, habits, dice, diary);
    weather(day, dice, diary);
    useMacOSLimit(day, dice, diary);
    fiddle(day, habits, settings, dice, diary);
    lookAfterTheApp(day, settings, dice, diary);
  }
}

}  // namespace brisko::lab
