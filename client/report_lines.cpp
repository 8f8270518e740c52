#include "client/report_lines.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <vector>

#include "base/options.h"
#include "base/paths.h"
#include "client/log_catalogue.h"
#include "client/log_reader.h"

namespace brisko::client {
namespace {

// --- Patterns

bool isDigit(char letter) { return letter >= '0' && letter <= '9'; }

// How many digits the text begins with.
std::size_t digitsAt(std::string_view text) {
  return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isDigit) - text.begin());
}

// How much of the beginning of the text is a number; 0 for none.
std::size_t numberLengthAt(std::string_view text) {
  constexpr std::size_t mostDigits = 7;
  constexpr std::size_t mostDecimals = 3;
  const std::size_t sign = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
  const std::size_t digits = digitsAt(text.substr(sign));
  if (digits == 0 || digits > mostDigits) return 0;
  const std::size_t whole = sign + digits;
  if (whole >= text.size() || text[whole] != '.') return whole;
  const std::size_t decimals = digitsAt(text.substr(whole + 1));
  return decimals == 0 || decimals > mostDecimals ? whole : whole + 1 + decimals;
}

bool fitsAny(std::string_view line, std::span<const std::string_view> patterns) {
  return std::any_of(patterns.begin(), patterns.end(),
                     [line](std::string_view pattern) { return fitsPattern(line, pattern); });
}

// A pattern that begins with alternatives.
bool fitsAlternative(std::string_view line, std::string_view pattern) {
  const std::size_t close = pattern.find('>');
  const std::string rest(pattern.substr(close + 1));
  std::string_view listed = pattern.substr(1, close - 1);
  for (;;) {
    const std::size_t bar = std::min(listed.find('|'), listed.size());
    if (fitsPattern(line, std::string(listed.substr(0, bar)) + rest)) return true;
    if (bar == listed.size()) return false;
    listed.remove_prefix(bar + 1);
  }
}

// --- Lines

using KeepLine = std::function<std::optional<std::string>(std::string_view)>;

