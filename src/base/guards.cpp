#include "base/guards.h"

#include <array>

namespace brisko {
namespace {

struct Name {
  std::string_view text;
  bool Guards::*guard;
};
constexpr std::array guardNames{Name{"night", &Guards::night}, Name{"menu", &Guards::menu},
                                Name{"swing", &Guards::swing}};

}  // namespace

Guards guardsIn(std::string_view list) {
  Guards guards;
  while (!list.empty()) {
    const std::string_view word = list.substr(0, list.find(','));
    for (const Name& name : guardNames) {
      if (word == name.text) guards.*name.guard = true;
    }
    list.remove_prefix(word.size() == list.size() ? word.size() : word.size() + 1);
  }
  return guards;
}

std::vector<std::string> namesOf(const Guards& guards) {
  std::vector<std::string> texts;
  for (const Name& name : guardNames) {
    if (guards.*name.guard) texts.emplace_back(name.text);
  }
  return texts;
}

}  // namespace brisko
