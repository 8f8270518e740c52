#include "report/ustar.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>

namespace brisko::lab {
namespace {

constexpr std::size_t blockSize = 512;
constexpr std::size_t largestArchive = std::size_t{64} << 20U;

// Where a value is in the block before each file.
struct HeaderField {
  std::size_t begin;
  std::size_t size;
};
constexpr HeaderField nameField{0, 100};
constexpr HeaderField modeField{100, 8};
constexpr HeaderField userField{108, 8};
constexpr HeaderField groupField{116, 8};
constexpr HeaderField sizeField{124, 12};
constexpr HeaderField timeField{136, 12};
constexpr HeaderField checksumField{148, 8};
constexpr HeaderField typeField{156, 1};
constexpr HeaderField formatField{257, 8};
constexpr HeaderField deviceField{329, 16};  // major and minor
constexpr HeaderField prefixField{345, 155};

constexpr std::string_view formatMark{
    "ustar\0"
    "00",
    8};
constexpr std::string_view gnuMark{"ustar  \0", 8};

std::string_view fieldIn(std::string_view header, HeaderField field) {
  return header.substr(field.begin, field.size);
}

void put(std::string& header, HeaderField field, std::string_view value) {
  header.replace(field.begin, value.size(), value);
}

// --- Numbers, in octal digits

void putNumber(std::string& header, HeaderField field, std::uint64_t number) {
  for (std::size_t at = field.begin + field.size - 1; at > field.begin; number /= 8)
    header[--at] = static_cast<char>('0' + number % 8);
}

// None for anything but digits between blanks, and blanks or zero bytes behind them.
std::optional<std::uint64_t> numberIn(std::string_view field) {
  const std::size_t begin = std::min(field.find_first_not_of(' '), field.size());
  const std::size_t end = std::min(field.find_first_not_of("01234567", begin), field.size());
  if (begin == end || field.find_first_not_of(std::string_view("\0 ", 2), end) != std::string_view::npos)
    return std::nullopt;
  std::uint64_t number = 0;
  for (const char digit : field.substr(begin, end - begin))
    number = number * 8 + static_cast<std::uint64_t>(digit - '0');
  return number;
}

// The sum of the header's bytes, with blanks in place of the sum itself.
std::uint64_t checksumOf(std::string_view header) {
  std::uint64_t sum = std::uint64_t{' '} * checksumField.size;
  for (const char byte : header) sum += static_cast<unsigned char>(byte);
  for (const char byte : fieldIn(header, checksumField)) sum -= static_cast<unsigned char>(byte);
  return sum;
}

// --- Names

bool isAllowed(std::string_view name) {
  const bool isPrintable =
      std::all_of(name.begin(), name.end(), [](char letter) { return letter >= ' ' && letter <= '~'; });
  for (;;) {
    const std::size_t slash = std::min(name.find('/'), name.size());
    const std::string_view part = name.substr(0, slash);
    if (part.empty() || part == "." || part == "..") return false;
    if (slash == name.size()) return isPrintable;
    name.remove_prefix(slash + 1);
  }
}

// The text of a field: up to its first zero byte.
std::string_view textIn(std::string_view field) { return field.substr(0, field.find('\0')); }

std::string nameIn(std::string_view header) {
  const std::string prefix(textIn(fieldIn(header, prefixField)));
  return (prefix.empty() ? "" : prefix + "/") + std::string(textIn(fieldIn(header, nameField)));
}

// A long name is divided at a slash. False when it does not fit.
bool putName(std::string& header, std::string_view name) {
  if (name.size() <= nameField.size) {
    put(header, nameField, name);
    return true;
  }
  const std::size_t slash = name.find('/', name.size() - nameField.size - 1);
  if (slash > prefixField.size) return false;  // or the name has no slash
  put(header, prefixField, name.substr(0, slash));
  put(header, nameField, name.substr(slash + 1));
  return true;
}

// --- Writing

// Zero bytes up to the next whole block.
void fillBlock(std::string& archive) {
  archive.resize((archive.size() + blockSize - 1) / blockSize * blockSize);
}

// Empty when the name does not fit.
std::string headerOf(const ArchiveMember& member, std::uint64_t modifiedAt) {
  std::string header(blockSize, '\0');
  if (!isAllowed(member.name) || !putName(header, member.name)) return "";
  putNumber(header, modeField, 0600);
  putNumber(header, userField, 0);
  putNumber(header, groupField, 0);
  putNumber(header, sizeField, member.contents.size());
  putNumber(header, timeField, modifiedAt);
  put(header, typeField, "0");
  put(header, formatField, formatMark);
  putNumber(header, {deviceField.begin, deviceField.size / 2}, 0);
  putNumber(header, {deviceField.begin + deviceField.size / 2, deviceField.size / 2}, 0);
  putNumber(header, {checksumField.begin, checksumField.size - 1}, checksumOf(header));
  header[checksumField.begin + checksumField.size - 1] = ' ';
  return header;
}

// --- Reading

bool isZero(std::string_view bytes) { return bytes.find_first_not_of('\0') == std::string_view::npos; }

// Reads one member after the other, and stops at the first error.
class ArchiveReader {
 public:
  explicit ArchiveReader(std::string_view bytes) : rest_(bytes) {}

