#include "sim/schema/json_schema.h"

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>

namespace brisko::schema {
namespace {

rapidjson::Document documentOf(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  return document;
}

std::string textOf(const rapidjson::Pointer& pointer) {
  rapidjson::StringBuffer text;
  pointer.Stringify(text);
  return text.GetString();
}

}  // namespace

bool hasValidator() { return true; }

struct JsonSchema::Compiled {
  explicit Compiled(const std::string& text) : source(documentOf(text)), document(source) {}

  rapidjson::Document source;  // the compiled schema points into it
  rapidjson::SchemaDocument document;
};

JsonSchema::JsonSchema(const std::string& schema) : compiled_(std::make_unique<const Compiled>(schema)) {}
JsonSchema::~JsonSchema() = default;

std::optional<Breach> JsonSchema::breachIn(std::string_view text) const {
  rapidjson::MemoryStream bytes(text.data(), text.size());
  rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(bytes);
  rapidjson::SchemaValidator validator(compiled_->document);
  rapidjson::Reader reader;
  if (!reader.Parse(stream, validator).IsError()) return std::nullopt;
  if (validator.IsValid()) return Breach{.keyword = "not JSON"};
  return Breach{textOf(validator.GetInvalidDocumentPointer()), validator.GetInvalidSchemaKeyword(),
                textOf(validator.GetInvalidSchemaPointer())};
}

}  // namespace brisko::schema