// Each line in the form in which it is kept. A last line without its line feed is still being written.
KeptText keptLines(std::string_view text, const KeepLine& keep) {
  KeptText kept;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (const auto line = keep(text.substr(0, end))) {
      kept.text += *line + "\n";
    } else {
      ++kept.dropped;
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return kept;
}

KeptText linesThatFit(std::string_view text, std::span<const std::string_view> patterns) {
  return keptLines(text, [patterns](std::string_view line) {
    return fitsAny(line, patterns) ? std::optional(std::string(line)) : std::nullopt;
  });
}

// --- The log

// Why a Mac's charge cannot be controlled.
constexpr std::string_view noKeyMessage =
    "Brisko couldn’t find a way to control charging on this Mac. It needs an Apple Silicon Mac, an M1 or "
    "newer.";
constexpr std::string_view lockedMessage =
    "macOS # changed the way charging is controlled; Brisko can’t hold a limit on this version yet.";

// The variable parts for which the catalogue has no list of texts.
struct PartPattern {
  std::string_view name;
  std::array<std::string_view, 5> patterns = {};
};
constexpr std::array partPatterns{
    PartPattern{"temperature", {"<#°C|?>"}},
    PartPattern{"date", {"@@@@-@@-@@"}},
    PartPattern{"time", {"@@:@@:@@"}},
    PartPattern{"stalled", {"stalled"}},
    PartPattern{"file",
                {"@@@@-@@-@@.jsonl", "daemon.log", "daemon.log.1", "daemon.err.log", "/Library/Logs/Brisko"}},
    PartPattern{"OK or what could not be removed and why", {"OK"}},
    PartPattern{
        "reason",
        {"a number does not fit <a 64-bit integer|32 bits>", "a product does not fit a 64-bit integer"}},
    PartPattern{"what is wrong", {noKeyMessage, lockedMessage}},
    PartPattern{
        "detail",
        {"no known charge-control key (looked for CHTE, CH0B+CH0C, bfF0/bfD0/bfE0)",
         "macOS #: CHTE/CH0B/CH0C empty and bfF0/bfD0/bfE0 refused (kIOReturnNotPrivileged) even for root — "
         "not probed, see SystemLock"}},
    PartPattern{"CHTE, CH0B+CH0C, bfD0/bfE0/bfF0, macOS, or nothing: macOS 27 closed the keys Brisko writes, "
                "observing only",
                {"<CHTE|CH0B+CH0C|bfD0/bfE0/bfF0|macOS>",
                 "nothing: macOS # closed the keys Brisko writes, observing only"}},
    PartPattern{"  cal=phase→target%", {"", "  cal=<fill|drain|refill|soak|restore>→#%"}},
};

// The value of a variable part as it is kept; none if the line must be dropped.
std::optional<std::string> keptPart(const LinePart& part, const std::string& value) {
  if (part.kind == PartKind::number) return fitsPattern(value, "#") ? std::optional(value) : std::nullopt;
  if (part.kind == PartKind::oneOf) {
    const std::vector<std::string_view> texts(part.texts.begin(), part.texts.end());
    return fitsAny(value, texts) ? std::optional(value) : std::nullopt;
  }
  if (part.kind == PartKind::optional) return value;
  if (part.name == "path") return keptPath(value);
  for (const PartPattern& known : partPatterns) {
    if (known.name != part.name) continue;
    const auto end = std::find(known.patterns.begin() + 1, known.patterns.end(), "");
    return fitsAny(value, std::span(known.patterns.begin(), end)) ? std::optional(value) : std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::string> keptMessage(std::string_view message) {
  const auto match = findEntry(message);
  if (!match) return std::nullopt;
  std::string kept;
  auto field = match->fields.begin();
  for (const LinePart& part : match->entry->parts) {
    if (part.kind == PartKind::fixed) {
      kept += part.texts.front();
      continue;
    }
    const auto value = keptPart(part, field++->second);
    if (!value) return std::nullopt;
    kept += *value;
  }
  return kept;
}

// --- The self-test

// Its labels; a test compares them with the self-test. What it got and wanted is not kept.
constexpr std::array<std::string_view, 50> labels{
    "plage vide à limite=#",
    "réveil programmé à #% alors que le plancher est à 70",
    "durée estimée bornée à 5–45 min (obtenu #",
    "sous le plancher : porter la charge jusqu'à la limite",
    "dans la plage : geler",
    "pile sur le plancher : geler",
    "pile sur la limite : geler",
    "au-dessus de la limite : geler, jamais décharger en dormant",
    "débranché : ne rien faire",
    "limite éteinte : ne rien faire",
    "séquence en cours : ne pas s'en mêler",
    "réveil complet, écran allumé : décharger",
    "réveil de maintenance, sans écran : attendre",
    "raison publiée au sondage",
    "au-dessus, décharge éteinte : on retient où on est",
    "la retenue ne glisse pas avec la charge",
    "branché à 20 %, charge pas encore ouverte : on attend la charge, on ne la retient pas",
    "le cas du client : 30 % sous 80",
    "sous la marge de repos de macOS : jamais retenue",
    "dans la marge de repos, sans charge : retenue",
    "à la limite : retenue",
    "dans la marge, en charge : en charge",
    "au-dessus, macOS redescend : décharge",
    "sous la limite, courant négatif : chargeur trop faible, pas une décharge",
    "débranché : rien à retenir",
    "pas de limite : rien à retenir",
    "trop chaud : consigne au niveau atteint, retenue",
    "30 min sur batterie ne comptent pas : une minute après le rebranchement, pas de refus",
    "10 min branché sans que macOS tienne : là, c'est un refus",
    "branché : l'attente court",
    "aller-retour de la configuration",
    "config illisible après écriture",
    "limite par défaut",
    "limite active par défaut",
    "limite écrite en décimal",
    "le journal existe après bascule",
    "la génération précédente est gardée",
    "le journal courant reste sous le plafond",
    "la génération précédente aussi",
    "aucune deuxième génération",
    "la dernière ligne écrite est lisible",
    "un journal hérité trop gros bascule dès la première ligne",
    "le dossier du journal redevient traversable (755)",
    "daemon.log redevient lisible (644)",
    "daemon.err.log redevient lisible (644)",
    "un lien n'est pas suivi : sa cible garde ses droits",
    "chaque réparation est rendue pour être écrite au journal",
    "rien à réparer au deuxième passage",
    "un lien à la place du dossier n'est pas suivi",
    "la cible d'un faux dossier garde ses droits",
};

// --- What pmset prints

// With single blanks.
std::string squeezed(std::string_view line) {
  std::string text;
  for (const char letter : line) {
    const bool blank = letter == ' ' || letter == '\t';
    if (!blank) {
      text += letter;
    } else if (!text.empty() && text.back() != ' ') {
      text += ' ';
    }
  }
  if (text.ends_with(' ')) text.pop_back();
  return text;
}

// Why the Mac slept or woke, as pmset prints it.
constexpr std::array<std::string_view, 14> reasons{
    "Clamshell Sleep",   "Idle Sleep",
    "Software Sleep",    "Maintenance Sleep",
    "Low Power Sleep",   "Sleep Service Back to Sleep",
    "Thermal Emergency", "UserActivity Assertion",
    "SleepService",      "Maintenance",
    "HID Activity",      "Lid Open",
    "Deep Idle",         "Hibernate",
};

std::string reasonsIn(std::string_view line) {
  std::string text;
  for (const std::string_view reason : reasons) {
    const std::size_t at = line.find(reason);
    // Not the beginning of a longer reason that is listed too.
    if (at == std::string_view::npos || text.find(reason) != std::string::npos) continue;
    text += (text.empty() ? " (" : ", ") + std::string(reason);
  }
  return text.empty() ? "" : text + ")";
}

// "Using AC (Charge:80%)", with a blank or without.
std::string powerIn(const std::string& line) {
  std::string text;
  std::string lowered = line;
  std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  if (lowered.find("using ac") != std::string::npos) text = " Using AC";
  if (lowered.find("using batt") != std::string::npos) text = " Using Batt";
  constexpr std::string_view mark = "charge:";
  const std::size_t at = lowered.find(mark);
  if (at == std::string::npos) return text;
  std::string_view rest = std::string_view(line).substr(at + mark.size());
  if (rest.starts_with(' ')) rest.remove_prefix(1);
  const std::size_t digits = digitsAt(rest);
  if (digits == 0 || digits > 3) return text;
  return text + " (Charge:" + std::string(rest.substr(0, digits)) + "%)";
}

// " 1234 secs" at the end of the line.
std::string durationIn(std::string_view line) {
  constexpr std::string_view mark = " secs";
  if (!line.ends_with(mark)) return "";
  line.remove_suffix(mark.size());
  const std::string_view number = line.substr(line.rfind(' ') + 1);
  return fitsPattern(number, "#") ? " " + std::string(number) + " secs" : "";
}

std::optional<std::string> keptPowerEvent(std::string_view text, std::string_view firstDay) {
  const std::string line = squeezed(text);
  constexpr std::string_view form = "2026-03-01 08:15:30 +0100 ";
  if (line.size() < form.size() || line.substr(0, 10) < firstDay) return std::nullopt;
  if (!fitsPattern(line.substr(0, form.size()), "@@@@-@@-@@ @@:@@:@@ <+|->@@@@ ")) return std::nullopt;
  const std::string rest = line.substr(form.size());
  const std::string kind = rest.substr(0, rest.find(' '));
  if (!fitsPattern(kind, "<Sleep|Wake|DarkWake>") || rest.starts_with("Wake Requests")) return std::nullopt;
  return line.substr(0, form.size()) + kind + reasonsIn(rest) + powerIn(rest) + durationIn(rest);
}

std::optional<std::string> keptScheduledEvent(std::string_view text) {
  const std::string line = squeezed(text);
  constexpr std::array<std::string_view, 2> headings{"Scheduled power events:", "Repeating power events:"};
  if (fitsAny(line, headings)) return line;
  const std::size_t by = line.find(" by '");
  const std::string event = line.substr(0, by);
  constexpr std::array<std::string_view, 2> events{
      "[#] <wake|poweron|wakepoweron|wakeorpoweron|sleep|shutdown|restart> at @@/@@/<@@@@|@@> @@:@@:@@",
      "<wake|poweron|wakepoweron|sleep|shutdown|restart> at <@|@@>:@@<AM|PM> <every day|weekdays "
      "only|weekends "
      "only|some days>"};
  if (!fitsAny(event, events)) return std::nullopt;
  if (by == std::string::npos) return event;
  return event + (line.substr(by).starts_with(" by 'com.brisko.daemon'") ? " by 'com.brisko.daemon'"
                                                                         : " by another program");
}

}  // namespace

bool fitsPattern(std::string_view line, std::string_view pattern) {
  while (!pattern.empty()) {
    if (pattern.front() == '<') return fitsAlternative(line, pattern);
    std::size_t length = 1;
    if (pattern.front() == '#') {
      length = numberLengthAt(line);
      if (length == 0) return false;
    } else if (line.empty() ||
               (pattern.front() == '@' ? !isDigit(line.front()) : line.front() != pattern.front())) {
      return false;
    }
    line.remove_prefix(length);
    pattern.remove_prefix(1);
  }
  return line.empty();
}

std::string keptPath(const std::string& path) {
  const std::string program = "/Applications/Brisko.app";
  const std::array known{std::string(defaultConfigPath),
                         std::string(historyDir),
                         std::string("/Library/Brisko/brisko-daemon"),
                         std::string("/Library/LaunchDaemons/com.brisko.daemon.plist"),
                         std::string("/Library/Logs/Brisko/daemon.err.log"),
                         program,
                         program + "/Contents/MacOS/brisko-daemon"};
  if (path.empty() || std::find(known.begin(), known.end(), path) != known.end()) return path;
  for (const char* folder : {"/Users/", "/Applications/", "/Library/", "/Volumes/"}) {
    if (path.starts_with(folder)) return std::string(folder) + "…";
  }
  return "…";
}

KeptText keptLog(std::string_view text) {
  return keptLines(text, [](std::string_view line) -> std::optional<std::string> {
    const auto timed = logLineIn(line);
    const auto message = timed ? keptMessage(timed->message) : std::nullopt;
    if (!message) return std::nullopt;
    return std::string(line.substr(0, line.size() - timed->message.size())) + *message;
  });
}

KeptText keptStandardError(std::string_view text) { return keptLines(text, keptMessage); }

KeptText keptProbe(std::string_view text) {
  constexpr std::array<std::string_view, 10> patterns{
      "charging   : <CHTE|CH0B+CH0C|bfD0/bfE0/bfF0|macOS>",
      "discharge  : <CHIE|CH0I|CH0J|not supported|macOS (down to the limit)>",
      "MagSafe LED: <ACLC|not supported>",
      "verified by: <AppleSmartBattery current|CHSC|nothing>",
      "will write : <|CHIE, |CH0I, |CH0J, ><CHTE|CH0B, CH0C|bfF0, bfD0, bfE0> (+ ACLC)",
      "will write : macOS charge limit (PowerUI, mclLimitValue below 80%) (+ ACLC)",
      "no usable charge control.",
      noKeyMessage,
      lockedMessage,
      "Could not open AppleSMC.",
  };
  return linesThatFit(text, patterns);
}

KeptText keptSelfTest(std::string_view text) {
  return keptLines(text, [](std::string_view line) -> std::optional<std::string> {
    constexpr std::array<std::string_view, 2> summaries{"✓ # vérifications, aucune erreur.",
                                                        "✗ # erreur(s) sur # vérifications :"};
    if (fitsAny(line, summaries)) return std::string(line);
    constexpr std::string_view mark = "  - ";
    if (!line.starts_with(mark)) return std::nullopt;
    const std::string_view label = line.substr(0, line.find(": got ")).substr(mark.size());
    return fitsAny(label, labels) ? std::optional(std::string(mark) + std::string(label)) : std::nullopt;
  });
}

KeptText keptSignature(std::string_view text) {
  return keptLines(text, [](std::string_view line) -> std::optional<std::string> {
    constexpr std::string_view executable = "Executable=";
    constexpr std::string_view team = "TeamIdentifier=";
    if (line.starts_with(executable))
      return std::string(executable) + keptPath(std::string(line.substr(executable.size())));
    if (line == "TeamIdentifier=not set") return std::string(line);
    if (line.starts_with(team)) return std::string(team) + "…";
    constexpr std::array<std::string_view, 9> patterns{
        "Identifier=com.brisko.daemon",
        "Format=Mach-O <thin|universal> (<arm64|arm64e|x86_64|x86_64 arm64>)",
        "CodeDirectory v=# size=# flags=0x#(<none|adhoc|runtime|adhoc,runtime|adhoc,linker-signed>) "
        "hashes=#+# "
        "location=embedded",
        "Signature size=#",
        "Signature=adhoc",
        "Info.plist<=not bound| entries=#>",
        "Sealed Resources=none",
        "Internal requirements<=none| count=# size=#>",
        "Runtime Version=<@|@@>.<@|@@><|.@|.@@>",
    };
    return fitsAny(line, patterns) ? std::optional(std::string(line)) : std::nullopt;
  });
}

KeptText keptPowerLog(std::string_view text, std::string_view firstDay) {
  return keptLines(text, [firstDay](std::string_view line) { return keptPowerEvent(line, firstDay); });
}

KeptText keptPowerSchedule(std::string_view text) { return keptLines(text, keptScheduledEvent); }

}  // namespace brisko::client