  ArchiveReading read() {
    if (rest_.size() > largestArchive) return refused("it is larger than 64 MiB");
    while (error_.empty() && !isAtEnd()) readMember();
    if (!error_.empty()) return refused(error_);
    return {.members = std::move(members_)};
  }

 private:
  static ArchiveReading refused(const std::string& error) { return {.error = error}; }

  void fail(const std::string& what) {
    error_ = "its file number " + std::to_string(members_.size() + 1) + " " + what;
  }

  // Two blocks of zero bytes, and nothing but such blocks behind them.
  bool isAtEnd() {
    if (rest_.size() % blockSize != 0 || rest_.size() < 2 * blockSize) {
      error_ = "it is truncated";
      return true;
    }
    if (!isZero(rest_.substr(0, blockSize))) return false;
    if (!isZero(rest_)) error_ = "there is more behind its end";
    return true;
  }

  void readMember() {
    const std::string_view header = rest_.substr(0, blockSize);
    const auto size = checkedSize(header);
    if (!size) return;
    rest_.remove_prefix(blockSize);
    std::string name = nameIn(header);
    if (!names_.insert(name).second) return fail("has the name of another");
    if (*size > rest_.size()) return fail("is longer than the archive");
    const std::size_t blocks = (*size + blockSize - 1) / blockSize;
    members_.push_back({std::move(name), std::string(rest_.substr(0, *size))});
    rest_.remove_prefix(blocks * blockSize);
  }

  // The length of the file. None, and an error, if there is anything that is not read here.
  std::optional<std::size_t> checkedSize(std::string_view header) {
    const std::string why = whyInvalid(header);
    if (!why.empty()) {
      fail(why);
      return std::nullopt;
    }
    const auto size = numberIn(fieldIn(header, sizeField));
    if (!size || *size > largestArchive) {
      fail("has a length that is not possible");
      return std::nullopt;
    }
    return static_cast<std::size_t>(*size);
  }

  static std::string whyInvalid(std::string_view header) {
    if (numberIn(fieldIn(header, checksumField)) != checksumOf(header)) return "has a wrong checksum";
    const std::string_view format = fieldIn(header, formatField);
    if (format == gnuMark) return "is in the format of GNU tar; write the archive with tar --format=ustar";
    if (format != formatMark) return "is in another format than ustar";
    const char type = header[typeField.begin];
    if (type == 'x' || type == 'g') return "is an extended header; write the archive with tar --format=ustar";
    if (type != '0' && type != '\0') return "is not a plain file";
    return isAllowed(nameIn(header)) ? "" : "has a name that is not allowed";
  }

  std::string_view rest_;
  std::vector<ArchiveMember> members_;
  std::set<std::string> names_;
  std::string error_;
};

}  // namespace

std::string ustarArchive(const std::vector<ArchiveMember>& members, std::int64_t modifiedAt) {
  constexpr std::int64_t latest = (std::int64_t{1} << 33U) - 1;  // eleven digits
  const auto time = static_cast<std::uint64_t>(std::clamp<std::int64_t>(modifiedAt, 0, latest));
  std::set<std::string_view> names;
  std::string archive;
  for (const ArchiveMember& member : members) {
    const std::string header = headerOf(member, time);
    if (header.empty() || !names.insert(member.name).second) return "";
    if (member.contents.size() > largestArchive - archive.size()) return "";
    archive += header;
    archive += member.contents;
    fillBlock(archive);
    if (archive.size() > largestArchive - 2 * blockSize) return "";
  }
  archive.append(2 * blockSize, '\0');
  return archive;
}

ArchiveReading readUstar(std::string_view bytes) { return ArchiveReader(bytes).read(); }

}  // namespace brisko::lab
