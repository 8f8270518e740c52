// What "brisko report" takes over and what it leaves out.
#include <csignal>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "client/bug_report.h"
#include "client/file_writing.h"
#include "client/live_brisko.h"
#include "client/report_json.h"
#include "report/ustar.h"
#include "support/child.h"
#include "support/record_schemas.h"

namespace brisko::client::report_test {
namespace {

using nlohmann::json;
using test::contents;
using test::expectRefused;
using test::Finished;
using test::LiveBrisko;
using test::said;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// --- JSON

// The example of a file in the document about the files, which a test compares with the daemon.
json exampleOf(const std::string& file) {
  const std::string document = contents(std::string(BRISKO_DOCUMENTS) + "/files.md");
  const std::string mark = "```json " + file + "\n";
  const std::size_t begin = document.find(mark) + mark.size();
  return json::parse(document.substr(begin, document.find("```", begin) - begin));
}

// Every key of the schema at this depth and below must be in the object.
void expectEveryKey(const json& schema, const json& value, const json& root, const std::string& where) {
  if (schema.contains("$ref")) {
    const std::string name = schema["$ref"].get<std::string>().substr(std::string("#/definitions/").size());
    return expectEveryKey(root["definitions"][name], value, root, where);
  }
  if (schema.contains("items")) return expectEveryKey(schema["items"], value.at(0), root, where + "[]");
  if (!schema.contains("properties")) return;
  for (const auto& [key, member] : schema["properties"].items()) {
    ASSERT_TRUE(value.contains(key)) << where << "." << key;
    expectEveryKey(member, value[key], root, where + "." + key);
  }
}

TEST(ReportOfTheFiles, keepsEveryKeyOfTheirSchemas) {
  struct Case {
    const char* file;
    const char* schema;
    KeptText (*keep)(std::string_view);
  };
  for (const Case& each :
       {Case{"status.json", "status", keptStatus}, Case{"config.json", "config", keptConfig},
        Case{"stats.json", "statistics", keptStatistics},
        Case{"calibration.json", "calibration", keptCalibration},
        Case{"history/2026-03-01.jsonl", "history-line", keptHistory}}) {
    const json example = exampleOf(each.file);
    const json schema = test::schemaOf(each.schema);
    expectEveryKey(schema, example, schema, each.file);
    const KeptText kept = each.keep(example.dump());
    EXPECT_EQ(kept.dropped, 0U) << each.file;
    EXPECT_EQ(json::parse(kept.text), example) << each.file;
  }
}

TEST(ReportOfTheFiles, dropsAndCountsEverythingElse) {
  const KeptText kept = keptConfig(
      R"({"anna":"x","enabled":1,"led":"anna","limit":4915112345678,"history":[true],"topUp":true,"calDrain":20.5})");
  EXPECT_EQ(json::parse(kept.text), json({{"calDrain", 20.5}, {"enabled", 1}, {"topUp", true}}));
  EXPECT_EQ(kept.dropped, 4U);
  for (const char* text : {"", "[]", "anna", "{\"limit\":80", "{} x"})
    EXPECT_TRUE(keptConfig(text).unreadable) << text;
  EXPECT_EQ(keptConfig("{\"limit\":9999999999}").dropped, 0U);
  EXPECT_EQ(keptConfig("{\"limit\":10000000000}").dropped, 1U);
  EXPECT_EQ(keptConfig("{\"limit\":1e999}").dropped, 1U);

  const KeptText status =
      keptStatus(R"({"state":"anna","daemonPath":"/Users/anna/d","smcKeys":["CHTE","ANNA"],)"
                 R"("cal":{"phase":"soak","lastFailure":{"phase":"fill","reason":"anna"}}})");
  EXPECT_EQ(json::parse(status.text),
            json::parse(R"({"daemonPath":"/Users/…","smcKeys":["CHTE"],)"
                        R"("cal":{"phase":"soak","lastFailure":{"phase":"fill"}}})"));
  EXPECT_EQ(status.dropped, 3U);

  const KeptText history =
      keptHistory("{\"g\":true,\"p\":80,\"s\":\"hold\",\"t\":1772352000}\nanna\n{\"p\":\"anna\"}\n");
  EXPECT_EQ(history.text, "{\"g\":true,\"p\":80,\"s\":\"hold\",\"t\":1772352000}\n{}\n");
  EXPECT_EQ(history.dropped, 2U);
}

TEST(ReportOfTheJob, keepsTheOptionsOfTheDaemon) {
  const json job = json::parse(
      keptJob(
          R"({"Label":"com.brisko.daemon","UserName":"anna","Umask":18,"ProgramArguments":)"
          R"(["/Users/anna/brisko-daemon","--limit","85","--guard","night,menu,swing","--app","/Users/anna/B.app",)"
          R"("--anna","--lower","anna"],"StandardErrorPath":"/Library/Logs/Brisko/daemon.err.log"})")
          .text);
  EXPECT_EQ(job["ProgramArguments"], json({"/Users/…", "--limit", "85", "--guard", "night,menu,swing",
                                           "--app", "/Users/…", "…", "--lower", "…"}));
  EXPECT_EQ(job["StandardErrorPath"], "/Library/Logs/Brisko/daemon.err.log");
  EXPECT_FALSE(job.contains("UserName"));
}

TEST(ReportOfTheRegistry, keepsListedPropertiesAlone) {
  const platform::Dictionary properties{
      {"Serial", "SERIAL"},
      {"CurrentCapacity", 80},
      {"Amperage", std::uint64_t{0} - 1000},
      {"ManufacturerData", platform::Data{{1, 2, 3}}},
      {"AdapterDetails", platform::Dictionary{{"Watts", 30}, {"SerialString", "SERIAL"}, {"Name", "anna"}}},
      {"BatteryData",
       platform::Dictionary{{"CellVoltage", platform::List{4000, 4001}}, {"Serial", "SERIAL"}}}};
  const KeptText kept = keptBattery(jsonOf(properties).dump());
  EXPECT_EQ(json::parse(kept.text),
            json::parse(R"({"AdapterDetails":{"Watts":30},"Amperage":-1000,)"
                        R"("BatteryData":{"CellVoltage":[4000,4001]},"CurrentCapacity":80})"));
  EXPECT_EQ(kept.dropped, 5U);
}

// --- Nothing that identifies anybody

const std::vector<std::string> planted{
    "C02XK1ABJGH7",     "D869152060YLQ1LAY",  "Anna",          "anna",
    "anna@example.org", "192.168.178.23",     "fe80::1c2d",    "a4:83:e7:12:34:56",
    "Annas-MacBook",    "FRITZ!Box 7590",     "4915112345678", "A1B2C3D4E5",
    "Magic Mouse",      "6F9619FF-8B86-D011", "Hauptstr. 5",   "52.520008"};

// What a healthy Mac has for each part.
std::string healthy(const std::string& name) {
  if (name.starts_with("history/")) return exampleOf("history/2026-03-01.jsonl").dump() + "\n";
  if (name == "status.json" || name == "config.json" || name == "stats.json" || name == "calibration.json")
    return exampleOf(name).dump();
  if (name.starts_with("daemon.log"))
    return "2026-03-01T08:15:30Z  cap 80%  batt 78%  31.5°C  ac  state=hold  LED=green\n";
  if (name == "daemon.err.log") return "⛔️ Could not open AppleSMC.\n";
  if (name == "probe.txt") return "charging   : CHTE\n";
  if (name == "self-test.txt") return "✓ 212 vérifications, aucune erreur.\n";
  if (name == "doctor.json")
    return R"({"clear":40,"findings":[{"id":"D24","severity":"error"}],"notLookedAt":[],"schema":"brisko.doctor/1"})";
  if (name == "job.json")
    return R"({"Label":"com.brisko.daemon","ProgramArguments":["/Library/Brisko/brisko-daemon"]})";
  if (name == "signature.txt") return "Identifier=com.brisko.daemon\n";
  if (name == "power-log.txt") return "2026-03-01 22:10:05 +0100 Sleep Using AC (Charge:80%)\n";
  if (name == "power-schedule.txt") return "Scheduled power events:\n";
  return R"({"AdapterDetails":{"Watts":30},"CurrentCapacity":80})";
}

std::vector<ReportPart> partsOf(const std::function<std::string(const std::string&)>& bytesOf) {
  std::vector<ReportPart> parts = reportParts({"2026-02-28", "2026-03-01"});
  for (ReportPart& part : parts) {
    part.bytes = bytesOf(part.name);
    part.problem = "";
  }
  return parts;
}

// A word alone, and within, before and after what would be kept without it.
std::string linesWith(const std::string& word, const std::string& healthyText) {
  std::string text = healthyText + healthyText.substr(0, healthyText.find('\n')) + " " + word + "\n";
  for (const char* around :
       {"%",
        "2026-03-01T08:15:30Z  %",
        "2026-03-01T08:15:30Z  → state: hold %",
        "2026-03-01T08:15:30Z  macOS %: OK",
        "2026-03-01T08:15:30Z  history pruned: %",
        "2026-03-01T08:15:30Z  app missing at /Users/%/Brisko.app — handing "
        "the charge back to macOS in 600s unless it comes back",
        "2026-03-01 22:10:05 +0100 Wake due to %/HID Activity Using AC (Charge:80%) % secs",
        "2026-03-01 22:10:05 +0100 Sleep % Using % (Charge:%)",
        "[1] wake at 03/01/2026 22:30:04 by '%'",
        "[%] wake at 03/01/2026 22:30:04",
        "TeamIdentifier=%",
        "Identifier=%",
        "Executable=/Users/%/x",
        "Authority=%",
        "charging   : %",
        "will write : % (+ ACLC)",
        "  - %: got %, want %",
        "  - pile sur le plancher : geler: got %, want %",
        "brisko-daemon: %",
        "⛔️ % [%]",
        "✓ % vérifications, aucune erreur.",
        "Signature size=%"}) {
    std::string line = around;
    for (std::size_t at = line.find('%'); at != std::string::npos; at = line.find('%', at + word.size()))
      line.replace(at, 1, word);
    text += line + "\n";
  }
  return text;
}

// The word in place of every value, or under keys of its own beside them.
json replaced(const json& value, const std::string& word) {
  if (!value.is_structured()) return word;
  json result = value;
  for (json& member : result) member = replaced(member, word);
  return result;
}
json extended(const json& value, const std::string& word) {
  if (value.is_string()) return value.get<std::string>() + word;
  if (!value.is_structured()) return value;
  json result = value;
  for (json& member : result) member = extended(member, word);
  if (result.is_array()) {
    result.push_back(word);
  } else {
    result[word] = word;
    result["Serial"] = {{"Name", word}, {word, 1}};
  }
  return result;
}

std::string planting(const std::string& name, const std::string& word, bool inPlace) {
  const std::string text = healthy(name);
  if (name.ends_with(".json")) return (inPlace ? replaced : extended)(json::parse(text), word).dump();
  if (!name.ends_with(".jsonl")) return linesWith(word, text);
  return text + word + "\n" + extended(json::parse(text), word).dump() + "\n" +
         replaced(json::parse(text), word).dump() + "\n";
}

TEST(BugReports, containNothingThatWasPlantedInAnySource) {
  const ReportFacts facts{.now = 1'772'352'000, .daemonVersion = "0.9.9", .macOS = 26, .model = "Mac14,2"};
  const BugReport untouched = bugReport(partsOf(healthy), facts);
  for (const json& file : untouched.manifest["files"]) EXPECT_EQ(file["dropped"], 0) << file;
  EXPECT_EQ(untouched.manifest["leftOut"], json::array());
  for (const std::string& word : planted) {
    for (const bool inPlace : {false, true}) {
      ReportFacts plantedFacts = facts;
      plantedFacts.daemonVersion = word;
      plantedFacts.model = word;
      const BugReport report = bugReport(
          partsOf([&](const std::string& name) { return planting(name, word, inPlace); }), plantedFacts);
      const lab::ArchiveReading reading = lab::readUstar(report.archive);
      EXPECT_EQ(reading.members.size(), untouched.manifest["files"].size() + 1) << reading.error;
      for (const lab::ArchiveMember& member : reading.members)
        EXPECT_THAT(member.name + "\n" + member.contents, Not(HasSubstr(word)));
      EXPECT_EQ(report.archive.find(word), std::string::npos);
      for (const json& file : report.manifest["files"])
        EXPECT_GT(file["dropped"], 0) << word << " in " << file;
    }
  }
}

TEST(BugReports, listWhatTheyContainAndWhatNot) {
  std::vector<ReportPart> parts = partsOf(healthy);
  parts[0].bytes = "torn";
  parts[1].problem = "not there";
  const BugReport report =
      bugReport(parts, {.now = 1'772'352'000, .daemonVersion = "0.9.9", .macOS = 26, .model = "Mac14,2"});
  const json object{{"file", nullptr}, {"manifest", report.manifest}, {"schema", "brisko.report/1"}};
  EXPECT_EQ(test::flawIn(object.dump(), "brisko-report").value_or(""), "");
  EXPECT_EQ(report.manifest["created"], "2026-03-01T08:00:00Z");
  EXPECT_EQ(report.manifest["system"], json({{"macOS", 26}, {"model", "Mac14,2"}}));
  EXPECT_EQ(report.manifest["leftOut"][0]["name"], "status.json");
  EXPECT_EQ(report.manifest["leftOut"][0]["why"], "not readable");
  EXPECT_EQ(report.manifest["leftOut"][1]["why"], "not there");
  const lab::ArchiveReading reading = lab::readUstar(report.archive);
  ASSERT_EQ(reading.error, "");
  EXPECT_EQ(json::parse(reading.members.front().contents), report.manifest);
  std::vector<std::string> names;
  for (const lab::ArchiveMember& member : reading.members) names.push_back(member.name.substr(14));
  EXPECT_THAT(names,
              ElementsAre("manifest.json", "stats.json", "calibration.json", "history/2026-02-28.jsonl",
                          "history/2026-03-01.jsonl", "daemon.log.1", "daemon.log", "daemon.err.log",
                          "probe.txt", "self-test.txt", "doctor.json", "job.json", "signature.txt",
                          "power-log.txt", "power-schedule.txt", "battery.json"));
  for (std::size_t index = 1; index < names.size(); ++index) {
    EXPECT_EQ(report.manifest["files"][index - 1]["name"], names[index]);
    EXPECT_EQ(report.manifest["files"][index - 1]["bytes"], reading.members[index].contents.size());
  }
}

// --- The file

TEST(NewFiles, belongToTheirUserAlone) {
  const test::ScratchFolder folder;
  ::umask(0);
  std::string reason;
  EXPECT_TRUE(writeNewFile(folder.path("a"), "text", reason)) << reason;
  EXPECT_EQ(contents(folder.path("a")), "text");
  EXPECT_EQ(test::modeOf(folder.path("a")), 0600U);
  ::umask(0777);
  EXPECT_TRUE(writeNewFile(folder.path("b"), "text", reason)) << reason;
  EXPECT_EQ(test::modeOf(folder.path("b")), 0600U);
}

TEST(NewFiles, replaceNothingAndFollowNoLink) {
  const test::ScratchFolder folder;
  test::put(folder.path("file"), "notes");
  test::makeLink(folder.path("link"), folder.path("file"));
  test::makeLink(folder.path("dangling"), folder.path("target"));
  for (const char* name : {"file", "link", "dangling"}) {
    std::string reason;
    EXPECT_FALSE(writeNewFile(folder.path(name), "text", reason));
    EXPECT_EQ(reason, "a file is there already; choose another name") << name;
  }
  EXPECT_EQ(contents(folder.path("file")), "notes");
  EXPECT_FALSE(test::exists(folder.path("target")));
}

TEST(NewFiles, leaveNothingBehindOnAFullDisk) {
  const test::ScratchFolder folder;
  const test::Ended ended = test::inChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit most{.rlim_cur = 1000, .rlim_max = 1000};
    static_cast<void>(::setrlimit(RLIMIT_FSIZE, &most));
    std::string reason;
    const bool written = writeNewFile(folder.path("a"), std::string(5000, 'x'), reason);
    test::tell(written ? "written" : reason);
  });
  EXPECT_EQ(ended.output, "File too large");
  EXPECT_FALSE(test::exists(folder.path("a")));
}

// --- The command

TEST(ReportCommand, writesAnArchiveOfAVirtualMac) {
  LiveBrisko mac;
  mac.mac.settings("{\"limit\":80,\"owner\":\"Anna\"}");
  mac.boot();
  const test::ScratchFolder folder;
  const std::string path = folder.path("report.tar");
  const std::string output = said(mac.brisko({"report", "--output", path, "--yes"}));
  EXPECT_THAT(output, HasSubstr("config.json"));
  EXPECT_THAT(output, HasSubstr(path + " is written; nothing was sent."));
  EXPECT_EQ(test::modeOf(path), 0600U);

  const std::string archive = contents(path);
  EXPECT_THAT(archive, Not(HasSubstr("Anna")));
  EXPECT_THAT(archive, Not(HasSubstr(mac.mac.folder())));
  const lab::ArchiveReading reading = lab::readUstar(archive);
  ASSERT_EQ(reading.error, "");
  std::map<std::string, std::string> members;
  for (const lab::ArchiveMember& member : reading.members) members[member.name.substr(14)] = member.contents;
  const json manifest = json::parse(members["manifest.json"]);
  EXPECT_EQ(manifest["daemonVersion"], "0.9.9");
  std::map<std::string, json> dropped;
  for (const json& file : manifest["files"]) dropped[file["name"]] = file["dropped"];
  EXPECT_EQ(json::parse(members["config.json"])["limit"], 80);
  EXPECT_EQ(dropped["config.json"], 1);
  EXPECT_THAT(members["daemon.log"], HasSubstr("brisko-daemon started"));
  for (const char* name : {"daemon.log", "probe.txt", "self-test.txt", "status.json"})
    EXPECT_EQ(dropped[name], 0) << name << ": " << members[name];
  EXPECT_THAT(members["probe.txt"], HasSubstr("charging   : CHTE\n"));
  EXPECT_THAT(members["self-test.txt"], HasSubstr("aucune erreur"));
  EXPECT_EQ(json::parse(members["battery.json"])["CurrentCapacity"], 70);
  EXPECT_EQ(json::parse(members["job.json"])["ProgramArguments"][0], "…");
  EXPECT_EQ(json::parse(members["doctor.json"])["schema"], "brisko.doctor/1");

  expectRefused(mac.brisko({"report", "--output", path, "--yes"}), 1, "a file is there already");
  EXPECT_EQ(contents(path), archive);
}

TEST(ReportCommand, writesNothingUnlessAskedTo) {
  LiveBrisko mac;
  mac.boot();
  const test::ScratchFolder folder;
  const std::string path = folder.path("report.tar");
  const Finished asked = mac.brisko({"report", "--output", path});
  EXPECT_EQ(asked.status, 1);
  EXPECT_EQ(asked.errors, "brisko: cannot ask without a terminal; add --yes\n");
  std::string text = said(mac.brisko({"report", "--output", path, "--json"}));
  text.pop_back();
  EXPECT_EQ(test::flawIn(text, "brisko-report").value_or(""), "");
  EXPECT_EQ(json::parse(text)["file"], nullptr);
  EXPECT_FALSE(test::exists(path));
  text = said(mac.brisko({"report", "--output", path, "--json", "--yes"}));
  EXPECT_EQ(json::parse(text)["file"], path);
  EXPECT_EQ(lab::readUstar(contents(path)).error, "");
  expectRefused(mac.brisko({"report", "--output", folder.path("nowhere/report.tar"), "--yes"}), 1,
                "No such file or directory");
}

// Of the disk of another Mac only the files are read.
TEST(ReportCommand, asksNothingAboutAnotherVolume) {
  const test::ScratchFolder volume;
  const test::ScratchFolder folder;
  const Finished finished = test::run(
      "brisko", {"report", "--volume", volume.path(), "--json", "--yes", "--output", folder.path("r.tar")});
  const json object = json::parse(said(finished));
  EXPECT_EQ(object["manifest"]["files"], json::array());
  std::map<std::string, std::string> reasons;
  for (const json& file : object["manifest"]["leftOut"]) reasons[file["name"]] = file["why"];
  EXPECT_EQ(reasons["daemon.log"], "not there");
  for (const char* name : {"probe.txt", "self-test.txt", "job.json", "power-log.txt", "battery.json"})
    EXPECT_EQ(reasons[name], "not looked at") << name;
}

}  // namespace
}  // namespace brisko::client::report_test
