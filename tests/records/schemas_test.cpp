// The schemas in docs/schemas reject what is wrong and accept what is right.

#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest-spi.h>

#include "base/files.h"
#include "base/json_file.h"
#include "records/files_document.h"
#include "support/files.h"
#include "support/record_schemas.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::schemas_test {
namespace {

using namespace test;

const std::vector<std::string> kinds = {"calibration", "config", "history-line",
                                        "probe",       "status", "statistics"};

// Valid documents with every possible key, by kind.
std::map<std::string, std::vector<Json>> wholeDocuments() {
  std::map<std::string, std::vector<Json>> documents;
  for (const auto& [name, text] : test::examplesOfFilesDocument()) {
    if (const auto kind = test::recordKind(name)) documents[*kind].push_back(Json::parse(text));
  }
  documents["calibration"] = {Json::parse(R"({
      "before": {"cycles": 120, "design": 4563, "nominal": 4305, "raw": 4251},
      "lastFailure": {"phase": "drain", "reason": "stalled"},
      "phase": "soak",
      "phaseSince": 1772350800.5,
      "runs": [{"afterNominal": 4310, "afterRaw": 4290, "at": 1764576000.0, "beforeNominal": 4305,
                "beforeRaw": 4251, "cyclesAfter": 121, "cyclesBefore": 120, "design": 4563}],
      "soakBanked": 1200.5,
      "startedAt": 1772323200.0})")};
  documents["probe"] = {
      {{"supported", true}, {"mode", "CHTE"}, {"led", true}, {"discharge", "CHIE"}},
      {{"supported", true}, {"mode", "macOS"}, {"led", false}, {"discharge", "macOS"}},
      {{"supported", false}, {"reason", "system-locked"}, {"message", "No."}, {"detail", "Not probed."}},
  };
  return documents;
}

Json whole(const std::string& kind) { return wholeDocuments().at(kind).front(); }

std::optional<std::string> flaw(const std::string& kind, const Json& document) {
  return flawIn(document.dump(), kind);
}

// Calls `visit` with the place of every value inside.
void forEachPlace(const Json& value, const std::function<void(const Json::json_pointer&)>& visit,
                  const Json::json_pointer& place = Json::json_pointer()) {
  visit(place);
  if (value.is_object()) {
    for (const auto& [key, inside] : value.items()) forEachPlace(inside, visit, place / key);
  } else if (value.is_array()) {
    for (std::size_t index = 0; index < value.size(); ++index) {
      forEachPlace(value[index], visit, place / index);
    }
  }
}

// Values that are invalid in the place of `value`. Integers and numbers are different types.
std::vector<Json> othersThan(const Json& value) {
  std::vector<Json> others = {nullptr, true, 7, -7, 7.0, 7.5, "other", Json::array(), Json::object()};
  std::erase_if(others, [&](const Json& other) {
    return other.type() == value.type() || (other.is_number_integer() && value.is_number_integer());
  });
  return others;
}

TEST(Schemas, acceptValidDocuments) {
  std::set<std::string> seen;
  for (const auto& [kind, documents] : wholeDocuments()) {
    seen.insert(kind);
    for (const Json& document : documents) EXPECT_EQ(flaw(kind, document), std::nullopt) << document;
  }
  EXPECT_EQ(seen, std::set<std::string>(kinds.begin(), kinds.end()));
}

TEST(Schemas, rejectEveryOtherTypeUnderEveryKey) {
  for (const auto& [kind, documents] : wholeDocuments()) {
    for (const Json& document : documents) {
      forEachPlace(document, [&, &schema = kind](const Json::json_pointer& place) {
        for (const Json& other : othersThan(document.at(place))) {
          Json broken = document;
          broken[place] = other;
          EXPECT_NE(flaw(schema, broken), std::nullopt) << schema << " " << place << ": " << other;
        }
      });
    }
  }
}

TEST(Schemas, rejectAnUnknownKeyInEveryObject) {
  for (const auto& [kind, documents] : wholeDocuments()) {
    for (const Json& document : documents) {
      forEachPlace(document, [&, &schema = kind](const Json::json_pointer& place) {
        if (!document.at(place).is_object()) return;
        Json broken = document;
        broken[place]["another"] = 1;
        EXPECT_THAT(flaw(schema, broken), Optional(HasSubstr("breaks \"additionalProperties\""))) << place;
      });
    }
  }
}

// The optional keys of the objects at each place; all others are required.
TEST(Schemas, requireEveryKeyThatIsAlwaysPresent) {
  const std::set<std::string> runs = {"afterNominal", "afterRaw",    "beforeNominal", "beforeRaw",
                                      "cyclesBefore", "cyclesAfter", "design"};
  std::map<std::string, std::set<std::string>> optional = {
      {"config ", {}},
      {"status ",
       {"dischargeUnseen", "fullUntil", "gateVerified", "guards", "nativeFloor", "nextWake", "temp"}},
      {"status /cal", {"lastFailure"}},
      {"status /cal/lastFailure", {}},
      {"status /cal/runs/0", runs},
      {"statistics ", {"nativeBefore"}},
      {"history-line ", {"hot", "ct", "wt"}},
      {"calibration ", {"before", "lastFailure"}},
      {"calibration /before", {"cycles", "design", "nominal", "raw"}},
      {"calibration /lastFailure", {}},
      {"calibration /runs/0", runs},
      {"probe ", {"discharge"}},
  };
  for (const std::string& kind : kinds) {
    const Json document = whole(kind);
    forEachPlace(document, [&](const Json::json_pointer& place) {
      if (!document.at(place).is_object()) return;
      const std::string object = kind + " " + place.to_string();
      ASSERT_TRUE(optional.contains(object)) << object;
      for (const auto& [key, value] : document.at(place).items()) {
        Json shorter = document;
        shorter[place].erase(key);
        EXPECT_EQ(!flaw(kind, shorter).has_value(), optional[object].contains(key)) << object << "/" << key;
      }
    });
  }
}

struct Edit {
  std::string kind;
  std::string place;
  Json value;
  std::string keyword;  // the keyword of the schema that this violates; empty: none
};

void expectFlaws(const std::vector<Edit>& edits) {
  for (const Edit& edit : edits) {
    Json document = whole(edit.kind);
    document[Json::json_pointer(edit.place)] = edit.value;
    const auto found = flaw(edit.kind, document);
    if (edit.keyword.empty()) {
      EXPECT_EQ(found, std::nullopt) << edit.place << " " << edit.value;
    } else {
      EXPECT_THAT(found, Optional(HasSubstr("breaks \"" + edit.keyword + "\"")))
          << edit.place << " " << edit.value;
    }
  }
}

TEST(Schemas, acceptEveryNameThatTheDaemonUses) {
  std::vector<Edit> edits;
  const auto names = [&](const std::string& kind, const std::string& place,
                         const std::vector<std::string>& known) {
    for (const std::string& name : known) edits.push_back({kind, place, name, ""});
    for (const char* other : {"", "Hold", "CHTE ", "unknown"}) {
      edits.push_back({kind, place, other, "enum"});
    }
  };
  const std::vector<std::string> states = {"allow", "hold", "discharge"};
  const std::vector<std::string> phases = {"idle", "fill", "drain", "refill", "soak", "restore"};
  names("status", "/state", states);
  names("status", "/chargeMode", {"CHTE", "CH0B+CH0C", "bfD0/bfE0/bfF0", "macOS", "none"});
  names("status", "/smcKeys/0", {"CHIE", "CH0B", "CH0C", "bfF0", "bfD0", "bfE0", "CH0I", "CH0J", "bfG0"});
  names("status", "/cal/lastFailure/phase", phases);
  names("status", "/cal/phase", {"fill", "drain", "refill", "soak", "restore"});
  names("calibration", "/phase", phases);
  names("calibration", "/lastFailure/phase", phases);
  names("history-line", "/s", states);
  expectFlaws(edits);
}

TEST(Schemas, enforceTheRangesOfTheDaemon) {
  expectFlaws({
      {"status", "/upper", 19, "minimum"},
      {"status", "/upper", 20, ""},
      {"status", "/upper", 100, ""},
      {"status", "/upper", 101, "maximum"},
      {"status", "/temp", -0.1, "minimum"},
      {"status", "/temp", 0.0, ""},
      {"status", "/temp", 100.0, ""},
      {"status", "/temp", 100.1, "maximum"},
      {"history-line", "/ct", -1, "minimum"},
      {"history-line", "/ct", 0, ""},
      {"history-line", "/ct", 1000, ""},
      {"history-line", "/ct", 1001, "maximum"},
      {"history-line", "/hot", false, "enum"},
      {"history-line", "/wt", -430, ""},
      {"history-line", "/t", -1, ""},
      {"status", "/daemonVersion", "1.0.0", ""},
      {"status", "/daemonVersion", "0.9.9-beta", "pattern"},
      {"status", "/daemonVersion", "", "pattern"},
      {"status", "/smcKeys", {"ACLC", "AC-W", "ACLC"}, "uniqueItems"},
      {"status", "/smcKeys", Json::array(), ""},
      {"status", "/pct", 102, ""},
      {"status", "/protectedSeconds", -30, ""},
  });
}

TEST(Schemas, acceptAnyChoiceOfTheUser) {
  expectFlaws({
      {"config", "/limit", 150, ""},
      {"config", "/hysteresis", -3, ""},
      {"config", "/blinkSeconds", -1e300, ""},
      {"config", "/calDrain", 9223372036854775807, ""},
      {"status", "/cal/drainTarget", -3, ""},
      {"status", "/cal/soakSeconds", -60, ""},
  });
}

TEST(Schemas, allowARunInAStatusOnlyDuringACalibration) {
  const Json running = whole("status");
  Json idle = running;
  idle["cal"]["phase"] = "idle";
  for (const char* key : {"startedAt", "phaseSince", "soakBanked", "soakSeconds", "drainTarget"}) {
    idle["cal"].erase(key);
  }
  EXPECT_EQ(flaw("status", idle), std::nullopt);
  for (const char* key : {"startedAt", "phaseSince", "soakBanked", "soakSeconds", "drainTarget"}) {
    Json broken = idle;
    broken["cal"][key] = running["cal"][key];
    EXPECT_THAT(flaw("status", broken), Optional(HasSubstr("#/cal breaks \"oneOf\""))) << key;
  }
  Json began = idle;
  began["cal"]["phase"] = "fill";
  EXPECT_THAT(flaw("status", began), Optional(HasSubstr("#/cal breaks \"oneOf\"")));
}

TEST(Schemas, allowEitherAGateOrAReasonInAProbe) {
  const std::vector<Json> probes = wholeDocuments().at("probe");
  const Json& keys = probes[0];
  const Json& macOS = probes[1];
  const Json& none = probes[2];
  const auto edited = [](Json probe, const Json& edits) {
    probe.merge_patch(edits);  // null takes a key out
    return flaw("probe", probe);
  };
  for (const char* mode : {"CHTE", "CH0B+CH0C", "bfD0/bfE0/bfF0"}) {
    for (const char* cut : {"CHIE", "CH0I", "CH0J"}) {
      EXPECT_EQ(edited(keys, {{"mode", mode}, {"discharge", cut}}), std::nullopt);
    }
    EXPECT_EQ(edited(keys, {{"mode", mode}, {"discharge", nullptr}, {"led", false}}), std::nullopt);
    EXPECT_NE(edited(macOS, {{"mode", mode}}), std::nullopt);
  }
  EXPECT_EQ(edited(none, {{"reason", "none"}}), std::nullopt);

  EXPECT_NE(edited(keys, {{"mode", "macOS"}}), std::nullopt);
  EXPECT_NE(edited(keys, {{"mode", "none"}}), std::nullopt);
  EXPECT_NE(edited(keys, {{"discharge", "none"}}), std::nullopt);
  EXPECT_NE(edited(keys, {{"discharge", "macOS"}}), std::nullopt);
  EXPECT_NE(edited(keys, {{"supported", false}}), std::nullopt);
  EXPECT_NE(edited(macOS, {{"discharge", nullptr}}), std::nullopt);
  EXPECT_NE(edited(none, {{"supported", true}}), std::nullopt);
  EXPECT_NE(edited(none, {{"reason", "locked"}}), std::nullopt);
  for (const char* key : {"mode", "led", "supported"}) {
    EXPECT_NE(edited(keys, {{key, nullptr}}), std::nullopt) << key;
    EXPECT_NE(edited(macOS, {{key, nullptr}}), std::nullopt) << key;
  }
  for (const char* key : {"reason", "message", "detail", "supported"}) {
    EXPECT_NE(edited(none, {{key, nullptr}}), std::nullopt) << key;
  }
  for (const char* key : {"reason", "message", "detail"}) {
    EXPECT_NE(edited(keys, {{key, none[key]}}), std::nullopt) << key;
    EXPECT_NE(edited(macOS, {{key, none[key]}}), std::nullopt) << key;
  }
  for (const char* key : {"mode", "led", "discharge"}) {
    EXPECT_NE(edited(none, {{key, keys[key]}}), std::nullopt) << key;
  }
}

TEST(Schemas, requireACompactSortedText) {
  const std::string right = whole("statistics").dump();
  ASSERT_EQ(flawIn(right, "statistics"), std::nullopt);
  for (const std::string& text : {right + "\n", " " + right, whole("statistics").dump(1)}) {
    EXPECT_THAT(flawIn(text, "statistics"),
                Optional(std::string("it is not compact with its keys in byte order")));
  }
  EXPECT_THAT(flawIn(R"({"atLimit":true,"since":1.0,"protectedSeconds":1,"topUpSince":0.0})", "statistics"),
              Optional(HasSubstr("byte order")));
  EXPECT_THAT(flawIn(right.substr(0, 20), "statistics"), Optional(std::string("it is not JSON")));
  EXPECT_THAT(flawIn("", "statistics"), Optional(std::string("it is not JSON")));
  EXPECT_THAT(flawIn("[]", "statistics"), Optional(HasSubstr("# breaks \"type\"")));
}

// Files of the daemon and of a test in a folder, whose check must fail the test or pass.
class RecordCheck : public ::testing::Test {
 protected:
  RecordCheck() { root() = folder_.path(); }

