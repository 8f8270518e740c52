// sim/schema/json_schema.h
// Validates JSON against a schema of draft 4.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brisko::schema {

// The lab that is installed on a Mac is built without the validator, and finds nothing wrong in any text. So
// it takes no files that people write.
[[nodiscard]] bool hasValidator();
inline constexpr const char* noValidatorText =
    "cannot be checked: this program was built for a Mac without the validator of JSON schemas";

// The first value that a schema does not allow.
struct Breach {
  std::string place = {};    // of the value, as a JSON pointer into the text
  std::string keyword = {};  // of the schema: "type", "required"
  std::string rule = {};     // the part of the schema that has the keyword, as a JSON pointer
};

class JsonSchema {
 public:
  explicit JsonSchema(const std::string& schema);
  ~JsonSchema();
  JsonSchema(const JsonSchema&) = delete;
  JsonSchema& operator=(const JsonSchema&) = delete;

  // `text` must be JSON.
  [[nodiscard]] std::optional<Breach> breachIn(std::string_view text) const;

 private:
  struct Compiled;
  std::unique_ptr<const Compiled> compiled_;
};

}  // namespace brisko::schema
