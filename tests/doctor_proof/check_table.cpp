// Prints every check of brisko doctor with the evidence of its failure and that of a healthy Mac, as the
// tests have them, and what it makes of each. Status 1: a check makes something else of it.
#include <cstdio>
#include <string>

#include "client/doctor/diagnosis.h"
#include "client/doctor_cases.h"

namespace brisko::client::doctor_test {
namespace {

// What a check made of its evidence, in a cell of the table.
std::string verdictText(const CheckResult& result) {
  if (result.outcome == Outcome::found) return result.text;
  return result.outcome == Outcome::clear ? "nothing" : "not looked at: " + result.text;
}

class Table {
 public:
  // `expected`: part of the finding; null for none.
  void add(const Check& check, const char* evidence, const CheckResult& result, const char* expected) {
    const bool isRight = expected == nothing ? result.outcome == Outcome::clear
                                             : result.outcome == Outcome::found &&
                                                   result.text.find(expected) != std::string::npos;
    if (!isRight) ++wrong_;
    ++rows_;
    std::printf("| %s %s | %s | %s%s |\n", check.id, check.title, evidence, verdictText(result).c_str(),
                isRight ? "" : " (WRONG)");
  }

  [[nodiscard]] bool isRight() const {
    std::printf("\n%zu pieces of evidence, %zu of them judged wrongly.\n", rows_, wrong_);
    return rows_ > 0 && wrong_ == 0;
  }

 private:
  std::size_t rows_ = 0;
  std::size_t wrong_ = 0;
};

bool printTable() {
  std::printf("| check | evidence | found |\n|---|---|---|\n");
  Table table;
  for (const Check& check : checks()) {
    table.add(check, "a healthy Mac", check.run(healthy()), nothing);
    for (const Case& each : allCases()) {
      if (std::string(each.id) != check.id) continue;
      Evidence evidence = healthy();
      each.change(evidence);
      table.add(check, each.name, check.run(evidence), each.text);
    }
  }
  return table.isRight();
}

}  // namespace
}  // namespace brisko::client::doctor_test

int main() { return brisko::client::doctor_test::printTable() ? 0 : 1; }
