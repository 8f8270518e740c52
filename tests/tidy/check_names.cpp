#include <algorithm>
#include <array>
#include <optional>

#include "tidy/cpp_text.h"
#include "tidy/tree_check.h"

namespace brisko::test {
namespace {

// --- Own header first

// The header that a source implements: the one beside it, or the seam's header of the same name.
std::optional<std::string> ownHeader(const std::string& path, const Tree& tree) {
  const std::string beside = withoutExtension(path) + ".h";
  if (tree.contains(beside)) return beside;
  if (!inPlatform(path) && !path.starts_with("sim/seam/")) return std::nullopt;
  std::string seam = "src/platform/" + beside.substr(beside.rfind('/') + 1);
  if (tree.contains(seam)) return seam;
  return std::nullopt;
}

// Includes are relative to the project's folder, but to src/, tests/ or benchmarks/ for files there.
bool names(const Include& include, const std::string& header) {
  return !include.angled && (header == include.path || header.substr(header.find('/') + 1) == include.path);
}

// --- Keys

constexpr std::array<std::string_view, 9> chargeKeys = {"CHTE", "CH0B", "CH0C", "bfF0", "bfD0",
                                                        "bfE0", "CHIE", "CH0I", "CH0J"};

bool mayNameChargeKeys(const std::string& path) {
  return path.starts_with("src/hardware/") || path.starts_with("src/native/") ||
         withoutExtension(path) == "src/power/orderly_exit";
}

// --- The seam

constexpr std::string_view useClock = "time comes from platform/clock.h and platform/run_loop.h";
constexpr std::string_view useHost = "the process and its system are asked through platform/host.h";
constexpr std::string_view useSeam = "a platform is met through the headers in src/platform alone";
constexpr std::string_view noChance = "the daemon leaves nothing to chance";

struct Banned {
  std::string_view name;
  std::string_view instead;
};

constexpr Banned bannedNames[] = {
    {"system_clock", useClock},
    {"steady_clock", useClock},
    {"high_resolution_clock", useClock},
    {"utc_clock", useClock},
    {"clock_gettime", useClock},
    {"gettimeofday", useClock},
    {"timespec_get", useClock},
    {"mach_absolute_time", useClock},
    {"nanosleep", useClock},
    {"clock_nanosleep", useClock},
    {"usleep", useClock},
    {"sleep_for", useClock},
    {"sleep_until", useClock},
    {"setitimer", useClock},
    {"random_device", noChance},
    {"arc4random", noChance},
    {"getenv", useHost},
    {"secure_getenv", useHost},
    {"getpid", useHost},
    {"geteuid", useHost},
    {"getuid", useHost},
    {"temp_directory_path", useHost},
    {"signalfd", useSeam},
    {"eventfd", useSeam},
    {"notify_post", useSeam},
    {"__linux__", useSeam},
    {"__APPLE__", useSeam},
    {"__MACH__", useSeam},
    {"_WIN32", useSeam},
};

// Words that may also name functions of ours, so only calls of the system's functions are reported.
constexpr Banned bannedCalls[] = {
    {"time", useClock},  {"clock", useClock}, {"sleep", useClock},
    {"alarm", useClock}, {"rand", noChance},  {"random", noChance},
};

// Prefixes of a platform's own names. "?" represents a capital and a small letter.
constexpr std::string_view platformPrefixes[] = {
    "IO?",       "IOPS",      "IOPM", "kIO",   "CF?",      "kCF",    "NS?",      "SecCode",
    "dispatch_", "_dispatch", "xpc_", "mach_", "inotify_", "epoll_", "timerfd_", "TARGET_OS_",
};

constexpr std::string_view platformHeaders[] = {
    "IOKit/",      "CoreFoundation/", "Foundation/",   "Security/",     "dispatch/",     "xpc/",
    "mach/",       "notify.h",        "linux/",        "uv.h",          "sys/inotify.h", "sys/epoll.h",
    "sys/event.h", "sys/signalfd.h",  "sys/eventfd.h", "sys/timerfd.h",
};

bool hasPrefix(std::string_view name, std::string_view prefix) {
  if (!prefix.ends_with('?')) return name.starts_with(prefix);
  prefix.remove_suffix(1);
  if (!name.starts_with(prefix) || name.size() < prefix.size() + 2) return false;
  const char capital = name[prefix.size()];
  const char small = name[prefix.size() + 1];
  return capital >= 'A' && capital <= 'Z' && small >= 'a' && small <= 'z';
}

std::optional<std::string_view> whyBanned(std::string_view code, std::string_view name, std::size_t offset) {
  for (const Banned& banned : bannedNames) {
    if (name == banned.name) return banned.instead;
  }
  for (const Banned& banned : bannedCalls) {
    if (name == banned.name && isCalledFreely(code, offset)) return banned.instead;
  }
  for (const std::string_view prefix : platformPrefixes) {
    if (hasPrefix(name, prefix)) return useSeam;
  }
  return std::nullopt;
}

bool isPlatformHeader(const Include& include) {
  return std::any_of(std::begin(platformHeaders), std::end(platformHeaders),
                     [&](std::string_view header) { return include.path.starts_with(header); });
}

// --- The virtual Mac

// Only sources that map paths may use the volume root, which is empty on a real Mac.
bool asksForSimulation(std::string_view name, const std::string& path) {
  if (name == "volumeRoot")
    return path != "src/base/volume_path.cpp" && path != "src/platform/macos/volume_root.cpp";
  return name == "virtual_mac" || name.starts_with("isVirtual") || name.starts_with("isSimulat");
}

const std::string machineVariable = "BRISKO_VIRTUAL_MAC";

}  // namespace

Findings checkOwnHeaderFirst(const Tree& tree) {
  Findings findings;
  for (const auto& [path, text] : tree) {
    if (!isCpp(path) || path.ends_with(".h")) continue;
    const auto header = ownHeader(path, tree);
    if (!header) continue;
    const CppText source = takeApart(text);
    if (!source.includes.empty() && names(source.includes.front(), *header)) continue;
    const std::size_t line = source.includes.empty() ? 1 : lineOf(text, source.includes.front().offset);
    findings.push_back(place(path, line) + "its own header " + *header +
                       " comes first; include it before the others");
  }
  return findings;
}

Findings checkChargeKeys(const Tree& tree) {
  Findings findings;
  for (const auto& [path, text] : tree) {
    if (!isDaemonSource(path) || mayNameChargeKeys(path)) continue;
    for (const Literal& literal : takeApart(text).literals) {
      for (const std::string_view key : chargeKeys) {
        if (literal.text.find(key) == std::string::npos) continue;
        findings.push_back(place(path, lineOf(text, literal.offset)) + "names the charge-control key " +
                           std::string(key) + "; ask hardware/charge_gate.h, which alone knows the keys");
      }
    }
  }
  return findings;
}

Findings checkSeam(const Tree& tree) {
  Findings findings;
  for (const auto& [path, text] : tree) {
    if (!isDaemonSource(path) || inPlatform(path)) continue;
    const CppText source = takeApart(text);
    for (const Include& include : source.includes) {
      if (!isPlatformHeader(include)) continue;
      findings.push_back(place(path, lineOf(text, include.offset)) + "includes " + include.path + "; " +
                         std::string(useSeam));
    }
    forEachName(source.code, [&, &file = path, &bytes = text](std::string_view name, std::size_t offset) {
      const auto instead = whyBanned(source.code, name, offset);
      if (!instead) return;
      findings.push_back(place(file, lineOf(bytes, offset)) + std::string(name) + "; " +
                         std::string(*instead));
    });
  }
  return findings;
}

Findings checkSimulationUnknown(const Tree& tree) {
  const std::string advice =
      "; only sim/ knows whether the machine is a virtual one: decide from what "
      "the seam returns";
  Findings findings;
  for (const auto& [path, text] : tree) {
    if (!isDaemonSource(path)) continue;
    const CppText source = takeApart(text);
    for (const Literal& literal : source.literals) {
      if (literal.text.find(machineVariable) == std::string::npos) continue;
      findings.push_back(place(path, lineOf(text, literal.offset)) + machineVariable + advice);
    }
    // The seam's own headers may declare anything.
    if (folderOf(path) == "src/platform") continue;
    forEachName(source.code, [&, &file = path, &bytes = text](std::string_view name, std::size_t offset) {
      if (!asksForSimulation(name, file)) return;
      findings.push_back(place(file, lineOf(bytes, offset)) + std::string(name) + advice);
    });
  }
  return findings;
}

}  // namespace brisko::test
