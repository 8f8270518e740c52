#include "client/log_catalogue.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <set>

#include "client/log_document.h"

namespace brisko::client {
namespace {

// --- Parsing the document

// Variable parts for which the document gives a meaning instead of a list of texts.
struct Meaning {
  std::string_view name;
  PartKind kind;
  std::array<std::string_view, 2> texts = {};
};
constexpr std::array meanings{
    Meaning{"version", PartKind::number},
    Meaning{"limit", PartKind::number},
    Meaning{"value", PartKind::number},
    Meaning{"charge", PartKind::number},
    Meaning{"number", PartKind::number},
    Meaning{"minutes", PartKind::number},
    Meaning{"hours", PartKind::number},
    Meaning{"floor", PartKind::number},
    Meaning{"lower edge", PartKind::number},
    Meaning{"next limit", PartKind::number},
    Meaning{"current", PartKind::number},
    Meaning{"600", PartKind::number},
    Meaning{"1 to 5", PartKind::number},
    Meaning{"old mode", PartKind::number},
    Meaning{"new mode", PartKind::number},
    Meaning{"limit% or off", PartKind::oneOf, {"#%", "off"}},
    Meaning{"limit% or no limit", PartKind::oneOf, {"#%", "no limit"}},
    Meaning{"before, or ?", PartKind::oneOf, {"#", "?"}},
    Meaning{"after, or ?", PartKind::oneOf, {"#", "?"}},
    Meaning{"cycle count, or ?", PartKind::oneOf, {"#", "?"}},
    Meaning{"measured capacity mAh, or unknown", PartKind::oneOf, {"# mAh", "unknown"}},
    Meaning{"temperature", PartKind::word},
    Meaning{"date", PartKind::word},
    Meaning{"time", PartKind::word},
    Meaning{"stalled", PartKind::word},
    Meaning{"file", PartKind::word},
    Meaning{"path", PartKind::anything},
    Meaning{"reason", PartKind::anything},
    Meaning{"what is wrong", PartKind::anything},
    Meaning{"detail", PartKind::anything},
    Meaning{"OK or what could not be removed and why", PartKind::anything},
};

// "  cal=phase→target%" stands for its phases and percentages, and one list contains a version.
constexpr std::string_view calibrationPart = "  cal=";
constexpr std::string_view versionPart = "nothing: macOS ";

std::vector<std::string> split(std::string_view text, std::string_view separator) {
  std::vector<std::string> pieces;
  for (;;) {
    const std::size_t at = text.find(separator);
    pieces.emplace_back(text.substr(0, at));
    if (at == std::string_view::npos) return pieces;
    text.remove_prefix(at + separator.size());
  }
}

// "a, b or c", and also "a, b, or c".
std::vector<std::string> listed(std::string_view text) {
  std::vector<std::string> texts;
  for (const std::string& half : split(text, " or ")) {
    for (const std::string& piece : split(half, ", ")) {
      const std::size_t begin = piece.starts_with("or ") ? 3 : 0;
      if (const std::size_t end = piece.find_last_not_of(','); end != std::string::npos)
        texts.push_back(piece.substr(begin, end + 1 - begin));
    }
  }
  return texts;
}

LinePart variablePart(std::string_view text) {
  LinePart part{.name = std::string(text)};
  const auto known = std::find_if(meanings.begin(), meanings.end(),
                                  [&](const Meaning& meaning) { return meaning.name == text; });
  if (known != meanings.end()) {
    part.kind = known->kind;
    for (const std::string_view each : known->texts) {
      if (!each.empty()) part.texts.emplace_back(each);
    }
  } else if (text.starts_with(calibrationPart) || text.find(versionPart) != std::string_view::npos) {
    part.kind = PartKind::anything;
  } else if (text.find(" or ") != std::string_view::npos) {
    part.kind = PartKind::oneOf;
    part.texts = listed(text);
  } else {
    part.kind = PartKind::optional;
    part.texts = {part.name};
  }
  return part;
}

std::vector<LinePart> partsOf(std::string_view line) {
  std::vector<LinePart> parts;
  while (!line.empty()) {
    const std::size_t open = line.find('<');
    const std::size_t close = open == std::string_view::npos ? open : line.find('>', open);
    const bool variable = close != std::string_view::npos;
    const std::string_view fixed = line.substr(0, variable ? open : line.size());
    if (!fixed.empty()) parts.push_back({.texts = {std::string(fixed)}});
    if (!variable) break;
    parts.push_back(variablePart(line.substr(open + 1, close - open - 1)));
    line.remove_prefix(close + 1);
  }
  return parts;
}

bool hasLetters(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; });
}

