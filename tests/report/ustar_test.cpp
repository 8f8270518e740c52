#include "report/ustar.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::lab::ustar_test {

// For the test framework.
namespace {

using namespace test;

constexpr std::int64_t moment = 1'772'352'000;  // 2026-03-01 08:00 UTC
constexpr std::size_t block = 512;

const std::vector<ArchiveMember> someMembers{
    {"brisko-report/manifest.json", "{}"},
    {"brisko-report/empty", ""},
    {"brisko-report/folder/whole-block", std::string(block, 'x')},
    {"brisko-report/daemon.log", std::string(block + 1, '\n') + std::string("\0é", 3)},
};

// Puts a text into the header of the first file, and corrects the checksum.
std::string changed(std::size_t at, std::string_view text) {
  std::string archive = ustarArchive({{"file", "content"}}, moment);
  archive.replace(at, text.size(), text);
  archive.replace(148, 8, "        ");
  unsigned sum = 0;
  for (const char byte : archive.substr(0, block)) sum += static_cast<unsigned char>(byte);
  for (std::size_t digit = 6; digit-- > 0; sum /= 8) archive[148 + digit] = static_cast<char>('0' + sum % 8);
  archive[154] = '\0';
  return archive;
}

std::string errorOf(std::string_view archive) {
  const ArchiveReading reading = readUstar(archive);
  EXPECT_TRUE(reading.error.empty() || reading.members.empty()) << reading.error;
  return reading.error;
}

TEST(Ustar, readsBackWhatItWrites) {
  const std::string archive = ustarArchive(someMembers, moment);
  const ArchiveReading reading = readUstar(archive);
  EXPECT_EQ(reading.error, "");
  EXPECT_EQ(reading.members, someMembers);
  EXPECT_EQ(readUstar(ustarArchive({}, moment)).error, "") << "an archive without files";
}

TEST(Ustar, isReadBySystemsTar) {
  const ScratchFolder scratch;
  put(scratch.path() + "/a.tar", ustarArchive(someMembers, moment));
  const std::string command =
      "cd " + scratch.path() + " && TZ=UTC tar -tvf a.tar > list 2> errors && tar -xf a.tar 2>> errors";
  ASSERT_EQ(std::system(command.c_str()), 0) << contents(scratch.path() + "/errors");
  EXPECT_EQ(contents(scratch.path() + "/errors"), "");
  EXPECT_THAT(contents(scratch.path() + "/list"),
              HasSubstr("-rw------- 0/0               2 2026-03-01 08:00 brisko-report/manifest.json\n"));
  for (const ArchiveMember& member : someMembers)
    EXPECT_EQ(contents(scratch.path() + "/" + member.name), member.contents) << member.name;
}

TEST(Ustar, readsWhatSystemsTarWrites) {
  const ScratchFolder scratch;
  // Longer than one field of the header.
  const std::vector<ArchiveMember> members{{"some folder/" + std::string(95, 'n'), std::string(10'000, 'z')},
                                           {"empty", ""}};
  makeFolder(scratch.path() + "/some folder");
  std::string command = "cd " + scratch.path() + " && tar --format=ustar -cf a.tar";
  for (const ArchiveMember& member : members) {
    put(scratch.path() + "/" + member.name, member.contents);
    command += " '" + member.name + "'";
  }
  ASSERT_EQ(std::system(command.c_str()), 0);
  const ArchiveReading reading = readUstar(contents(scratch.path() + "/a.tar"));
  EXPECT_EQ(reading.error, "");
  EXPECT_EQ(reading.members, members);

  // In the other formats it says what to do.
  ASSERT_EQ(std::system(("cd " + scratch.path() + " && tar --format=gnu -cf a.tar empty").c_str()), 0);
  EXPECT_EQ(errorOf(contents(scratch.path() + "/a.tar")),
            "its file number 1 is in the format of GNU tar; write the archive with tar --format=ustar");
  ASSERT_EQ(
      std::system(
          ("cd " + scratch.path() + " && tar --format=pax --pax-option=comment=c -cf a.tar empty").c_str()),
      0);
  EXPECT_EQ(errorOf(contents(scratch.path() + "/a.tar")),
            "its file number 1 is an extended header; write the archive with tar --format=ustar");
}

TEST(Ustar, acceptsNumbersAsEveryTarWritesThem) {
  for (const std::string_view size :
       {std::string_view("00000000007\0", 12), std::string_view("00000000007 ", 12),
        std::string_view("000000000007", 12), std::string_view("      7 \0\0\0\0", 12)})
    EXPECT_EQ(errorOf(changed(124, size)), "") << size;
  EXPECT_EQ(errorOf(changed(156, std::string_view("\0", 1))), "") << "the old type of a plain file";
}

TEST(Ustar, refusesWhateverIsNotAPlainFileOrNotPossible) {
  struct Case {
    std::size_t at;
    std::string_view text;
    const char* error;
  };
  const std::string_view none("\0\0\0\0\0\0\0\0\0\0\0\0", 12);
  for (const Case& each : {
           Case{124, none, "has a length that is not possible"},
           Case{124, "00000000008x", "has a length that is not possible"},
           Case{124, "-00000000007", "has a length that is not possible"},
           Case{124, "0000000000 7", "has a length that is not possible"},
           Case{124, std::string_view("\x80\0\0\0\0\0\0\0\0\0\0\7", 12), "has a length that is not possible"},
           Case{124, "000400000001", "has a length that is not possible"},  // 64 MiB and a byte
           Case{124, "777777777777", "has a length that is not possible"},
           Case{124, "000000003001", "is longer than the archive"},  // by a byte
           Case{156, "5", "is not a plain file"},
           Case{156, "2", "is not a plain file"},
           Case{156, "L", "is not a plain file"},
           Case{257, "notar", "is in another format than ustar"},
           Case{345, "/tmp", "has a name that is not allowed"},
           Case{345, "..", "has a name that is not allowed"},
       })
    EXPECT_EQ(errorOf(changed(each.at, each.text)), std::string("its file number 1 ") + each.error)
        << each.at << " " << each.text;
}

TEST(Ustar, allowsOnlyPlainRelativeNames) {
  for (const std::string_view name :
       {"/fil", "a//b", "a/", "../a", "a/..", "./a", "a/.", "a\nb", "a\x7f", "é", "a\x1b"}) {
    std::string field(name);
    field.resize(100);
    EXPECT_EQ(errorOf(changed(0, field)), "its file number 1 has a name that is not allowed") << name;
    EXPECT_EQ(ustarArchive({{std::string(name), ""}}, moment), "") << name;
  }
  EXPECT_EQ(errorOf(changed(0, std::string_view("..a/b..", 8))), "");
  EXPECT_EQ(ustarArchive({{"", ""}}, moment), "");
  EXPECT_EQ(ustarArchive({{"a", ""}, {"a", ""}}, moment), "") << "twice the same";
}

TEST(Ustar, dividesLongNamesAtASlash) {
  const std::string longest = std::string(155, 'p') + "/" + std::string(100, 'n');
  const ArchiveReading reading = readUstar(ustarArchive({{longest, "x"}}, moment));
  ASSERT_EQ(reading.error, "");
  EXPECT_EQ(reading.members.front().name, longest);
  for (const std::string& name : {std::string(101, 'n'), "p" + longest, longest + "n"})
    EXPECT_EQ(ustarArchive({{name, ""}}, moment), "") << name;
}

TEST(Ustar, refusesAnArchiveThatWasDamaged) {
  const std::string archive = ustarArchive({{"one", "1"}, {"two", "2"}}, moment);
  for (std::size_t size = 0; size < archive.size(); ++size)
    ASSERT_NE(errorOf(archive.substr(0, size)), "") << "truncated at " << size;
  std::string wrong = archive;
  wrong[1024] = 'T';
  EXPECT_EQ(errorOf(wrong), "its file number 2 has a wrong checksum");
  EXPECT_EQ(errorOf(archive.substr(0, 1024) + archive), "its file number 2 has the name of another");
  EXPECT_EQ(errorOf(archive + archive), "there is more behind its end");
  EXPECT_EQ(errorOf(archive + std::string(block, '\0')), "") << "filled up to a larger record";
}

TEST(Ustar, isAtMost64MiB) {
  constexpr std::size_t most = std::size_t{64} << 20U;
  const std::string large(most - 3 * block, 'x');
  EXPECT_EQ(errorOf(ustarArchive({{"large", large}}, moment)), "");
  EXPECT_EQ(ustarArchive({{"large", large + "x"}}, moment), "");
  EXPECT_EQ(errorOf(std::string(most + block, '\0')), "it is larger than 64 MiB");
}

TEST(Ustar, keepsATimeThatDoesNotFitWithinTheFormat) {
  for (const std::int64_t time : {std::int64_t{-1}, std::int64_t{1} << 40U})
    EXPECT_EQ(errorOf(ustarArchive({{"a", ""}}, time)), "") << time;
}

}  // namespace
}  // namespace brisko::lab::ustar_test
