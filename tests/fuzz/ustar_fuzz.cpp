// What is read from an archive can be written, and reads back the same; names are harmless. Each line of the
// input is a file of an archive, with tabs between prefix, name, length, type, format and content; a "~" is a
// zero byte. Checksums are made right, since no fuzzer would find them. The input is read as an archive
// itself too.
#include <algorithm>
#include <set>
#include <string>

#include "fuzz/bytes.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "report/ustar.h"

namespace brisko::lab::ustar_fuzz {
namespace {

constexpr std::size_t block = 512;

void put(std::string& header, std::size_t at, std::size_t most, std::string_view text) {
  for (std::size_t index = 0; index < std::min(most, text.size()); ++index)
    header[at + index] = text[index] == '~' ? '\0' : text[index];
}

void putChecksum(std::string& header) {
  put(header, 148, 8, "        ");
  unsigned sum = 0;
  for (const char byte : header) sum += static_cast<unsigned char>(byte);
  for (std::size_t digit = 7; digit-- > 0; sum /= 8) header[148 + digit] = static_cast<char>('0' + sum % 8);
}

std::string memberOf(std::string_view line) {
  Bytes fields(line);
  std::string member(block, '\0');
  put(member, 345, 155, fields.upTo('\t'));
  put(member, 0, 100, fields.upTo('\t'));
  put(member, 124, 12, fields.upTo('\t'));
  put(member, 156, 1, fields.upTo('\t'));
  const std::string_view format = fields.upTo('\t');
  put(member, 257, 8, format.empty() ? "ustar~00" : format);
  putChecksum(member);
  member += fields.rest();
  member.resize((member.size() + block - 1) / block * block);
  return member;
}

void checkName(const std::string& name, std::set<std::string>& names) {
  require(names.insert(name).second);
  require(name.find("//") == std::string::npos && ("/" + name + "/").find("/../") == std::string::npos);
  require(!name.empty() && name.front() != '/' && name.back() != '/');
  for (const char letter : name) require(letter >= ' ' && letter <= '~');
}

void tryArchive(std::string_view bytes) {
  const ArchiveReading reading = readUstar(bytes);
  require(reading.error.empty() || reading.members.empty());
  if (!reading.error.empty()) return;
  std::set<std::string> names;
  std::size_t size = 0;
  for (const ArchiveMember& member : reading.members) {
    checkName(member.name, names);
    size += block + member.contents.size();
  }
  require(size <= bytes.size());
  const std::string written = ustarArchive(reading.members, 0);
  require(!written.empty());
  const ArchiveReading again = readUstar(written);
  require(again.error.empty() && again.members.size() == reading.members.size());
  for (std::size_t index = 0; index < again.members.size(); ++index) {
    require(again.members[index].name == reading.members[index].name);
    require(again.members[index].contents == reading.members[index].contents);
  }
}

void tryInput(std::string_view input) {
  tryArchive(input);
  std::string archive;
  for (Bytes bytes(input); !bytes.atEnd();) archive += memberOf(bytes.upTo('\n'));
  tryArchive(archive + std::string(2 * block, '\0'));
}

const FuzzTarget target("ustar", tryInput);

}  // namespace
}  // namespace brisko::lab::ustar_fuzz