// The first words of the line, and of its fixed variable parts where it has no others.
std::string idOf(std::string_view line) {
  constexpr std::size_t mostWords = 7;
  constexpr std::array<std::pair<std::string_view, char>, 4> accents{
      {{"é", 'e'}, {"è", 'e'}, {"à", 'a'}, {"É", 'e'}}};
  std::string plain;
  for (std::size_t at = 0; at < line.size();) {
    const auto accent = std::find_if(accents.begin(), accents.end(), [&](const auto& each) {
      return line.substr(at).starts_with(each.first);
    });
    if (accent != accents.end()) {
      plain += accent->second;
      at += accent->first.size();
    } else {
      const auto byte = static_cast<unsigned char>(line[at++]);
      plain += byte < 0x80 && std::isalnum(byte) != 0 ? static_cast<char>(std::tolower(byte))
               : '\'' == byte                         ? '\0'
                                                      : ' ';
    }
  }
  plain.erase(std::remove(plain.begin(), plain.end(), '\0'), plain.end());
  std::string id;
  std::size_t words = 0;
  for (const std::string& word : split(plain, " ")) {
    if (word.empty() || words++ >= mostWords) continue;
    id += (id.empty() ? "" : "-") + word;
  }
  return id;
}

std::string withoutVariables(std::string_view line) {
  std::string text;
  for (const LinePart& part : partsOf(line)) text += part.kind == PartKind::fixed ? part.texts.front() : " ";
  return hasLetters(text) ? text : std::string(line);
}

Severity severityOf(std::string_view line) {
  if (line.starts_with("⛔️") || line.starts_with("brisko-daemon: ")) return Severity::error;
  return line.find("⚠️") == std::string_view::npos || line.find("< ⚠️") != std::string_view::npos
             ? Severity::info
             : Severity::warning;
}

LogEntry entryOf(std::string_view line) {
  return {.id = idOf(withoutVariables(line)),
          .severity = severityOf(line),
          .parts = partsOf(line),
          .english = {},
          .explanation = {}};
}

// The text between the first two backticks.
std::string_view quotedIn(std::string_view line) {
  const std::size_t open = line.find('`');
  if (open == std::string_view::npos) return {};
  return line.substr(open + 1, line.find('`', open + 1) - open - 1);
}

void takeExplanation(std::string_view line, LogEntry& entry) {
  constexpr std::string_view english = "  In English: `";
  if (line.starts_with(english)) {
    entry.english = quotedIn(line);
    return;
  }
  entry.explanation += (entry.explanation.empty() ? "" : " ") + std::string(line.substr(2));
}

// Two lines may begin with the same words.
void makeIdsUnique(std::vector<LogEntry>& entries) {
  std::set<std::string> known;
  for (LogEntry& entry : entries) {
    const std::string first = entry.id;
    for (int number = 2; !known.insert(entry.id).second; ++number)
      entry.id = first + "-" + std::to_string(number);
  }
}

// --- Matching

std::size_t lengthOfNumber(std::string_view text) {
  std::size_t length = 0;
  if (!text.empty() && (text[0] == '-' || text[0] == '+')) ++length;
  const std::size_t digits = length;
  while (length < text.size() &&
         (std::isdigit(static_cast<unsigned char>(text[length])) != 0 || text[length] == '.'))
    ++length;
  return length == digits ? 0 : length;
}