  // A statement that should fail cannot use the fixture.
  static void checkFolder() { test::checkRecords(root()); }
  static std::string path(const std::string& name) { return root() + "/" + name; }

  // Appends to a file as the daemon does to its history.
  static void append(const std::string& name, const std::string& text) {
    const Descriptor file = openForAppending(path(name));
    ASSERT_TRUE(writeAll(file.number(), text));
  }

 private:
  static std::string& root() {
    static std::string path;
    return path;
  }

  test::ScratchFolder folder_;
};

constexpr const char* line = "{\"g\":true,\"p\":80,\"s\":\"hold\",\"t\":1772352000}\n";

TEST_F(RecordCheck, failsOnEachInvalidRecord) {
  for (const auto& [kind, name] : std::map<std::string, std::string>{{"calibration", "calibration.json"},
                                                                     {"config", "config.json"},
                                                                     {"status", "status.json"},
                                                                     {"statistics", "stats.json"}}) {
    Json document = whole(kind);
    writeJsonFile(path(name), document);
    checkFolder();
    document["another"] = 1;
    writeJsonFile(path(name), document);
    EXPECT_NONFATAL_FAILURE(checkFolder(), "#/another breaks \"additionalProperties\"");
    checkFolder();  // reported once
  }
}

TEST_F(RecordCheck, reportsTheErrorAndItsPlace) {
  Json document = whole("statistics");
  document["since"] = 7;
  writeJsonFile(path("stats.json"), document);
  EXPECT_NONFATAL_FAILURE(
      checkFolder(),
      "/stats.json\n  #/since breaks \"not\" of #/properties/since in statistics.schema.json\n");
}

TEST_F(RecordCheck, readsNestedFolders) {
  test::makeFolder(path("a"));
  test::makeFolder(path("a/b"));
  writeJsonFile(path("a/b/config.json"), Json::object());
  EXPECT_NONFATAL_FAILURE(checkFolder(), "/a/b/config.json\n  # breaks \"required\"");
}

TEST_F(RecordCheck, ignoresFilesThatTheTestPut) {
  test::put(path("config.json"), "{\"limit\":");
  checkFolder();
  test::put(path("config.json.new"), "{}");
  ASSERT_EQ(std::rename(path("config.json.new").c_str(), path("config.json").c_str()), 0);
  checkFolder();
  writeJsonFile(path("config.json"), {{"limit", 80}});
  EXPECT_NONFATAL_FAILURE(checkFolder(), "required");
}

TEST_F(RecordCheck, skipsAnEmptyRecordAndOtherFiles) {
  writeJsonFile(path("another.json"), Json::array());
  append("status.json", "");
  test::makeFolder(path("stats.json"));
  test::makePipe(path("calibration.json"));
  test::makeLink(path("config.json"), path("another.json"));
  checkFolder();
}

TEST_F(RecordCheck, checksEachLineOfTheHistory) {
  const std::string day = "2026-03-01.jsonl";
  append(day, line);
  append(day, line);
  checkFolder();
  append(day, "{\"g\":true}\n");
  EXPECT_NONFATAL_FAILURE(checkFolder(), "# breaks \"required\" of # in history-line.schema.json");
  append(day, line);
  checkFolder();
  append(day, "{\"g\"");
  EXPECT_NONFATAL_FAILURE(checkFolder(), "its last line does not end");
}

TEST_F(RecordCheck, checksWhatFollowsTheLinesThatTheTestWrote) {
  const std::string day = "2026-03-01.jsonl";
  test::put(path(day), "not one of ours\n");
  checkFolder();
  append(day, line);
  checkFolder();
  append(day, "{}\n");
  EXPECT_NONFATAL_FAILURE(checkFolder(), "required");
}

// Calls `visit` with every schema inside a schema.
void forEachSchema(const Json& schema, const std::function<void(const Json&)>& visit) {
  visit(schema);
  for (const char* named : {"properties", "definitions"}) {
    if (schema.contains(named)) {
      for (const Json& inside : schema[named]) forEachSchema(inside, visit);
    }
  }
  for (const char* listed : {"oneOf", "anyOf"}) {
    if (schema.contains(listed)) {
      for (const Json& inside : schema[listed]) forEachSchema(inside, visit);
    }
  }
  for (const char* single : {"items", "not"}) {
    if (schema.contains(single)) forEachSchema(schema[single], visit);
  }
}

std::set<std::string> keysIn(const std::vector<Json>& documents) {
  std::set<std::string> keys;
  for (const Json& document : documents) {
    forEachPlace(document, [&](const Json::json_pointer& place) {
      if (!document.at(place).is_object()) return;
      for (const auto& [key, value] : document.at(place).items()) keys.insert(key);
    });
  }
  return keys;
}

TEST(Schemas, existForEachKindOfDocument) {
  std::vector<std::string> found;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::string(BRISKO_TEST_DATA) + "/../../docs/schemas")) {
    const std::string name = entry.path().filename();
    // The output of brisko is checked by its own tests.
    if (!name.starts_with("brisko-")) found.push_back(name.substr(0, name.find('.')));
  }
  // Scenarios and the summaries of campaigns are checked by the tests of the lab.
  std::vector<std::string> wanted = kinds;
  wanted.insert(wanted.end(), {"scenario", "campaign-summary"});
  EXPECT_THAT(found, ::testing::UnorderedElementsAreArray(wanted));
}

