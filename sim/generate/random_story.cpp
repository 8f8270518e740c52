#include "sim/generate/random_story.h"

#include <array>
#include <string>

#include "sim/generate/random_fate.h"
#include "sim/generate/random_person.h"

// No two throws of the dice may stand in the arguments of one call: compilers differ in which they take
// first.

namespace brisko::lab {
namespace {

// The same seed has the same Mac and the same user, whatever else befalls them.
constexpr std::uint64_t streamOfMac = 1;
constexpr std::uint64_t streamOfPerson = 2;
constexpr std::uint64_t streamOfFate = 3;

struct Model {
  const char* name;
  const char* charge;
  const char* cut;
};
constexpr std::array models{Model{"air13", "chte", "chie"}, Model{"pro14", "ch0b0c", "ch0i"},
                            Model{"pro16", "firmware-band", "ch0j"}};

std::string twoDigits(std::int64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); }

struct MadeMac {
  StoryJson words = StoryJson::object();
  MacTraits traits = {};
  std::int64_t clock = 0;  // at the beginning, seconds since midnight
};

void chooseKeys(MadeMac& mac, Dice& dice) {
  const Model model = dice.oneOf(models);
  mac.words["model"] = model.name;
  mac.traits = {.charge = model.charge, .cut = model.cut};
  if (dice.oneIn(4)) {
    mac.traits.charge = dice.oneOf(std::array{"chte", "ch0b0c", "firmware-band"});
    mac.words["gate"] = mac.traits.charge;
  }
  if (dice.oneIn(4)) {
    mac.traits.cut = dice.oneOf(std::array{"chie", "ch0i", "ch0j", "none"});
    mac.words["cut"] = mac.traits.cut;
  }
  if (dice.oneIn(5)) mac.words["light"] = dice.oneIn(2);
}

void chooseSystem(MadeMac& mac, Dice& dice) {
  mac.traits.macOS = dice.oneOf(std::array{15, 15, 26, 26, 26, 27, 27});
  if (dice.oneIn(8)) mac.traits.macOS = dice.between(15, 27);
  mac.words["macOS"] = mac.traits.macOS;
  const bool limit = !dice.oneIn(5);
  if (mac.traits.macOS >= 26 && !limit) mac.words["chargeLimit"] = false;
  // A Mac without any key can only be held by the limit of macOS.
  if (mac.traits.macOS >= 26 && limit && dice.oneIn(8)) {
    mac.traits.charge = "none";
    mac.words["gate"] = "none";
  }
}

MadeMac makeMac(Dice& dice) {
  MadeMac mac;
  chooseKeys(mac, dice);
  chooseSystem(mac, dice);
  mac.words["percent"] = dice.oneIn(6) ? dice.between(0, 100) : dice.between(35, 95);
  mac.words["plugged"] = dice.percent(65);
  mac.words["uptime"] = dice.oneOf(std::array{20, 90, 600, 3600, 86400, 2000000});
  const std::int64_t month = dice.between(1, 12);
  const std::int64_t day = dice.between(1, 28);
  const std::int64_t hour = dice.between(0, 23);
  const std::int64_t minute = dice.between(0, 59);
  mac.clock = hour * 3600 + minute * 60;
  mac.words["start"] =
      "2026-" + twoDigits(month) + "-" + twoDigits(day) + " " + twoDigits(hour) + ":" + twoDigits(minute);
  return mac;
}

StoryJson makeDaemon(Dice& dice) {
  StoryJson arguments = StoryJson::array();
  if (dice.percent(70)) arguments.insert(arguments.end(), {"--app", "/Applications/Brisko.app"});
  if (dice.oneIn(6)) arguments.insert(arguments.end(), {"--limit", std::to_string(dice.between(20, 100))});
  if (dice.oneIn(8)) arguments.insert(arguments.end(), {"--lower", std::to_string(dice.between(20, 90))});
  StoryJson daemon = StoryJson::object();
  if (!arguments.empty()) daemon["arguments"] = arguments;
  return daemon;
}

void strike(const MadeMac& mac, Faults faults, std::uint64_t seed, Story& story, Diary& diary) {
  if (faults == Faults::none) return;
  Dice dice(seed, streamOfFate);
  story.before = randomWays(dice);
  const StoryJson settings = story.settings.value_or(randomSettings(dice));
  if (faults == Faults::some) return strikeSometimes(mac.traits, settings, dice, diary);
  if (dice.oneIn(15)) story.settings = oddSettings(dice);
  if (dice.oneIn(30)) story.daemon["environment"] = {{"BRISKO_PRETEND_MACOS", "27"}};
  if (dice.oneIn(40)) story.daemon["environment"] = {{"BRISKO_PRETEND_NO_NATIVE", "1"}};
  strikeOften(mac.traits, settings, dice, diary);
}

}  // namespace

std::string_view nameOf(Faults faults) {
  constexpr std::array<std::string_view, 3> names{"none", "some", "all"};
  return names[static_cast<std::size_t>(faults)];
}

std::span<const std::string_view> dailyLife() {
  static constexpr std::array<std::string_view, 12> names{
      "plug",      "unplug",          "load",  "ambient",        "sleep",    "idle-sleep", "wake",
      "dark-wake", "scheduled-wakes", "limit", "charge-to-full", "terminate"};
  return names;
}

Story randomStory(std::uint64_t seed, std::int64_t days, Faults faults) {
  Story story{.seconds = days * secondsOfDay};
  Dice ofMac(seed, streamOfMac);
  const MadeMac mac = makeMac(ofMac);
  story.mac = mac.words;
  Diary diary(mac.clock, story.seconds);

  Dice ofPerson(seed, streamOfPerson);
  const Habits habits = randomHabits(ofPerson);
  const StoryJson settings = randomSettings(ofPerson);
  if (!ofPerson.oneIn(15)) story.settings = settings;
  story.daemon = makeDaemon(ofPerson);
  liveThrough(days, habits, settings, ofPerson, diary);

  strike(mac, faults, seed, story, diary);
  story.happenings = diary.takeAll();
  story.sentence = "Seed " + std::to_string(seed) + ", " + std::to_string(days) +
                   (days == 1 ? " day" : " days") + ", faults " + std::string(nameOf(faults)) + ": " +
                   habits.name + ".";
  return story;
}

}  // namespace brisko::lab