// How much of the beginning of `text` a listed text matches; none when it does not.
std::optional<std::size_t> lengthOf(std::string_view listedText, std::string_view text) {
  const std::size_t mark = listedText.find('#');
  if (mark == std::string_view::npos)
    return text.starts_with(listedText) ? std::optional(listedText.size()) : std::nullopt;
  if (!text.starts_with(listedText.substr(0, mark))) return std::nullopt;
  const std::size_t number = lengthOfNumber(text.substr(mark));
  const std::string_view rest = listedText.substr(mark + 1);
  if (number == 0 || !text.substr(mark + number).starts_with(rest)) return std::nullopt;
  return mark + number + rest.size();
}

class Matcher {
 public:
  Matcher(std::span<const LinePart> parts, LogFields& fields) : parts_(parts), fields_(fields) {}

  bool matches(std::string_view text, std::size_t index) {
    if (index == parts_.size()) return text.empty();
    const LinePart& part = parts_[index];
    for (const std::size_t length : lengths(part, text)) {
      const bool named = part.kind != PartKind::fixed;
      if (named) fields_.emplace_back(part.name, text.substr(0, length));
      if (matches(text.substr(length), index + 1)) return true;
      if (named) fields_.pop_back();
    }
    return false;
  }

 private:
  // How much of the text the part may match, in the order to try.
  static std::vector<std::size_t> lengths(const LinePart& part, std::string_view text) {
    std::vector<std::size_t> result;
    switch (part.kind) {
      case PartKind::fixed:
      case PartKind::oneOf:
      case PartKind::optional:
        for (const std::string& each : part.texts) {
          if (const auto length = lengthOf(each, text)) result.push_back(*length);
        }
        if (part.kind == PartKind::optional) result.push_back(0);
        break;
      case PartKind::number:
        if (const std::size_t length = lengthOfNumber(text)) result.push_back(length);
        break;
      case PartKind::word:
        if (const std::size_t length = std::min(text.find(' '), text.size())) result.push_back(length);
        break;
      case PartKind::anything:
        for (std::size_t length = 0; length <= text.size(); ++length) result.push_back(length);
        break;
    }
    return result;
  }

  std::span<const LinePart> parts_;
  LogFields& fields_;
};

}  // namespace

std::vector<LogEntry> entriesIn(std::string_view document) {
  std::vector<LogEntry> entries;
  bool inEntry = false;
  for (const std::string& line : split(document, "\n")) {
    if (line.starts_with("- `")) {
      entries.push_back(entryOf(quotedIn(line)));
      inEntry = true;
    } else if (inEntry && line.starts_with("  ")) {
      takeExplanation(line, entries.back());
    } else {
      inEntry = false;
    }
  }
  makeIdsUnique(entries);
  return entries;
}

std::span<const LogEntry> logCatalogue() {
  static const std::vector<LogEntry> entries = entriesIn(logDocument);
  return entries;
}

std::optional<LogFields> fieldsIn(const LogEntry& entry, std::string_view message) {
  LogFields fields;
  if (!Matcher(entry.parts, fields).matches(message, 0)) return std::nullopt;
  return fields;
}

std::optional<LogMatch> findEntry(std::string_view message) {
  std::optional<LogMatch> found;
  for (const LogEntry& entry : logCatalogue()) {
    auto fields = fieldsIn(entry, message);
    if (!fields) continue;
    if (found) return std::nullopt;
    found = LogMatch{&entry, std::move(*fields)};
  }
  return found;
}

std::string englishText(const LogMatch& match, std::string_view message) {
  if (match.entry->english.empty()) return std::string(message);
  std::string text = match.entry->english;
  for (const auto& [name, value] : match.fields) {
    const std::string mark = "<" + name + ">";
    if (const std::size_t at = text.find(mark); at != std::string::npos) text.replace(at, mark.size(), value);
  }
  return text;
}

}  // namespace brisko::client
