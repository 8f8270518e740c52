#include "sim/scenario/scenario_schema.h"

#include <algorithm>
#include <map>

#include "base/nearest_name.h"
#include "sim/schema/json_schema.h"

namespace brisko::lab {
namespace {

using Words = std::vector<std::string>;

// "one, two or three"
std::string listOf(const Words& words, const char* last = " or ") {
  std::string text;
  for (std::size_t index = 0; index < words.size(); ++index) {
    if (index > 0) text += index + 1 == words.size() ? last : ", ";
    text += words[index];
  }
  return text;
}

Words keysOf(const Json& object) {
  Words keys;
  for (const auto& [key, ignored] : object.items()) keys.push_back(key);
  return keys;
}

bool contains(const Words& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// "; did you mean …?"; empty if no known word is similar.
std::string suggestionFor(const std::string& word, const Words& known) {
  const auto nearest = nearestName(word, known);
  return nearest ? "; did you mean \"" + *nearest + "\"?" : "";
}

// The words that a rule allows: of "enum" itself, or of one that applies to texts alone.
Words allowedWords(const Json& rule) {
  if (rule.contains("enum")) return rule.at("enum").get<Words>();
  for (const Json& either : rule.value("anyOf", Json::array())) {
    if (either.contains("enum")) return either.at("enum").get<Words>();
  }
  return {};
}

std::string nameOfType(const Json& type) {
  static const std::map<std::string, std::string> names{
      {"string", "a text"},   {"boolean", "true or false"}, {"integer", "a whole number"},
      {"number", "a number"}, {"object", "an object"},      {"array", "a list"}};
  return names.at(type.is_array() ? type.at(0) : type);
}

std::string expectationOf(const Json& rule) {
  if (rule.contains("title")) return rule.at("title");
  if (const Words words = allowedWords(rule); !words.empty()) return listOf(words);
  std::string text = nameOfType(rule.at("type"));
  if (rule.contains("minimum")) text += " from " + plainNumber(rule.at("minimum"));
  if (rule.contains("maximum")) text += " to " + plainNumber(rule.at("maximum"));
  return text;
}

std::string unknownKey(const std::string& key, const Json& rule) {
  if (contains(allowedWords(rule), key)) return "takes no value; write it as a text, \"" + key + "\"";
  const Words known = keysOf(rule.at("properties"));
  const std::string suggestion = suggestionFor(key, known);
  constexpr std::size_t mostListed = 20;
  if (!suggestion.empty() || known.size() > mostListed) return "unknown key" + suggestion;
  return "unknown key; known are " + listOf(known, " and ");
}

std::string missingKeys(const Json& value, const Json& rule) {
  Words missing;
  for (const std::string key : rule.at("required")) {
    if (!value.contains(key)) missing.push_back("\"" + key + "\"");
  }
  return "needs " + listOf(missing, " and ");
}

std::string unexpectedValue(const Json& value, const Json& rule) {
  const Words known = allowedWords(rule);
  std::string suggestion;
  if (value.is_string() && !known.empty()) {
    const std::string word = value;
    if (rule.value("properties", Json::object()).contains(word)) {
      return "needs a value, as an object with \"" + word + "\" and its value";
    }
    suggestion = suggestionFor(word, known);
  }
  return "expected " + expectationOf(rule) + ", not " + shown(value) + suggestion;
}

}  // namespace

bool meetsSchema(std::string_view text, const Json& document, Diagnostics& diagnostics) {
  static const schema::JsonSchema compiled(scenarioSchemaText());
  static const Json rules = Json::parse(scenarioSchemaText());
  const auto breach = compiled.breachIn(text);
  if (!breach) return true;
  const Json::json_pointer place(breach->place);
  const Json& rule = rules.at(Json::json_pointer(breach->rule));
  const Json& value = document.at(place);
  diagnostics.add(breach->place, breach->keyword == "additionalProperties" ? unknownKey(place.back(), rule)
                                 : breach->keyword == "required"           ? missingKeys(value, rule)
                                                                           : unexpectedValue(value, rule));
  return false;
}

}  // namespace brisko::lab
