// The daemon with one mutant: "brisko-mutant NAME [arguments of the daemon]". Without arguments it prints the
// names of the mutants.

#include <cstdio>
#include <string>
#include <vector>

#include "daemon/entry.h"
#include "mutants/mutant.h"

int main(int count, char** arguments) {
  std::vector<std::string> words(arguments, arguments + count);
  if (words.size() < 2) {
    for (const std::string_view name : brisko::test::mutants()) std::printf("%s\n", name.data());
    return 0;
  }
  if (!brisko::test::activateMutant(words[1])) {
    std::fprintf(stderr, "brisko-mutant: unknown mutant %s\n", words[1].c_str());
    return 64;
  }
  words.erase(words.begin() + 1);
  return brisko::enter(words);
}