// The validator would ignore an unknown keyword or a reference without a target.
TEST(Schemas, useNoKeywordThatTheValidatorIgnores) {
  const std::set<std::string> known = {
      "$schema", "title",       "description", "default", "unit",     "triggersWrite",  // for the reader
      "$ref",    "definitions", "type",        "enum",    "required", "properties",    "additionalProperties",
      "items",   "minItems",    "uniqueItems", "minimum", "maximum",  "pattern",       "oneOf",
      "anyOf",   "not"};
  for (const std::string& kind : kinds) {
    const Json root = test::schemaOf(kind);
    forEachSchema(root, [&](const Json& schema) {
      for (const auto& [keyword, value] : schema.items())
        EXPECT_THAT(known, ::testing::Contains(keyword)) << kind;
      if (schema.contains("$ref")) {
        const auto place = schema["$ref"].get<std::string>();
        EXPECT_TRUE(place.starts_with("#/") && root.contains(Json::json_pointer(place.substr(1)))) << place;
      }
    });
  }
}

TEST(Schemas, explainEveryKey) {
  for (const std::string& kind : kinds) {
    const Json root = test::schemaOf(kind);
    std::set<std::string> keys;
    EXPECT_EQ(root["$schema"], "http://json-schema.org/draft-07/schema#");
    for (const char* text : {"title", "description"}) EXPECT_TRUE(root.contains(text)) << kind;
    forEachSchema(root, [&](const Json& schema) {
      if (!schema.contains("type") || !schema.contains("properties")) return;
      EXPECT_EQ(schema["additionalProperties"], false);
      for (const auto& [key, value] : schema["properties"].items()) {
        EXPECT_TRUE(value.contains("description") || value.contains("$ref")) << kind << " " << key;
        keys.insert(key);
      }
    });
    // So the tests above have checked each key.
    EXPECT_EQ(keysIn(wholeDocuments().at(kind)), keys);
  }
}

TEST(Schemas, agreeOnWhatTheyShare) {
  const Json calibration = test::schemaOf("calibration")["definitions"];
  const Json status = test::schemaOf("status")["definitions"];
  for (const auto& [name, definition] : calibration.items()) EXPECT_EQ(status[name], definition) << name;
}

TEST(Schemas, containTheDefaultsOfTheSettings) {
  const Json settings = whole("config");
  const Json properties = test::schemaOf("config")["properties"];
  for (const auto& [key, schema] : properties.items()) {
    EXPECT_EQ(schema["default"].dump(), settings[key].dump()) << key;
  }
}

}  // namespace
}  // namespace brisko::schemas_test
