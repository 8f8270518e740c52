#include "sim/generate/shrink.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace brisko::lab {
namespace {

using Candidates = std::vector<Story>;

class Shrinking {
 public:
  Shrinking(Story story, double seconds, const ShrinkBounds& bounds, const TryOut& tryOut)
      : best_(std::move(story)), bounds_(bounds), tryOut_(tryOut) {
    cutAfter(best_, seconds);
  }

  Shrunk run() {
    static_cast<void>(acceptFirst({best_}));
    thinOut();
    simplify();
    shortenPauses();
    thinOut();
    return {.story = std::move(best_), .tries = tries_};
  }

 private:
  // What comes after the end of what matters, and the time after it.
  static void cutAfter(Story& story, double seconds) {
    const auto end = static_cast<std::int64_t>(std::ceil(seconds)) + 1;
    std::erase_if(story.happenings, [&](const Happening& happening) { return happening.at > end; });
    story.seconds = std::min(story.seconds, end + 60);
  }

  // Tries them in their order, and goes on with the first that is still wrong.
  bool acceptFirst(const Candidates& candidates) {
    for (std::size_t from = 0; from < candidates.size() && tries_ < bounds_.tries; from += bounds_.atOnce) {
      const std::size_t to = std::min(from + bounds_.atOnce, candidates.size());
      const auto at = [&](std::size_t index) {
        return candidates.begin() + static_cast<std::ptrdiff_t>(index);
      };
      tries_ += to - from;
      const auto wrong = tryOut_(Candidates(at(from), at(to)));
      if (!wrong) continue;
      best_ = candidates[from + wrong->index];
      cutAfter(best_, wrong->seconds);
      return true;
    }
    return false;
  }

  [[nodiscard]] Story without(std::size_t from, std::size_t count) const {
    Story story = best_;
    const auto begin = story.happenings.begin() + static_cast<std::ptrdiff_t>(from);
    story.happenings.erase(begin, begin + static_cast<std::ptrdiff_t>(count));
    return story;
  }

  // Leaves out runs of happenings, long ones first. The latest matter most, so the earliest go first.
  void thinOut() {
    for (std::size_t run = best_.happenings.size(); run > 0 && tries_ < bounds_.tries;) {
      run = std::min(run, best_.happenings.size());
      Candidates candidates;
      for (std::size_t from = 0; from < best_.happenings.size(); from += run) {
        candidates.push_back(without(from, std::min(run, best_.happenings.size() - from)));
      }
      if (!acceptFirst(candidates)) run /= 2;
    }
  }

  // The members of an object that may be missing, and the object without each.
  template <typename Set>
  void dropMembers(const StoryJson& object, const Set& set) {
    std::vector<std::string> names;
    for (const auto& [name, value] : object.items()) names.push_back(name);
    for (const std::string& name : names) {
      Story story = best_;
      set(story, name);
      static_cast<void>(acceptFirst({story}));
    }
  }

  void simplify() {
    for (std::size_t index = best_.before.size(); index-- > 0;) {
      Story story = best_;
      story.before.erase(story.before.begin() + static_cast<std::ptrdiff_t>(index));
      static_cast<void>(acceptFirst({story}));
    }
    dropMembers(best_.daemon, [](Story& story, const std::string& name) { story.daemon.erase(name); });
    dropMembers(best_.mac, [](Story& story, const std::string& name) { story.mac.erase(name); });
    if (!best_.settings) return;
    Story story = best_;
    story.settings.reset();
    if (acceptFirst({story}) || !best_.settings->is_object()) return;
    dropMembers(*best_.settings, [](Story& one, const std::string& name) { one.settings->erase(name); });
  }

  // From the happening `index` on everything comes `seconds` earlier.
  [[nodiscard]] Story earlier(std::size_t index, std::int64_t seconds) const {
    Story story = best_;
    for (std::size_t moved = index; moved < story.happenings.size(); ++moved) {
      story.happenings[moved].at -= seconds;
    }
    story.seconds = story.happenings.back().at + (best_.seconds - best_.happenings.back().at);
    return story;
  }

  void shortenPauses() {
    std::int64_t before = 0;
    for (std::size_t index = 0; index < best_.happenings.size(); ++index) {
      Candidates candidates;
      const std::int64_t pause = best_.happenings[index].at - before;
      for (const std::int64_t shorter :
           {std::int64_t{60}, std::int64_t{900}, std::int64_t{7200}, pause / 2}) {
        if (shorter < pause && pause > 120) candidates.push_back(earlier(index, pause - shorter));
      }
      static_cast<void>(acceptFirst(candidates));
      if (index < best_.happenings.size()) before = best_.happenings[index].at;
    }
  }

  Story best_;
  const ShrinkBounds& bounds_;
  const TryOut& tryOut_;
  std::size_t tries_ = 0;
};

}  // namespace

Shrunk shrink(const Story& story, double seconds, const ShrinkBounds& bounds, const TryOut& tryOut) {
  return Shrinking(story, seconds, bounds, tryOut).run();
}

}  // namespace brisko::lab
