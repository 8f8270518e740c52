#include "tidy/tree_check.h"

#include <filesystem>
#include <fstream>

#include "sim/process/scratch.h"
#include "support/testing.h"

// The checks themselves, on small sample trees: each must find its violations, and nothing else.
namespace brisko::test::tree_check_test {
namespace {

// A tree in a temporary folder.
class SampleTree {
 public:
  SampleTree& file(const std::string& path, const std::string& text) {
    const std::filesystem::path full = folder_.path(path);
    std::filesystem::create_directories(full.parent_path());
    std::ofstream(full, std::ios::binary) << text;
    return *this;
  }

  [[nodiscard]] Tree read() const { return readTree(folder_.path()); }

 private:
  sim::ScratchFolder folder_{"brisko-tree"};
};

TEST(TreeReading, readsTextsAndSkipsBuiltHiddenAndBinaryFiles) {
  SampleTree tree;
  tree.file("README.md", "a").file(".clang-tidy", "b").file(".ci/run", "c").file("src/base/log.cpp", "d");
  tree.file("build/release/x.h", "e")
      .file(".git/config", "f")
      .file("docs/picture.png", std::string("g\0h", 3));

  EXPECT_THAT(tree.read(), UnorderedElementsAre(Key("README.md"), Key(".clang-tidy"), Key(".ci/run"),
                                                Key("src/base/log.cpp")));
}

// With a sample tree that has the files of the listing.
const std::string listing =
    "# Architecture\n\n    tests/   everything below\n    tools/vmac/\n    sim/machine/   the machine\n"
    "    src/power/\n    src/base/   what all stand on\n    src/platform/\n\n    make test\n";

struct LayeredTree : SampleTree {
  LayeredTree() {
    file("docs/architecture.md", "    docs/\n" + listing).file("tests/support/daemon_process.h", "");
    file("tools/vmac/main.h", "").file("sim/machine/machine.h", "").file("src/power/sleep.h", "");
    file("src/base/log.h", "").file("src/platform/clock.h", "");
  }
};

TEST(Layers, allowIncludesDownwardsAndInsideAFolder) {
  LayeredTree tree;
  tree.file("src/base/settings.h", "#include \"base/log.h\"\n#include <vector>\n");
  tree.file("src/power/sleep.cpp", "#include \"power/sleep.h\"\n#include \"platform/clock.h\"\n");
  tree.file("sim/machine/machine.cpp", "#include \"sim/machine/machine.h\"\n#include \"platform/clock.h\"\n");
  tree.file("tools/vmac/main.cpp", "#include \"power/sleep.h\"\n#include \"sim/machine/machine.h\"\n");
  tree.file("tests/base/log_test.cpp",
            "#include \"support/daemon_process.h\"\n#include \"tools/vmac/main.h\"\n");

  EXPECT_THAT(checkLayers(tree.read()), IsEmpty());
}

TEST(Layers, refuseAnIncludeThatPointsUpwards) {
  for (const std::string& target : std::vector<std::string>{
           "power/sleep.h", "sim/machine/machine.h", "tools/vmac/main.h", "support/daemon_process.h"}) {
    LayeredTree tree;
    tree.file("src/base/checked.cpp", "// why\n#include \"" + target + "\"\n");

    EXPECT_THAT(checkLayers(tree.read()),
                ElementsAre(AllOf(StartsWith("src/base/checked.cpp:2: includes " + target),
                                  HasSubstr("points upwards"))));
  }
}

TEST(Layers, useTheInnermostFolderOfTheListing) {
  LayeredTree tree;
  tree.file("docs/architecture.md", "    src/platform/macos/\n    docs/\n" + listing);
  tree.file("src/platform/macos/owned.h", "#include \"platform/clock.h\"\n");
  EXPECT_THAT(checkLayers(tree.read()), IsEmpty());

  tree.file("src/base/log.cpp", "#include \"platform/macos/owned.h\"\n");
  EXPECT_THAT(checkLayers(tree.read()), ElementsAre(StartsWith("src/base/log.cpp:1: ")));
}

TEST(Layers, keepImplementationsOfTheSeamIndependentOfTheCore) {
  const std::string reach = "#include \"base/log.h\"\n";
  LayeredTree tree;
  tree.file("docs/architecture.md", "    sim/seam/\n    src/platform/macos/\n    docs/\n" + listing);
  tree.file("sim/machine/machine.cpp", reach).file("sim/seam/host.cpp", reach);
  tree.file("src/platform/macos/host.cpp", reach).file("tools/vmac/main.cpp", reach);

  EXPECT_THAT(checkLayers(tree.read()), UnorderedElementsAre(StartsWith("sim/machine/machine.cpp:1: "),
                                                             StartsWith("sim/seam/host.cpp:1: "),
                                                             StartsWith("src/platform/macos/host.cpp:1: ")));
}

TEST(Layers, refuseAnIncludeOfAMissingFile) {
  LayeredTree tree;
  tree.file("src/base/log.cpp", "#include \"log.h\"\n");

  EXPECT_THAT(checkLayers(tree.read()), ElementsAre(HasSubstr("write the path from src/ or")));
}

TEST(Layers, letTestsIncludeEverythingAndNothingIncludeTests) {
  LayeredTree tree;
  tree.file("tests/power/sleep_test.cpp", "#include \"power/sleep.h\"\n#include \"tools/vmac/main.h\"\n");
  EXPECT_THAT(checkLayers(tree.read()), IsEmpty());

  tree.file("tools/vmac/main.cpp", "#include \"support/daemon_process.h\"\n");
  EXPECT_THAT(checkLayers(tree.read()), ElementsAre(StartsWith("tools/vmac/main.cpp:1: ")));
}

TEST(Layers, refuseAFolderThatIsNotListed) {
  LayeredTree tree;
  tree.file("src/state/led_mode.h", "").file("extra/notes.md", "");
  tree.file("src/CMakeLists.txt", "").file("README.md", "").file(".github/workflows/linux.yml", "");

  EXPECT_THAT(checkLayers(tree.read()),
              UnorderedElementsAre(StartsWith("src/state/led_mode.h: its folder is not in the listing"),
                                   StartsWith("extra/notes.md: ")));
}

TEST(Layers, refuseAListedFolderThatIsMissing) {
  LayeredTree tree;
  tree.file("docs/architecture.md", "    src/records/\n    docs/\n" + listing);

  EXPECT_THAT(checkLayers(tree.read()), ElementsAre("docs/architecture.md: there is no src/records/"));
}

TEST(Layers, needTheListing) {
  EXPECT_THAT(checkLayers(SampleTree().read()), ElementsAre(HasSubstr("it is missing")));
}

TEST(OwnHeader, comesFirst) {
  SampleTree tree;
  tree.file("src/base/log.h", "")
      .file("src/base/log.cpp", "// why\n#include \"base/log.h\"\n#include <string>\n");
  tree.file("tests/support/daemon_process.h", "")
      .file("tests/support/daemon_process.cpp", "#include \"support/daemon_process.h\"\n");
  tree.file("src/daemon/main.cpp", "#include <string>\n");
  EXPECT_THAT(checkOwnHeaderFirst(tree.read()), IsEmpty());

  tree.file("src/base/log.cpp", "#include <string>\n#include \"base/log.h\"\n");
  EXPECT_THAT(checkOwnHeaderFirst(tree.read()),
              ElementsAre(StartsWith("src/base/log.cpp:1: its own header")));

  tree.file("src/base/log.cpp", "int x;\n");
  EXPECT_THAT(checkOwnHeaderFirst(tree.read()),
              ElementsAre(StartsWith("src/base/log.cpp:1: its own header")));
}

TEST(OwnHeader, isTheSeamsHeaderForAnImplementationOfIt) {
  SampleTree tree;
  tree.file("src/platform/clock.h", "");
  tree.file("sim/seam/live/clock.cpp", "#include \"platform/clock.h\"\n");
  EXPECT_THAT(checkOwnHeaderFirst(tree.read()), IsEmpty());

  tree.file("sim/seam/live/clock.cpp", "#include <time.h>\n#include \"platform/clock.h\"\n");
  EXPECT_THAT(checkOwnHeaderFirst(tree.read()),
              ElementsAre(StartsWith("sim/seam/live/clock.cpp:1: its own header src/platform/clock.h")));
}

TEST(ChargeKeys, mayBeNamedWhereTheyAreWritten) {
  const std::string text = "const char* key = \"CHTE\";\n";
  SampleTree tree;
  tree.file("src/hardware/charge_gate.cpp", text).file("src/native/native_limit.cpp", text);
  tree.file("src/power/orderly_exit.cpp", text).file("sim/machine/exchange.cpp", text);
  tree.file("tools/vmac/main.cpp", text).file("tests/hardware/charge_gate.cpp", text);
  tree.file("src/daemon/start_up.cpp", "// CHTE is the newer key.\nread(\"AC-W\");\n");

  EXPECT_THAT(checkChargeKeys(tree.read()), IsEmpty());
}

TEST(ChargeKeys, areReportedAnywhereElse) {
  for (const std::string key : {"CHTE", "CH0B", "CH0C", "bfF0", "bfD0", "bfE0", "CHIE", "CH0I", "CH0J"}) {
    SampleTree tree;
    tree.file("src/policy/decision.cpp", "\nwrite(\"via " + key + "\");\n");

    EXPECT_THAT(checkChargeKeys(tree.read()),
                ElementsAre(AllOf(StartsWith("src/policy/decision.cpp:2: "), HasSubstr(key))));
  }
}

TEST(Seam, ignoresNamesInCommentsTextsAndMembers) {
  SampleTree tree;
  tree.file("src/policy/evaluation.cpp",
            "// No time() and no IOKit here.\n#include <string>\n#include \"platform/clock.h\"\n"
            "log(\"time(0)\"); record.time(); double time = 0; platform::pause(3); NSx y; CFG z;\n");
  tree.file("sim/seam/live/clock.cpp", "#include <uv.h>\nclock_gettime(0, 0);\n");
  tree.file("tools/vmac/main.cpp", "getenv(\"HOME\");\n");

  EXPECT_THAT(checkSeam(tree.read()), IsEmpty());
}

TEST(Seam, isTheOnlyAccessToClocksSleepRandomnessAndPlatforms) {
  for (const std::string line : {"std::chrono::system_clock::now();",
                                 "std::chrono::steady_clock::now();",
                                 "clock_gettime(a, b);",
                                 "time(nullptr);",
                                 "std::time(nullptr);",
                                 "sleep(1);",
                                 "usleep(1);",
                                 "nanosleep(a, b);",
                                 "std::this_thread::sleep_for(x);",
                                 "rand();",
                                 "getenv(x);",
                                 "geteuid();",
                                 "#ifdef __APPLE__",
                                 "#if defined(__linux__)",
                                 "IOServiceMatching(x);",
                                 "CFRelease(x);",
                                 "return kIOReturnSuccess;",
                                 "dispatch_async(x);",
                                 "inotify_init();",
                                 "#include <IOKit/IOKitLib.h>",
                                 "#include <sys/epoll.h>",
                                 "#include <uv.h>"}) {
    SampleTree tree;
    tree.file("src/policy/evaluation.cpp", "\n\n" + line + "\n");

    EXPECT_THAT(checkSeam(tree.read()), Contains(StartsWith("src/policy/evaluation.cpp:3: "))) << line;
  }
}

TEST(Simulation, mayBeNamedInTheVirtualMacToolsAndTests) {
  SampleTree tree;
  tree.file("sim/machine/machine.h", "namespace virtual_mac {}\n");
  tree.file("tools/vmac/main.cpp", "using namespace virtual_mac; setenv(\"BRISKO_VIRTUAL_MAC\");\n");
  tree.file("src/base/volume_path.cpp", "platform::volumeRoot();\n");
  tree.file("src/platform/host.h", "const std::string& volumeRoot();\n");
  tree.file("src/platform/macos/volume_root.cpp", "const std::string& volumeRoot() { return itself; }\n");
  tree.file("src/base/log.cpp", "// On a virtual Mac (virtual_mac) the path moves.\n");

  EXPECT_THAT(checkSimulationUnknown(tree.read()), IsEmpty());
}

TEST(Simulation, isReportedAnywhereElse) {
  for (const std::string line :
       {"virtual_mac::attachedMachine();", "environment(\"BRISKO_VIRTUAL_MAC\");",
        "if (platform::volumeRoot().empty()) {}", "if (isVirtual()) {}", "if (host.isSimulated) {}"}) {
    SampleTree tree;
    tree.file("src/daemon/entry.cpp", "\n" + line + "\n");

    EXPECT_THAT(checkSimulationUnknown(tree.read()), ElementsAre(StartsWith("src/daemon/entry.cpp:2: ")))
        << line;
  }
}

// In pieces, so that the check does not report this file.
const std::string bareSign = std::string("\xE2\x9A") + "\xA0";
const std::string bareStop = std::string("\xE2\x9B") + "\x94";
const std::string selector = "\xEF\xB8\x8F";
const std::string backslash = "\\";

TEST(Characters, mayBePlainBlanksAndSignsWithTheirSelector) {
  SampleTree tree;
  tree.file("src/base/log.cpp", "log(\"" + bareSign + selector + " hot, 80 %\");\n");
  tree.file("src/daemon/entry.cpp", "log(\"" + backslash + "u26D4" + backslash + "uFE0F stop\");\n");
  tree.file("docs/log.md", bareStop + selector + "\n");

  EXPECT_THAT(checkCharacters(tree.read()), IsEmpty());
}

TEST(Characters, areReportedIfASignLacksItsSelector) {
  SampleTree tree;
  tree.file("src/base/log.cpp", "\nlog(\"" + bareSign + " hot\");\n");
  tree.file("tests/base/log.cpp", "log(\"" + backslash + "u26D4 stop\");\n");
  tree.file("docs/log.md", "fine " + bareStop + selector + ", bare " + bareStop + "\n");

  EXPECT_THAT(checkCharacters(tree.read()),
              UnorderedElementsAre(StartsWith("src/base/log.cpp:2: "), StartsWith("tests/base/log.cpp:1: "),
                                   StartsWith("docs/log.md:1: ")));
}

TEST(Characters, areReportedIfABlankIsNotThePlainOne) {
  SampleTree tree;
  tree.file("src/base/a.cpp", "log(\"80" + std::string("\xC2") + "\xA0%\");\n");
  tree.file("src/base/b.cpp", "\n// 80" + std::string("\xE2\x80") + "\xAF%\n");
  tree.file("src/base/c.cpp", "log(\"80" + backslash + "u00A0%\");\n");
  tree.file("docs/log.md", "80" + std::string("\xC2") + "\xA0%\n");

  EXPECT_THAT(checkCharacters(tree.read()),
              UnorderedElementsAre(StartsWith("src/base/a.cpp:1: "), StartsWith("src/base/b.cpp:2: "),
                                   StartsWith("src/base/c.cpp:1: ")));
}

// A tree with a list of words. None of them is on the real list, so that this file may use them.
struct ListedTree : SampleTree {
  explicit ListedTree(const std::string& allowed = "") {
    file("scripts/words.txt",
         "# A comment\n\n\\b[Ww]idgets?\\b -> part\n\\b(old|new) gizmos?\\b -> device\n\\bOldName\\b -> "
         "NewName\n");
    file("scripts/words-allowed.txt", "# A comment\n" + allowed);
  }
};

TEST(Terms, areAllowedUnlessListed) {
  ListedTree tree;
  tree.file("docs/a.md", "A midget, a widgetry, some gizmo, an older gizmo, OldNames\nold\n\nthe gizmo\n");

  EXPECT_THAT(checkTerms(tree.read()), IsEmpty());
}

TEST(Terms, areReportedWithTheirReplacement) {
  ListedTree tree;
  tree.file("docs/a.md", "Two\nWidgets and a widget.\n");
  tree.file("src/base/log.cpp", "OldName name;  // an old gizmo\n");

  EXPECT_THAT(
      checkTerms(tree.read()),
      UnorderedElementsAre("docs/a.md:2: \"Widgets\"; write: part", "docs/a.md:2: \"widget\"; write: part",
                           "src/base/log.cpp:1: \"OldName\"; write: NewName",
                           "src/base/log.cpp:1: \"old gizmo\"; write: device"));
}

TEST(Terms, areReportedAcrossLinesAndInFileNames) {
  ListedTree tree;
  tree.file("docs/a.md", "This is a new\n  gizmo.\n");
  tree.file("src/base/log.h", "// This is an old\n// gizmo.\n");
  tree.file("docs/widget.md", "text\n");

  EXPECT_THAT(checkTerms(tree.read()), UnorderedElementsAre(StartsWith("docs/a.md:1: \"new   gizmo\""),
                                                            StartsWith("src/base/log.h:1: \"old // gizmo\""),
                                                            StartsWith("docs/widget.md:1: \"widget\"")));
}

TEST(Terms, areFoundHoweverTheExpressionBegins) {
  for (const std::string expression :
       {R"(\b[Gg]adget)", R"(\bgx*adget)", R"(\b[f-h]adget)", R"(\b(g)adget)", R"(\b.adget)",
        R"(\bg[^b]dget)", R"(\bg[ab]dget)", "gadget", "adget"}) {
    SampleTree tree;
    tree.file("scripts/words.txt", expression + " -> y\n").file("scripts/words-allowed.txt", "");
    tree.file("docs/a.md", "gadget").file("docs/b.md", "line\n_a (gadget)");

    EXPECT_THAT(checkTerms(tree.read()),
                ElementsAre(StartsWith("docs/a.md:1: "), StartsWith("docs/b.md:2: ")))
        << expression;
  }
}

TEST(Terms, areAllowedInListedPlacesOnly) {
  ListedTree tree("docs/a.md: the given widget\n");
  tree.file("docs/a.md", "This is the given widget.\nA widget\n").file("docs/b.md", "the given widget\n");

  EXPECT_THAT(checkTerms(tree.read()),
              UnorderedElementsAre(StartsWith("docs/a.md:2: "), StartsWith("docs/b.md:1: ")));
}

TEST(Terms, mayNotHaveUnusedAllowedPlaces) {
  ListedTree tree("docs/a.md: widget\ndocs/a.md: no such text\n");
  tree.file("docs/a.md", "no widget\n");

  EXPECT_THAT(checkTerms(tree.read()), ElementsAre(StartsWith("scripts/words-allowed.txt:3: ")));
}

TEST(Terms, areAllowedInAtMostFortyPlaces) {
  std::string allowed;
  for (int place = 1; place <= 40; ++place) allowed += "docs/a.md: widget\n";
  EXPECT_THAT(checkTerms(ListedTree(allowed).file("docs/a.md", "a widget\n").read()), IsEmpty());

  EXPECT_THAT(checkTerms(ListedTree(allowed + "docs/a.md: widget\n").file("docs/a.md", "a widget\n").read()),
              ElementsAre(StartsWith("scripts/words-allowed.txt:42: more than 40 places")));
}

TEST(Terms, areListedInTheGivenForm) {
  for (const std::string line :
       {"no separator", "x -> y", "(one|two) -> y", "one|two -> y", "on* -> y", "one( -> y"}) {
    SampleTree tree;
    tree.file("scripts/words.txt", "\n" + line + "\n").file("scripts/words-allowed.txt", "");

    EXPECT_THAT(checkTerms(tree.read()), ElementsAre(StartsWith("scripts/words.txt:2: "))) << line;
  }
  SampleTree tree;
  tree.file("scripts/words.txt", "").file("scripts/words-allowed.txt", "no separator\n");
  EXPECT_THAT(checkTerms(tree.read()), ElementsAre(StartsWith("scripts/words-allowed.txt:1: ")));
}

TEST(Terms, needBothLists) {
  SampleTree tree;
  EXPECT_THAT(checkTerms(tree.read()), ElementsAre(StartsWith("scripts/words.txt: it is missing")));

  tree.file("scripts/words.txt", "");
  EXPECT_THAT(checkTerms(tree.read()), ElementsAre(StartsWith("scripts/words-allowed.txt: it is missing")));
}

TEST(ThreatModel, namesTestsThatExist) {
  SampleTree tree;
  EXPECT_THAT(checkThreatModel(tree.read()), ElementsAre("docs/threat-model.md: it is missing"));

  tree.file("tests/base/a_test.cpp",
            "\nTEST(One, holds) {}\nTEST_F(Two,\n       holds) {}\n// TEST(Three, holds)\n")
      .file("tests/fuzz/json_fuzz.cpp", "");
  const std::string head = "# What\n\n| who | test |\n|---|---|\n";
  tree.file("docs/threat-model.md",
            head + "| a | `One.holds` `Two.holds` |\n| `b` | `fuzz/json` |\n`Any.thing`\n");
  EXPECT_THAT(checkThreatModel(tree.read()), IsEmpty());

  tree.file("docs/threat-model.md",
            head + "| a | `One.holds` `Three.holds` |\n| `One.holds` | none |\n| c | `fuzz/other` |\n");
  EXPECT_THAT(checkThreatModel(tree.read()),
              ElementsAre(StartsWith("docs/threat-model.md:5: there is no test Three.holds"),
                          StartsWith("docs/threat-model.md:6: a row without a test"),
                          StartsWith("docs/threat-model.md:7: there is no test fuzz/other")));
}

const std::string logSource =
    "log(\"stats reset\");\n"
    "log(\"→ state: \" + name);\n"
    "log(\"cap \" + (on ? percent : \"off\") + \"  batt \" + pct + \"%\");\n"
    "write(\"" +
    bareStop + selector + " Could not open it.\\n\");\n";
const std::string logDocument =
    "# The log\n\nStandard error, `in passing`:\n\n"
    "- `stats reset`\n  You asked for it.\n"
    "- `→ state: <allow, hold or discharge>`\n"
    "- `cap <limit, or off>  batt …%`\n"
    "- `" +
    bareStop + selector + " Could not open it.`\n";

TEST(LogLines, areDocumentedWithTheirVariableParts) {
  SampleTree tree;
  tree.file("src/base/log.cpp", logSource + "std::log(x + \"deep\"); other(\"quiet\"); log(line);\n");
  tree.file("docs/log.md", logDocument);

  EXPECT_THAT(checkLogLines(tree.read()), IsEmpty());
}

TEST(LogLines, areReportedIfTheDocumentLacksThem) {
  for (const std::string line : {"log(\"stats\");", "log(\"stats reset twice\");",
                                 "log(prefix + \" reset\");", "log(f(a, b) + \"(TopUp)\");"}) {
    SampleTree tree;
    tree.file("docs/log.md", logDocument).file("src/base/log.cpp", logSource + line + "\n");

    EXPECT_THAT(checkLogLines(tree.read()), ElementsAre(StartsWith("src/base/log.cpp:5: "))) << line;
  }
}

TEST(LogLines, beginWithASignWhereverTheyAreWritten) {
  SampleTree tree;
  tree.file("docs/log.md", logDocument);
  tree.file("src/base/log.cpp", logSource + "const char* text = \"" + bareSign + selector + " heat\";\n");

  EXPECT_THAT(checkLogLines(tree.read()), ElementsAre(HasSubstr(" heat\" is in no line of docs/log.md")));
}

TEST(LogLines, areReportedIfOnlyTheDocumentHasThem) {
  SampleTree tree;
  tree.file("src/base/log.cpp", logSource)
      .file("docs/log.md", logDocument + "- `Signal <number>: exiting.`\n");

  EXPECT_THAT(checkLogLines(tree.read()),
              ElementsAre(AllOf(StartsWith("docs/log.md:10: "), HasSubstr("\": exiting.\""))));
}

TEST(LogLines, needTheDocument) {
  EXPECT_THAT(checkLogLines(SampleTree().file("src/base/log.cpp", "").read()),
              ElementsAre(HasSubstr("docs/log.md: it is missing")));
}

const std::string manual =
    ".It Fl -limit Ar percent\n.It Fl -probe\n.It Ev BRISKO_PRETEND\n.It Pa \"/Library/A B/config.json\"\n"
    ".It \"⛔️ No root.\"\n";

TEST(Manual, explainsWhatTheSourcesContain) {
  SampleTree tree;
  tree.file("man/brisko-daemon.8", manual);
  tree.file("src/base/options.cpp", "f(\"--limit\"); f(\"--probe\"); f(\"--limit --probe\"); f(\"--\");\n");
  tree.file("src/daemon/entry.cpp",
            "g(\"⛔️ No root.\\n\"); g(\"⛔️ \"); h(\"/Library/A B/config.json\");\n");
  tree.file("sim/seam/host.cpp", "g(\"BRISKO_PRETEND\"); h(\"/Applications/X.app\"); g(\"⛔️ no\");\n");
  tree.file("tools/vmac.cpp", "f(\"--model\");\n");

  EXPECT_THAT(checkManual(tree.read()), IsEmpty());
}

TEST(Manual, isReportedIfItDoesNotExplainSomething) {
  for (const std::string unknown : {"--lower", "--lim", "BRISKO_PRE", "BRISKO_PRETEND_MORE", "/Library/B",
                                    "/Applications/X.app", "⛔️ No controller."}) {
    SampleTree tree;
    tree.file("man/brisko-daemon.8", manual);
    tree.file("src/base/options.cpp", "f(\"--limit\"); f(\"--probe\");\nf(\"" + unknown + "\");\n");

    EXPECT_THAT(checkManual(tree.read()),
                ElementsAre(AllOf(StartsWith("src/base/options.cpp:2: "), HasSubstr("\"" + unknown + "\""))));
  }
}

TEST(Manual, isReportedIfItExplainsAnUnknownOption) {
  SampleTree tree;
  tree.file("man/brisko-daemon.8", manual);
  tree.file("src/base/options.cpp", "f(\"--limit\");\n").file("tools/vmac.cpp", "f(\"--probe\");\n");

  EXPECT_THAT(checkManual(tree.read()),
              ElementsAre(AllOf(StartsWith("man/brisko-daemon.8:2: "), HasSubstr("--probe"))));
}

TEST(Manual, isReportedIfMissing) {
  SampleTree tree;
  tree.file("src/base/options.cpp", "");

  EXPECT_THAT(checkManual(tree.read()), ElementsAre(StartsWith("man/brisko-daemon.8: it is missing")));
}

}  // namespace
}  // namespace brisko::test::tree_check_test
