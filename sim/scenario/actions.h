// sim/scenario/actions.h
// What happens in a step of a scenario: everything in the virtual Mac's list of faults by its own name, and
// what happens to the service, the app and the files.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/scenario/simulation.h"
#include "sim/scenario/strict_json.h"

namespace brisko::lab {

struct Action {
  std::string place;  // in the file
  std::string words;  // what happens, for people: "charge 60"
  // False and a reason when it can't be done as things stand.
  std::function<bool(Simulation&, std::string& reason)> act;
};

// One action or a list of them.
[[nodiscard]] std::vector<Action> readActions(const JsonCursor& place);

// The names that a scenario can use beside those of faults.
[[nodiscard]] std::vector<std::string> ownActionNames();

}  // namespace brisko::lab
