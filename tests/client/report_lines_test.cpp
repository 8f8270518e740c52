#include "client/report_lines.h"

#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/log_catalogue.h"
#include "support/files.h"

namespace brisko::client::report_lines_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* stamp = "2026-03-01T08:15:30Z  ";

TEST(ReportPatterns, matchWholeLinesOnly) {
  struct Case {
    const char* line;
    const char* pattern;
    bool fits;
  };
  for (const Case& each : {
           Case{"80", "#", true},
           Case{"-80.5", "#", true},
           Case{"+3", "#", true},
           Case{"1234567", "#", true},
           Case{"12345678", "#", false},
           Case{"1.2345", "#", false},
           Case{"192.168.1.7", "#", false},
           Case{"", "#", false},
           Case{"-", "#", false},
           Case{"80 ", "#", false},
           Case{" 80", "#", false},
           Case{"8a", "#", false},
           Case{"2026-03-01", "@@@@-@@-@@", true},
           Case{"2026-03-1", "@@@@-@@-@@", false},
           Case{"at 80%", "at #%", true},
           Case{"at 80%x", "at #%", false},
           Case{"on", "<on|off>", true},
           Case{"off", "<on|off>", true},
           Case{"of", "<on|off>", false},
           Case{"on off", "<on|off> <on|off>", true},
           Case{"x", "x<|y>", true},
           Case{"xy", "x<|y>", true},
           Case{"xyy", "x<|y>", false},
           Case{"3%", "<#%|?>", true},
           Case{"?", "<#%|?>", true},
           Case{"", "", true},
       })
    EXPECT_EQ(fitsPattern(each.line, each.pattern), each.fits) << each.line << " and " << each.pattern;
}

TEST(ReportPaths, nameNobody) {
  EXPECT_EQ(keptPath("/Users/anna/Applications/Brisko.app"), "/Users/…");
  EXPECT_EQ(keptPath("/Applications/Anna's Brisko.app"), "/Applications/…");
  EXPECT_EQ(keptPath("/Volumes/Anna/Brisko.app"), "/Volumes/…");
  EXPECT_EQ(keptPath("/opt/anna/brisko-daemon"), "…");
  EXPECT_EQ(keptPath("anna"), "…");
  EXPECT_EQ(keptPath(""), "");
  EXPECT_EQ(keptPath("/Applications/Brisko.app/Contents/MacOS/brisko-daemon"),
            "/Applications/Brisko.app/Contents/MacOS/brisko-daemon");
  EXPECT_EQ(keptPath("/Library/Brisko/brisko-daemon"), "/Library/Brisko/brisko-daemon");
}

// A line of the log with its time, as it is kept; empty if it is dropped.
std::string keptOf(const std::string& message) {
  const KeptText kept = keptLog(stamp + message + "\n");
  EXPECT_EQ(kept.dropped, kept.text.empty() ? 1U : 0U) << message;
  return kept.text.empty() ? "" : kept.text.substr(22, kept.text.size() - 23);
}

TEST(ReportOfTheLog, keepsTheLinesOfTheDaemon) {
  for (const std::string message : {
           "brisko-daemon started (event-driven) — config /Library/Application Support/Brisko/config.json. "
           "charging "
           "via CHTE, discharge CHIE, LED OK, history /Library/Application Support/Brisko/history, "
           "state=hold",
           "cap 80%+discharge+HOT  batt 85%  31.5°C  ac  state=hold  LED=green",
           "cap off  cal=drain→15%  batt 9%  ?  battery  state=discharge  LED=blink",
           "macOS charges to full until 2026-03-02 08:00:00 +0000 (asked in the Battery menu) — Brisko waits",
           "history pruned: 2025-03-01.jsonl",
           "log permissions repaired: daemon.log 600 → 644",
           "log permissions repaired: /Library/Logs/Brisko 700 → 755",
           "veille à 78% — grille fermée pour la nuit (plage 75–80%)",
           "calibration stopped: stalled at the fill step",
           "calibration finished — capacity ? mAh → 4310 mAh, 121 cycles",
           "⚠️ forced discharge has no effect: the battery is not running down (-12 mA) — holding the "
           "charge instead",
       })
    EXPECT_EQ(keptOf(message), message);
}

TEST(ReportOfTheLog, shortensPathsAndDropsWhatIsNotListed) {
  EXPECT_EQ(
      keptOf(
          "app missing at /Users/anna/Brisko.app — handing the charge back to macOS in 600s unless it comes "
          "back"),
      "app missing at /Users/… — handing the charge back to macOS in 600s unless it comes back");
  for (const char* message :
       {"Anna was here", "history pruned: anna.jsonl", "→ state: hold anna", "",
        "calibration stopped: anna at the fill step", "log permissions repaired: anna.log 600 → 644",
        "cap 80%  batt 192.168.1.7%  31.5°C  ac  state=hold  LED=green",
        "cap 80%  batt 85%  anna°C  ac  state=hold  LED=green",
        "cap 80%  cal=anna  batt 85%  ?  ac  state=hold  LED=green",
        "macOS charges to full until anna 08:00:00 +0000 (asked in the Battery menu) — Brisko "
        "waits"})
    EXPECT_EQ(keptOf(message), "") << message;
  EXPECT_EQ(keptLog("→ state: hold\n").dropped, 1U) << "without a time";
  EXPECT_EQ(keptLog("2026-03-01T08:15:30Z  → state: hold").text, "2026-03-01T08:15:30Z  → state: hold\n");
}

