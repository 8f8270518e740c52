// sim/scenario/actions.h
// What can happen in a step of a scenario: everything in the virtual Mac's list of faults, by its name there,
// and actions on the service, the app and the files.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/process/simulation.h"
#include "sim/scenario/strict_json.h"

namespace brisko::lab {

struct Action {
  std::string place;  // in the file
  std::string words;  // the action as shown to users: "charge 60"
  // Returns false and a reason when it can't be done in the present situation.
  std::function<bool(sim::Simulation&, std::string& reason)> act;
};

// Reads one action or a list of them, which meet the schema.
[[nodiscard]] std::vector<Action> readActions(const JsonCursor& place);

// The names that a scenario can use besides those of the faults.
[[nodiscard]] std::vector<std::string> ownActionNames();

}  // namespace brisko::lab
