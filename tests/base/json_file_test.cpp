#include "base/json_file.h"

#include <clocale>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "base/files.h"
#include "support/child.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::json_file_test {
namespace {

using namespace test;

constexpr std::size_t mebibyte = 1U << 20U;

// ---- reading files

TEST(FileReading, returnsAllBytesOfAFile) {
  const ScratchFolder folder;
  using namespace std::string_literals;
  for (const auto& bytes : {""s, "x"s, "{\"limit\":80}"s, "a\0b\n"s, std::string(100'000, 'x')}) {
    put(folder.path("file"), bytes);
    EXPECT_THAT(readWholeFile(folder.path("file")), Optional(bytes));
  }
}

TEST(FileReading, returnsNothingWithoutAFile) {
  const ScratchFolder folder;
  put(folder.path("file"), "text");
  makeLink(folder.path("dangling"), folder.path("nothing"));
  makeLink(folder.path("circle"), folder.path("circle"));
  EXPECT_EQ(readWholeFile(folder.path("missing")), std::nullopt);
  EXPECT_EQ(readWholeFile(folder.path("missing/below")), std::nullopt);
  EXPECT_EQ(readWholeFile(folder.path("file/below")), std::nullopt);
  EXPECT_EQ(readWholeFile(folder.path("dangling")), std::nullopt);
  EXPECT_EQ(readWholeFile(folder.path("circle")), std::nullopt);
  EXPECT_EQ(readWholeFile(folder.path(std::string(5000, 'x'))), std::nullopt);
  EXPECT_EQ(readWholeFile(""), std::nullopt);
}

TEST(FileReading, returnsNothingForOtherThanRegularFilesAndDoesNotBlock) {
  const ScratchFolder folder;
  makePipe(folder.path("pipe"));
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  folder.path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

  EXPECT_EQ(readWholeFile(folder.path("pipe")), std::nullopt);
  EXPECT_EQ(readWholeFile(folder.path("socket")), std::nullopt);
  EXPECT_EQ(readWholeFile(folder.path()), std::nullopt);
  EXPECT_EQ(readWholeFile("/dev/zero"), std::nullopt);
  EXPECT_EQ(readWholeFile("/dev/null"), std::nullopt);

  const Descriptor writer(::open(folder.path("pipe").c_str(), O_RDWR | O_NONBLOCK));
  ASSERT_TRUE(writeAll(writer.number(), "{}"));
  EXPECT_EQ(readWholeFile(folder.path("pipe")), std::nullopt);
}

TEST(FileReading, followsALink) {
  const ScratchFolder folder;
  put(folder.path("file"), "text");
  makeLink(folder.path("link"), folder.path("file"));
  EXPECT_THAT(readWholeFile(folder.path("link")), Optional(std::string("text")));
}

TEST(FileReading, returnsNothingWithoutPermission) {
  const ScratchFolder folder;
  put(folder.path("file"), "text");
  setMode(folder.path(), 0755);
  setMode(folder.path("file"), 0000);
  const auto ended = inChild([&folder] {
    test::becomeNobody();
    tell(readWholeFile(folder.path("file")) ? "read" : "none");
  });
  EXPECT_EQ(ended.output, "none");
}

TEST(FileReading, stopsAboveSixteenMebibytes) {
  const ScratchFolder folder;
  put(folder.path("largest"), std::string(16 * mebibyte, 'x'));
  put(folder.path("larger"), std::string(16 * mebibyte + 1, 'x'));
  put(folder.path("vast"), "");
  ASSERT_EQ(::truncate(folder.path("vast").c_str(), off_t{1} << 40U), 0);

  const auto largest = readWholeFile(folder.path("largest"));
  ASSERT_TRUE(largest.has_value());
  EXPECT_EQ(largest->size(), 16 * mebibyte);
  EXPECT_EQ(readWholeFile(folder.path("larger")), std::nullopt);
  EXPECT_EQ(readWholeFile(folder.path("vast")), std::nullopt);
}

TEST(FileReading, readsToTheEndWhateverSizeIsReported) {
  // A file that reports a size of 0, as one that is being written may.
  if (!exists("/proc/self/maps")) GTEST_SKIP() << "this system has no such file";
  const auto bytes = readWholeFile("/proc/self/maps");
  ASSERT_TRUE(bytes.has_value());
  EXPECT_GT(bytes->size(), 100U);
  EXPECT_EQ(bytes->back(), '\n');
}

TEST(FileReading, returnsNothingWhenAReadFails) {
  // Nothing is mapped at address 0, where this one begins.
  if (!exists("/proc/self/mem")) GTEST_SKIP() << "this system has no such file";
  EXPECT_EQ(readWholeFile("/proc/self/mem"), std::nullopt);
}

TEST(FileReading, stopsAboveSixteenMebibytesAlsoIfASmallerSizeIsReported) {
  if (!exists("/proc/self/maps")) GTEST_SKIP() << "this system has no such file";
  // /proc/self/maps, which reports a size of 0, gets a line with a long name for each mapping. Mappings of
  // the same page do not merge.
  const ScratchFolder folder;
  std::string path = folder.path();
  while (path.size() < 3000) {
    path += "/" + std::string(200, 'x');
    makeFolder(path);
  }
  put(path + "/file", "x");
  const Descriptor file(::open((path + "/file").c_str(), O_RDONLY));
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  const auto map = [&] { return ::mmap(nullptr, page, PROT_READ, MAP_PRIVATE, file.number(), 0); };
  for (std::size_t lines = 0; lines < 4 * mebibyte / path.size(); ++lines) ASSERT_NE(map(), MAP_FAILED);
  ASSERT_TRUE(readWholeFile("/proc/self/maps").has_value());
  for (std::size_t lines = 0; lines < 13 * mebibyte / path.size(); ++lines) ASSERT_NE(map(), MAP_FAILED);
  EXPECT_EQ(readWholeFile("/proc/self/maps"), std::nullopt);
}

TEST(FileReading, leavesNoDescriptorBehind) {
  const ScratchFolder folder;
  put(folder.path("file"), "text");
  const Descriptor before(::open("/dev/null", O_RDONLY));
  for (const auto& path : {folder.path("file"), folder.path(), folder.path("missing")}) {
    static_cast<void>(readWholeFile(path));
    writeJsonFile(path, Json(1));
  }
  const Descriptor after(::open("/dev/null", O_RDONLY));
  EXPECT_EQ(after.number(), before.number() + 1);
}

// ---- parsing

TEST(JsonParsing, acceptsJson) {
  for (const char* text : {"{}",
                           "[]",
                           "0",
                           "-0",
                           "-1",
                           "1e5",
                           "1E+5",
                           "0.5",
                           "\"\"",
                           "true",
                           "false",
                           "null",
                           " \t\r\n{ } \n",
                           "{\"a\":[1,{\"b\":null}]}",
                           "\"\\u00e9\\ud83d\\ude00\\n\\/\"",
                           "\"é😀\"",
                           "\"\x7f\"",
                           "1.7976931348623157e308",
                           "1e-999",
                           "\xEF\xBB\xBF{}"}) {
    EXPECT_TRUE(parseJson(text).has_value()) << text;
  }
}

TEST(JsonParsing, rejectsEverythingElse) {
  using namespace std::string_view_literals;
  const std::string_view cases[] = {
      ""sv, " "sv, "\n"sv, "{"sv, "}"sv, "["sv, "\""sv, "{\"limit\":80"sv,
      // more than one value
      "{}x"sv, "{} {}"sv, "{},"sv, "{}}"sv, "[]]"sv, "1 2"sv, "nullnull"sv, "{\"limit\":80}garbage"sv,
      // what other dialects allow
      "{\"a\":1,}"sv, "[1,]"sv, "[,1]"sv, "{,}"sv, "// c\n{}"sv, "{} // c"sv, "/* c */{}"sv, "{/* c */}"sv,
      "# c\n{}"sv, "{'a':1}"sv, "{a:1}"sv, "'a'"sv, "True"sv, "nul"sv, "undefined"sv, "{\"a\" 1}"sv,
      "{\"a\":}"sv, "{1:2}"sv,
      // numbers
      "NaN"sv, "Infinity"sv, "-Infinity"sv, "nan"sv, "inf"sv, "01"sv, "-01"sv, "+1"sv, ".5"sv, "1."sv,
      "1.e5"sv, "1e"sv, "1e+"sv, "-"sv, "--1"sv, "0x10"sv, "1_000"sv, "1,5"sv,
      // other errors beside a number beyond a double
      "[1e999,01]"sv, "[01,1e999]"sv, "01e999"sv, "+1e999"sv, "1.e999"sv, ".1e999"sv, "1e999.5"sv,
      "1e999-1"sv, "[1e999 1]"sv, "[1e999,]"sv, "1e999 x"sv, "1e999\0"sv, "[1e999,\"1e999]"sv, "{1e999:1}"sv,
      "1e999e"sv,
      // texts
      "\"a"sv, "\"\\\""sv, "\"\t\""sv, "\"\n\""sv, "\"\x1f\""sv, "\"\\x41\""sv, "\"\\u12\""sv,
      "\"\\u12g4\""sv, "\"\\ud83d\""sv, "\"\\ude00\""sv, "\"\\ud83d\\ud83d\""sv, "\"\\ud83dx\""sv,
      // invalid UTF-8: stray bytes, truncated, overlong, surrogates, too large
      "\"\xff\""sv, "\"\xc3\""sv, "\"\x80\""sv, "\"\xc0\xaf\""sv, "\"\xe0\x80\xaf\""sv, "\"\xed\xa0\x80\""sv,
      "\"\xf4\x90\x80\x80\""sv, "\"\xf0\x9f\x98\""sv, "{\"\xff\":1}"sv, "\xff"sv, "\xc2\xa0{}"sv,
      // zero bytes
      "{}\0"sv, "{}\0garbage"sv, "\0{}"sv, "\"a\0b\""sv, "{\0}"sv, "\0"sv,
      // byte order marks of other encodings, and UTF-16 and UTF-32
      "\xEF\xBB{}"sv, "\xEF\xBB\xBF\xEF\xBB\xBF{}"sv, "\xEF\xBB\xBF"sv, "{\0}\0"sv, "\0{\0}"sv,
      "\xFF\xFE{\0}\0"sv, "\xFE\xFF\0{\0}"sv, "{\0\0\0}\0\0\0"sv, "\0\0\0{\0\0\0}"sv};
  for (const auto text : cases) {
    EXPECT_FALSE(parseJson(text).has_value()) << testing::PrintToString(text);
  }
}

TEST(JsonParsing, distinguishesTheKindsOfNumbers) {
  EXPECT_TRUE(parseJson("80")->is_number_integer());
  EXPECT_TRUE(parseJson("-0")->is_number_integer());
  EXPECT_TRUE(parseJson("80.0")->is_number_float());
  EXPECT_TRUE(parseJson("8e1")->is_number_float());
  EXPECT_TRUE(parseJson("-0.0")->is_number_float());
  EXPECT_TRUE(std::signbit(parseJson("-0.0")->get<double>()));
}

constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(JsonParsing, readsANumberBeyondADoubleAsInfinite) {
  const std::string digits(400, '9');
  for (const std::string& number :
       {std::string("1e999"), std::string("1E+999"), std::string("1.5e309"), std::string("1.8e308"), digits,
        digits + ".5", "0." + std::string(400, '0') + "1e999", "1e" + digits}) {
    for (const auto& [text, value] : {std::pair(number, infinity), std::pair("-" + number, -infinity)}) {
      const auto parsed = parseJson(text);
      ASSERT_TRUE(parsed && parsed->is_number_float()) << text;
      EXPECT_EQ(parsed->get<double>(), value) << text;
    }
  }
  EXPECT_EQ(parseJson("1.7976931348623157e308")->get<double>(), std::numeric_limits<double>::max());
  EXPECT_EQ(parseJson("[1e999,1e-999]")->at(1), 0.0);
}

TEST(JsonParsing, readsTheRestOfATextWithANumberBeyondADoubleUnchanged) {
  EXPECT_EQ(*parseJson("{\"limit\":70,\"foo\":1e999}"), (Json{{"limit", 70}, {"foo", infinity}}));
  EXPECT_EQ(*parseJson("{\"foo\":-1e999,\"limit\":70}"), (Json{{"limit", 70}, {"foo", -infinity}}));
  EXPECT_EQ(*parseJson("{\"limit\":1e999,\"limit\":70}"), (Json{{"limit", 70}}));
  EXPECT_EQ(*parseJson("[0,1e999,-0,[2.5,-1e999],{\"a\":[1e999]},3]"),
            Json::array({0, infinity, 0, Json::array({2.5, -infinity}),
                         Json::object({{"a", Json::array({infinity})}}), 3}));
  // A string is never a number, whatever it contains and wherever it ends.
  EXPECT_EQ(*parseJson(R"(["1e999","-","\"1e999",true,1e999,"\\",7,"1",false,null])"),
            Json::array({"1e999", "-", "\"1e999", true, infinity, "\\", 7, "1", false, nullptr}));
  const Json kinds = *parseJson("[80,-3,80.0,18446744073709551615,1e999]");
  EXPECT_TRUE(kinds[0].is_number_unsigned());
  EXPECT_TRUE(kinds[1].is_number_integer());
  EXPECT_TRUE(kinds[2].is_number_float());
  EXPECT_TRUE(kinds[3].is_number_unsigned());
}

TEST(JsonParsing, isFastWithManyNumbersBeyondADouble) {
  std::string many = "[1e999";
  for (int count = 1; count < 100'000; ++count) many += count % 2 == 0 ? ",1e999" : ",-1e999";
  const auto parsed = parseJson(many + "]");
  ASSERT_TRUE(parsed.has_value());
  ASSERT_EQ(parsed->size(), 100'000U);
  EXPECT_EQ(parsed->front(), infinity);
  EXPECT_EQ(parsed->back(), -infinity);
  EXPECT_FALSE(parseJson(many).has_value());
}

TEST(JsonParsing, usesTheLastOfDuplicateKeys) {
  EXPECT_EQ(parseJson("{\"limit\":70,\"limit\":90}")->at("limit"), 90);
}

std::string nested(std::size_t levels, const std::string& open, const std::string& close,
                   const std::string& inside) {
  std::string text;
  for (std::size_t level = 0; level < levels; ++level) text += open;
  text += inside;
  for (std::size_t level = 0; level < levels; ++level) text += close;
  return text;
}

TEST(JsonParsing, accepts512LevelsAndNoMore) {
  EXPECT_TRUE(parseJson(nested(512, "[", "]", "")).has_value());
  EXPECT_FALSE(parseJson(nested(513, "[", "]", "")).has_value());
  EXPECT_TRUE(parseJson(nested(512, "{\"a\":", "}", "1")).has_value());
  EXPECT_FALSE(parseJson(nested(513, "{\"a\":", "}", "1")).has_value());
  EXPECT_TRUE(parseJson(nested(256, "[{\"a\":", "}]", "1")).has_value());
  EXPECT_FALSE(parseJson(nested(256, "[{\"a\":", "}]", "[]")).has_value());
}

TEST(JsonParsing, countsLevelsAndNotBrackets) {
  std::string siblings = "[[]";
  for (int index = 0; index < 10'000; ++index) siblings += ",[]";
  EXPECT_TRUE(parseJson(siblings + "]").has_value());
  std::string objects = "[{}";
  for (int index = 1; index < 513; ++index) objects += ",{}";
  EXPECT_TRUE(parseJson(objects + "]").has_value());
}

TEST(JsonParsing, ignoresBracketsInsideStrings) {
  const std::string brackets(600, '[');
  EXPECT_TRUE(parseJson("\"" + brackets + "\"").has_value());
  EXPECT_TRUE(parseJson("\"\\\"" + brackets + "\"").has_value());
  EXPECT_TRUE(parseJson("{\"" + brackets + "\":\"\\\\\"}").has_value());
  // The text ends at the quote behind an escaped backslash: these brackets count.
  EXPECT_FALSE(parseJson("[\"\\\\\"," + nested(512, "[", "]", "") + "]").has_value());
  EXPECT_TRUE(parseJson("[\"\\\\\"," + nested(511, "[", "]", "") + "]").has_value());
}

TEST(JsonParsing, isFastWithAMillionBrackets) {
  constexpr std::size_t million = 1'000'000;
  EXPECT_FALSE(parseJson(std::string(million, '[')).has_value());
  EXPECT_FALSE(parseJson(std::string(million, ']')).has_value());
  EXPECT_FALSE(parseJson(nested(million, "[", "]", "")).has_value());
  EXPECT_FALSE(parseJson(nested(million, "{\"a\":", "}", "1")).has_value());
  EXPECT_FALSE(parseJson(std::string(million, ']') + std::string(million, '[')).has_value());
}

TEST(JsonObjectReading, acceptsAnObjectAndNothingElse) {
  const ScratchFolder folder;
  const auto read = [&folder](std::string_view bytes) {
    put(folder.path("file"), bytes);
    return readJsonObject(folder.path("file"));
  };
  EXPECT_THAT(read("{\"limit\":80}"), Optional(Json{{"limit", 80}}));
  EXPECT_THAT(read("{}"), Optional(Json::object()));
  for (const char* bytes : {"", "[]", "[{}]", "80", "\"{}\"", "null", "true", "{", "{}x"}) {
    EXPECT_EQ(read(bytes), std::nullopt) << bytes;
  }
  EXPECT_EQ(readJsonObject(folder.path("missing")), std::nullopt);
  EXPECT_EQ(readJsonObject(folder.path()), std::nullopt);
}

// ---- texts

TEST(JsonText, isCompactWithKeysInByteOrder) {
  const Json value{{"calibrate", true}, {"calSoakMinutes", 60}, {"calDrain", 15},
                   {"a", {1, 2}},       {"Z", nullptr},         {"é", "x"}};
  EXPECT_THAT(jsonText(value),
              Optional(std::string(R"({"Z":null,"a":[1,2],"calDrain":15,"calSoakMinutes":60,)"
                                   R"("calibrate":true,"é":"x"})")));
}

TEST(JsonText, escapesOnlyWhatMustBeEscaped) {
  EXPECT_THAT(jsonText(Json("/Library/Logs — é ⚠️")),
              Optional(std::string("\"/Library/Logs — é ⚠️\"")));
  EXPECT_THAT(jsonText(Json("\"\\\n\t\x01")), Optional(std::string(R"("\"\\\n\t\u0001")")));
}

TEST(JsonText, writesDoublesWithAPointOrAnExponent) {
  const std::pair<double, const char*> cases[] = {{2.0, "2.0"},
                                                  {0.0, "0.0"},
                                                  {-0.0, "-0.0"},
                                                  {0.1, "0.1"},
                                                  {-3.5, "-3.5"},
                                                  {31.3, "31.3"},
                                                  {1700000000.0, "1700000000.0"},
                                                  {1741950000.0, "1741950000.0"},
                                                  {1741950000.5, "1741950000.5"},
                                                  {1741950000.123456, "1741950000.123456"},
                                                  {1e22, "1e+22"},
                                                  {1e-7, "1e-07"},
                                                  {5e-324, "5e-324"},
                                                  {1.7976931348623157e308, "1.7976931348623157e+308"}};
  for (const auto& [value, text] : cases) EXPECT_THAT(jsonText(Json(value)), Optional(std::string(text)));
}

TEST(JsonText, writesIntegersWithoutAPoint) {
  EXPECT_THAT(jsonText(Json(80)), Optional(std::string("80")));
  EXPECT_THAT(jsonText(Json(std::numeric_limits<std::int64_t>::min())),
              Optional(std::string("-9223372036854775808")));
  EXPECT_THAT(jsonText(Json(std::numeric_limits<std::int64_t>::max())),
              Optional(std::string("9223372036854775807")));
}

TEST(JsonText, isReadBackAsTheSameDouble) {
  std::mt19937_64 random(20260301);
  for (int round = 0; round < 200'000; ++round) {
    const std::uint64_t bits = random();
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    if (!std::isfinite(value)) continue;
    const auto text = jsonText(Json(value));
    ASSERT_TRUE(text.has_value());
    const auto read = parseJson(*text);
    ASSERT_TRUE(read && read->is_number_float()) << *text;
    ASSERT_EQ(read->get<double>(), value) << *text;
  }
}

TEST(JsonText, isMissingForInvalidUtf8) {
  EXPECT_EQ(jsonText(Json("\xff")), std::nullopt);
  EXPECT_EQ(jsonText(Json("caf\xe9")), std::nullopt);
  EXPECT_EQ(jsonText(Json("\xe2\x9a")), std::nullopt);
  EXPECT_EQ(jsonText(Json{{"a", {1, {{"b", "\xc0\x80"}}}}}), std::nullopt);
  EXPECT_EQ(jsonText(Json{{"\xff", 1}}), std::nullopt);
}

TEST(JsonText, isMissingForANumberThatIsNotFinite) {
  for (const double value : {infinity, -infinity, std::nan("")}) {
    EXPECT_EQ(jsonText(Json(value)), std::nullopt);
    EXPECT_EQ(jsonText(Json{{"a", {1, {{"b", value}}}}, {"c", 2}}), std::nullopt);
  }
}

// Switches this process to a locale that writes 2,5. False if the system has none.
bool useDecimalComma(const ScratchFolder& folder) {
  const std::string command =
      "localedef -i fr_FR -f UTF-8 " + folder.path("fr_FR.UTF-8") + " >" + folder.path("said") + " 2>&1";
  if (std::system(command.c_str()) != 0) return false;
  ::setenv("LOCPATH", folder.path().c_str(), 1);
  if (std::setlocale(LC_ALL, "fr_FR.UTF-8") == nullptr) return false;
  return std::string(std::localeconv()->decimal_point) == ",";
}

TEST(JsonText, ignoresTheLocale) {
  const ScratchFolder folder;
  if (!useDecimalComma(folder)) GTEST_SKIP() << "no locale with a decimal comma can be made here";
  EXPECT_THAT(jsonText(Json{{"a", 1234567.5}, {"b", 1234567}}),
              Optional(std::string(R"({"a":1234567.5,"b":1234567})")));
  EXPECT_EQ(parseJson("2.5")->get<double>(), 2.5);
  EXPECT_EQ(parseJson("2,5"), std::nullopt);
  EXPECT_EQ(parseJson("[1.5e999,2.5]")->front(), infinity);
  EXPECT_EQ(parseJson("[1.5e999,2.5]")->back(), 2.5);
}

// ---- writing files

TEST(FileWriting, createsAFileWithTheModeThatTheUmaskAllows) {
  const ScratchFolder folder;
  const std::pair<mode_t, mode_t> cases[] = {{0022, 0644}, {0077, 0600}, {0000, 0666}, {0027, 0640}};
  for (const auto& [umask, mode] : cases) {
    ::umask(umask);
    const std::string path = folder.path("file-" + std::to_string(umask));
    writeJsonFile(path, Json{{"limit", 80}});
    EXPECT_EQ(contents(path), "{\"limit\":80}");
    EXPECT_EQ(modeOf(path), mode);
  }
}

TEST(FileWriting, keepsTheInodeAndTheModeOfAnExistingFile) {
  const ScratchFolder folder;
  const std::string path = folder.path("file");
  put(path, "something much longer than what comes");
  setMode(path, 0640);
  const ino_t inode = inodeOf(path);
  ::umask(0077);

  writeJsonFile(path, Json(1));

  EXPECT_EQ(contents(path), "1");
  EXPECT_EQ(inodeOf(path), inode);
  EXPECT_EQ(modeOf(path), 0640U);
}

TEST(FileWriting, leavesNothingElseInTheFolder) {
  const ScratchFolder folder;
  writeJsonFile(folder.path("file"), Json(1));
  writeJsonFile(folder.path("file"), Json(2));
  ASSERT_EQ(::unlink(folder.path("file").c_str()), 0);
  EXPECT_EQ(::rmdir(folder.path().c_str()), 0);  // possible only when it is empty
}

TEST(FileWriting, createsNoFolders) {
  const ScratchFolder folder;
  writeJsonFile(folder.path("missing/file"), Json(1));
  EXPECT_FALSE(exists(folder.path("missing")));
}

TEST(FileWriting, followsALink) {
  const ScratchFolder folder;
  put(folder.path("target"), "old");
  makeLink(folder.path("link"), folder.path("target"));
  writeJsonFile(folder.path("link"), Json(1));
  EXPECT_EQ(contents(folder.path("target")), "1");
  struct stat status {};
  ASSERT_EQ(::lstat(folder.path("link").c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST(FileWriting, neitherBlocksOnAPipeNorWritesIntoIt) {
  const ScratchFolder folder;
  makePipe(folder.path("pipe"));
  writeJsonFile(folder.path("pipe"), Json(1));

  const Descriptor reader(::open(folder.path("pipe").c_str(), O_RDONLY | O_NONBLOCK));
  writeJsonFile(folder.path("pipe"), Json(1));
  char byte = 0;
  EXPECT_LE(::read(reader.number(), &byte, 1), 0);
}

TEST(FileWriting, leavesAFolderOrADeviceAlone) {
  const ScratchFolder folder;
  makeFolder(folder.path("folder"));
  makeLink(folder.path("device"), "/dev/full");
  writeJsonFile(folder.path("folder"), Json(1));
  writeJsonFile(folder.path("device"), Json(1));
  writeJsonFile("", Json(1));
  EXPECT_EQ(::rmdir(folder.path("folder").c_str()), 0);
}

TEST(FileWriting, isSilentWithoutPermission) {
  const ScratchFolder folder;
  put(folder.path("file"), "old");
  setMode(folder.path("file"), 0444);
  setMode(folder.path(), 0555);
  const auto ended = inChild([&folder] {
    test::becomeNobody();
    writeJsonFile(folder.path("file"), Json(1));
    writeJsonFile(folder.path("new"), Json(1));
    tell("continued");
  });
  EXPECT_EQ(ended.output, "continued");
  EXPECT_EQ(ended.errors, "");
  EXPECT_EQ(contents(folder.path("file")), "old");
  EXPECT_FALSE(exists(folder.path("new")));
  setMode(folder.path(), 0755);
}

TEST(FileWriting, leavesATruncatedFileWhenTheDiskIsFull) {
  const ScratchFolder folder;
  put(folder.path("file"), "{\"limit\":80,\"led\":true}");
  const auto ended = inChild([&folder] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit fiveBytes{5, 5};
    ::setrlimit(RLIMIT_FSIZE, &fiveBytes);
    writeJsonFile(folder.path("file"), Json{{"limit", 80}});
  });
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(contents(folder.path("file")), "{\"lim");
}

TEST(FileWriting, keepsTheOldFileWhenTheValueCannotBeWritten) {
  const ScratchFolder folder;
  put(folder.path("file"), "old");
  writeJsonFile(folder.path("file"), Json{{"path", "\xff"}});
  writeJsonFile(folder.path("new"), Json{{"path", "\xff"}});
  writeJsonFile(folder.path("file"), Json{{"number", infinity}});
  writeJsonFile(folder.path("new"), Json{{"number", infinity}});
  EXPECT_EQ(contents(folder.path("file")), "old");
  EXPECT_FALSE(exists(folder.path("new")));
}

// ---- values by type

TEST(ValueByType, isReadFromItsOwnTypeOnly) {
  const Json object =
      *parseJson(R"({"true":true,"false":false,"zero":0,"one":1,"negative":-3,"whole":80.0,)"
                 R"("fraction":70.9,"exponent":8e1,"text":"80","null":null,"list":[1],"object":{}})");
  const auto none = std::nullopt;
  struct Case {
    const char* key;
    std::optional<bool> boolean;
    std::optional<std::int64_t> integer;
    std::optional<double> real;
    std::optional<double> number;
  };
  const Case cases[] = {{"true", true, none, none, none},     {"false", false, none, none, none},
                        {"zero", none, 0, none, 0.0},         {"one", none, 1, none, 1.0},
                        {"negative", none, -3, none, -3.0},   {"whole", none, none, 80.0, 80.0},
                        {"fraction", none, none, 70.9, 70.9}, {"exponent", none, none, 80.0, 80.0},
                        {"text", none, none, none, none},     {"null", none, none, none, none},
                        {"list", none, none, none, none},     {"object", none, none, none, none},
                        {"missing", none, none, none, none},  {"", none, none, none, none},
                        {"TRUE", none, none, none, none}};
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.key);
    EXPECT_EQ(booleanAt(object, expected.key), expected.boolean);
    EXPECT_EQ(integerAt(object, expected.key), expected.integer);
    EXPECT_EQ(doubleAt(object, expected.key), expected.real);
    EXPECT_EQ(numberAt(object, expected.key), expected.number);
  }
}

TEST(ValueByType, isAnIntegerOnlyWithin64Bits) {
  const Json object = *parseJson(R"({"max":9223372036854775807,"min":-9223372036854775808,)"
                                 R"("max+1":9223372036854775808,"min-1":-9223372036854775809,)"
                                 R"("all":18446744073709551615,"more":18446744073709551616})");
  EXPECT_EQ(integerAt(object, "max"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(integerAt(object, "min"), std::numeric_limits<std::int64_t>::min());
  for (const char* key : {"max+1", "min-1", "all", "more"})
    EXPECT_EQ(integerAt(object, key), std::nullopt) << key;
  EXPECT_EQ(numberAt(object, "max+1"), 9223372036854775808.0);
  EXPECT_EQ(numberAt(object, "min-1"), -9223372036854775808.0);
  EXPECT_EQ(numberAt(object, "all"), 18446744073709551616.0);
  EXPECT_EQ(numberAt(object, "more"), 18446744073709551616.0);
}

TEST(ValueByType, isADoubleAndNoIntegerBeyondADouble) {
  const Json object = *parseJson("{\"a\":1e999,\"b\":-" + std::string(400, '9') + "}");
  for (const auto& [key, value] : {std::pair("a", infinity), std::pair("b", -infinity)}) {
    EXPECT_EQ(integerAt(object, key), std::nullopt);
    EXPECT_EQ(doubleAt(object, key), value);
    EXPECT_EQ(numberAt(object, key), value);
  }
}

TEST(ValueByType, isMissingInOtherThanAnObject) {
  for (const char* text : {"[true]", "true", "80", "2.5", "null", "\"a\""}) {
    const Json value = *parseJson(text);
    EXPECT_EQ(booleanAt(value, "a"), std::nullopt) << text;
    EXPECT_EQ(integerAt(value, "a"), std::nullopt) << text;
    EXPECT_EQ(doubleAt(value, "a"), std::nullopt) << text;
    EXPECT_EQ(numberAt(value, "a"), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace brisko::json_file_test