// So that a new line of the daemon is not dropped for want of a pattern.
TEST(ReportOfTheLog, hasAPatternForEveryVariablePart) {
  for (const LogEntry& entry : logCatalogue()) {
    std::string message;
    for (const LinePart& part : entry.parts) {
      if (part.kind == PartKind::fixed || part.kind == PartKind::optional) message += part.texts.front();
      if (part.kind == PartKind::number) message += "80";
      if (part.kind == PartKind::oneOf) {
        std::string text = part.texts.front();
        if (const std::size_t mark = text.find('#'); mark != std::string::npos) text.replace(mark, 1, "80");
        message += text;
      }
      if (part.kind != PartKind::word && part.kind != PartKind::anything) continue;
      message += part.name == "temperature"     ? "31.5°C"
                 : part.name == "date"          ? "2026-03-01"
                 : part.name == "time"          ? "08:00:00"
                 : part.name == "stalled"       ? "stalled"
                 : part.name == "file"          ? "2026-03-01.jsonl"
                 : part.name == "path"          ? "/x"
                 : part.name == "reason"        ? "a number does not fit 32 bits"
                 : part.name == "what is wrong" ? "Brisko couldn’t find a way to control charging on this "
                                                  "Mac. It needs an Apple Silicon Mac, an "
                                                  "M1 or newer."
                 : part.name == "detail"
                     ? "no known charge-control key (looked for CHTE, CH0B+CH0C, bfF0/bfD0/bfE0)"
                 : part.name.starts_with("OK ")    ? "OK"
                 : part.name.starts_with("  cal=") ? ""
                 : part.name.starts_with("CHTE, ") ? "CHTE"
                                                   : "no example of " + part.name;
    }
    EXPECT_EQ(keptStandardError(message + "\n").dropped, 0U) << entry.id << ": " << message;
  }
}

std::string sourceText(const std::string& path) {
  const std::string text = test::contents(std::string(BRISKO_DOCUMENTS) + "/../src/" + path);
  EXPECT_NE(text, "") << path;
  // Literals that continue on the next line become one.
  return std::regex_replace(text, std::regex("\"\\s*\\n\\s*\""), "");
}

// Every match of the first group.
std::vector<std::string> matchesIn(const std::string& text, const std::string& expression) {
  const std::regex pattern(expression);
  std::vector<std::string> found;
  for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at)
    found.push_back((*at)[1]);
  return found;
}

TEST(ReportOfStandardError, keepsTheReasonsOfTheDaemon) {
  const auto reasons = matchesIn(sourceText("base/checked.cpp"), "fatal\\(\"([^\"]+)\"\\)");
  EXPECT_GE(reasons.size(), 3U);
  for (const std::string& reason : reasons) {
    const std::string line = "brisko-daemon: " + reason + "\n";
    EXPECT_EQ(keptStandardError(line).text, line);
  }
  const std::string unsupported =
      "⛔️ macOS 27 changed the way charging is controlled; Brisko can’t hold a limit on this version "
      "yet. "
      "[macOS 27: "
      "CHTE/CH0B/CH0C empty and bfF0/bfD0/bfE0 refused (kIOReturnNotPrivileged) even for root — not probed, "
      "see "
      "SystemLock]\n";
  EXPECT_EQ(keptStandardError(unsupported).text, unsupported);
  EXPECT_EQ(keptStandardError("brisko-daemon: anna\n").dropped, 1U);
}

TEST(ReportOfTheSelfTest, keepsEveryLabelWithoutValues) {
  const auto labels =
      matchesIn(sourceText("diagnostics/self_test.cpp"),
                "(?:expect|expectEqual|expectEqualDates)\\([^;]*?[,\\s]\"([^\"%][^\"]{3,} [^\"]*)\"\\)");
  EXPECT_GE(labels.size(), 25U);
  for (const std::string& label : labels)
    EXPECT_EQ(keptSelfTest("  - " + label + "\n").text, "  - " + label + "\n") << label;
  EXPECT_EQ(keptSelfTest("✗ 2 erreur(s) sur 212 vérifications :\n"
                         "  - pile sur le plancher : geler: got carryOn(toward: 80), want freeze\n"
                         "  - plage vide à limite=33\n"
                         "  - anna\n")
                .text,
            "✗ 2 erreur(s) sur 212 vérifications :\n"
            "  - pile sur le plancher : geler\n"
            "  - plage vide à limite=33\n");
  EXPECT_EQ(keptSelfTest("✓ 212 vérifications, aucune erreur.\n").dropped, 0U);
}

