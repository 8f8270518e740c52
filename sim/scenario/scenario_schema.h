// sim/scenario/scenario_schema.h
// docs/schemas/scenario.schema.json is the description of scenario files. A rule's "title" there says what is
// expected; it is what messages quote.
#pragma once

#include <string_view>

#include "sim/scenario/strict_json.h"

namespace brisko::lab {

// The schema, as it was when the program was built.
[[nodiscard]] const char* scenarioSchemaText();

// Whether a parsed file meets the schema. If not, it adds the first mistake to the diagnostics.
[[nodiscard]] bool meetsSchema(std::string_view text, const Json& document, Diagnostics& diagnostics);

}  // namespace brisko::lab
