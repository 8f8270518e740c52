// The daemon with one rule broken: "brisko-broken BREAK [arguments of the daemon]". Without a word it prints
// the names of the breaks.

#include <cstdio>
#include <string>
#include <vector>

#include "broken/broken.h"
#include "daemon/entry.h"

int main(int count, char** arguments) {
  std::vector<std::string> words(arguments, arguments + count);
  if (words.size() < 2) {
    for (const std::string_view name : brisko::test::breaks()) std::printf("%s\n", name.data());
    return 0;
  }
  if (!brisko::test::chooseBreak(words[1])) {
    std::fprintf(stderr, "brisko-broken: there is no break named %s\n", words[1].c_str());
    return 64;
  }
  words.erase(words.begin() + 1);
  return brisko::enter(words);
}