TEST(ReportOfTheProbe, keepsEveryLineOfIt) {
  for (const std::string text :
       {"charging   : CHTE\ndischarge  : CHIE\nMagSafe LED: ACLC\nverified by: AppleSmartBattery current\n"
        "will write : CHIE, CHTE (+ ACLC)\n",
        "charging   : CH0B+CH0C\ndischarge  : not supported\nMagSafe LED: not supported\nverified by: CHSC\n"
        "will write : CH0B, CH0C (+ ACLC)\n",
        "charging   : macOS\ndischarge  : macOS (down to the limit)\nverified by: nothing\n"
        "will write : macOS charge limit (PowerUI, mclLimitValue below 80%) (+ ACLC)\n",
        "no usable charge control.\nmacOS 27 changed the way charging is controlled; Brisko can’t hold a "
        "limit on this "
        "version yet.\n",
        "Could not open AppleSMC.\n"}) {
    EXPECT_EQ(keptProbe(text).text, text);
    EXPECT_EQ(keptProbe(text).dropped, 0U);
  }
  EXPECT_EQ(keptProbe("charging   : anna\n").dropped, 1U);
}

TEST(ReportOfTheSignature, keepsWhetherATeamSigned) {
  const KeptText kept = keptSignature(
      "Executable=/Users/anna/brisko-daemon\n"
      "Identifier=com.brisko.daemon\n"
      "Format=Mach-O thin (arm64)\n"
      "CodeDirectory v=20500 size=7413 flags=0x10000(runtime) hashes=221+7 location=embedded\n"
      "Signature size=9050\n"
      "Timestamp=1 Mar 2026 at 08:15:30\n"
      "Info.plist=not bound\n"
      "TeamIdentifier=A1B2C3D4E5\n"
      "Runtime Version=13.3.0\n"
      "Sealed Resources=none\n"
      "Internal requirements count=1 size=180\n");
  EXPECT_EQ(kept.dropped, 1U);
  EXPECT_THAT(kept.text, HasSubstr("Executable=/Users/…\n"));
  EXPECT_THAT(kept.text, HasSubstr("TeamIdentifier=…\n"));
  EXPECT_THAT(kept.text, HasSubstr("Runtime Version=13.3.0\n"));
  EXPECT_THAT(kept.text, Not(HasSubstr("Timestamp")));
  EXPECT_EQ(keptSignature("TeamIdentifier=not set\nSignature=adhoc\n").dropped, 0U);
}

TEST(ReportOfThePowerLog, keepsWhenTheMacSleptAndWoke) {
  const KeptText kept = keptPowerLog(
      "2026-02-22 23:00:00 +0100 Sleep               \tEntering Sleep state due to 'Idle "
      "Sleep':TCPKeepAlive=active "
      "Using AC (Charge:80%) 10 secs\n"
      "2026-03-01 22:10:05 +0100 Sleep               \tEntering Sleep state due to 'Clamshell "
      "Sleep':TCPKeepAlive=active "
      "Using AC (Charge:80%) 1234 secs \n"
      "2026-03-01 22:30:39 +0100 DarkWake            \tDarkWake from Deep Idle [CDNPB] : due to "
      "NUB.SPMI0.SW3 "
      "nub-spmi-a0.0x25 rtc/Maintenance Using AC (Charge:81%) 45 secs\n"
      "2026-03-02 07:01:12 +0100 Wake                \tWake from Deep Idle [CDNVA] : due to Anna's Magic "
      "Mouse/HID Activity Using BATT (Charge: 79%)\n"
      "2026-03-02 07:01:13 +0100 Assertions          \tPID 123(annad) Created PreventUserIdleSystemSleep "
      "\"Anna\"\n"
      "2026-03-02 07:01:14 +0100 Wake Requests       \t[process=annad request=Maintenance deltaSecs=7199]\n",
      "2026-02-23");
  EXPECT_EQ(kept.text,
            "2026-03-01 22:10:05 +0100 Sleep (Clamshell Sleep) Using AC (Charge:80%) 1234 secs\n"
            "2026-03-01 22:30:39 +0100 DarkWake (Maintenance, Deep Idle) Using AC (Charge:81%) 45 secs\n"
            "2026-03-02 07:01:12 +0100 Wake (HID Activity, Deep Idle) Using Batt (Charge:79%)\n");
  EXPECT_EQ(kept.dropped, 3U);
}

TEST(ReportOfTheSchedule, keepsWhenTheMacIsToWake) {
  const KeptText kept = keptPowerSchedule(
      "Repeating power events:\n"
      "  wakepoweron at 7:00AM every day\n"
      "Scheduled power events:\n"
      " [0]  wake at 03/01/2026 22:30:04 by 'com.brisko.daemon'\n"
      " [1]  wake at 03/01/26 23:59:00 by 'com.apple.alarm.anna'\n"
      " [2]  wake at Anna's\n");
  EXPECT_EQ(kept.text,
            "Repeating power events:\n"
            "wakepoweron at 7:00AM every day\n"
            "Scheduled power events:\n"
            "[0] wake at 03/01/2026 22:30:04 by 'com.brisko.daemon'\n"
            "[1] wake at 03/01/26 23:59:00 by another program\n");
  EXPECT_EQ(kept.dropped, 1U);
}

}  // namespace
}  // namespace brisko::client::report_lines_test
