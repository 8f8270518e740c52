#include "client/doctor/command_text.h"
#include "client/doctor/gathering.h"

namespace brisko::client {
namespace {

constexpr double usualSeconds = 1.5;
// These ask other services, which may take a while to answer.
constexpr double longSeconds = 1.8;

// In the order of the list of commands.
struct Place {
  enum Index : std::size_t {
    disabledJobs,
    backgroundItems,
    jobFile,
    signature,
    quarantine,
    processor,
    processes,
    controller,
    profiles,
    version,
    count,
  };
};

// Without root some would ask for a password, or show less than half; they are left out.
std::vector<TimedCommand> commands(bool asRoot) {
  std::vector<TimedCommand> all(Place::count);
  all[Place::disabledJobs] = {{"/bin/launchctl", "print-disabled", "system"}, usualSeconds};
  all[Place::jobFile] = {{"/usr/bin/plutil", "-convert", "json", "-o", "-", installedJob}, usualSeconds};
  all[Place::signature] = {{"/usr/bin/codesign", "--verify", "--strict", installedProgram}, longSeconds};
  all[Place::quarantine] = {{"/usr/bin/xattr", "-p", "com.apple.quarantine", installedProgram}, usualSeconds};
  all[Place::processor] = {{"/usr/sbin/sysctl", "-n", "hw.optional.arm64"}, usualSeconds};
  all[Place::processes] = {{"/bin/ps", "-axo", "pid=,ppid=,comm="}, usualSeconds};
  all[Place::controller] = {{"/usr/sbin/ioreg", "-r", "-c", "AppleSMC", "-l", "-w0"}, usualSeconds};
  all[Place::version] = {{installedProgram, "--version"}, usualSeconds};
  if (!asRoot) return all;
  all[Place::backgroundItems] = {{"/usr/bin/sfltool", "dumpbtm"}, longSeconds};
  all[Place::profiles] = {{"/usr/bin/profiles", "show"}, longSeconds};
  return all;
}

// What a command that has to succeed printed.
template <typename Read>
auto outputOf(const CommandResult& result, const Read& read) -> Gathered<decltype(read(result.output))> {
  if (result.succeeded()) return gathered(read(result.output));
  return notGathered<decltype(read(result.output))>(clauseOf(result.end));
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

Gathered<SignatureVerdict> verdictOf(const CommandResult& result) {
  if (result.end != CommandEnd::exited) return notGathered<SignatureVerdict>(clauseOf(result.end));
  std::string reason = firstLine(result.output);
  const std::string path = std::string(installedProgram) + ": ";
  if (reason.starts_with(path)) reason.erase(0, path.size());
  return gathered(SignatureVerdict{.valid = result.status == 0, .reason = std::move(reason)});
}

// An attribute that is not there is an error of the command.
Gathered<bool> quarantineOf(const CommandResult& result) {
  if (result.end != CommandEnd::exited) return notGathered<bool>(clauseOf(result.end));
  return gathered(result.status == 0);
}

// A Mac with another processor does not know the name.
Gathered<bool> processorOf(const CommandResult& result) {
  if (result.end != CommandEnd::exited) return notGathered<bool>(clauseOf(result.end));
  return gathered(result.status == 0 && firstLine(result.output) == "1");
}

Gathered<bool> backgroundOf(const CommandResult& result, bool asRoot) {
  if (!asRoot) return notGathered<bool>(needsRoot);
  if (!result.succeeded()) return notGathered<bool>(clauseOf(result.end));
  const auto allowed = backgroundAllowedIn(result.output);
  return allowed ? gathered(*allowed) : notGathered<bool>("macOS has no entry for it");
}

Gathered<std::vector<std::string>> argumentsOfFile(const CommandResult& result) {
  const auto arguments = result.succeeded() ? jobArgumentsInFile(result.output) : std::nullopt;
  if (arguments) return gathered(*arguments);
  return notGathered<std::vector<std::string>>(clauseOf(result.end));
}

Gathered<std::int64_t> profilesOf(const CommandResult& result, bool asRoot) {
  if (!asRoot) return notGathered<std::int64_t>(needsRoot);
  return outputOf(result, profilesIn);
}

void gatherProgram(const std::vector<CommandResult>& results, Evidence& evidence) {
  const bool isThere = evidence.installed.value && evidence.installed.value->program;
  if (!isThere) {
    const std::string whyNot = "the program is not installed";
    evidence.signature = notGathered<SignatureVerdict>(whyNot);
    evidence.quarantined = notGathered<bool>(whyNot);
    evidence.installedVersion = notGathered<std::string>(whyNot);
    return;
  }
  evidence.signature = verdictOf(results[Place::signature]);
  evidence.quarantined = quarantineOf(results[Place::quarantine]);
  evidence.installedVersion = outputOf(results[Place::version], firstLine);
}

}  // namespace

void gatherFromCommands(Evidence& evidence, bool asRoot, const CommandRunner& run) {
  const std::vector<CommandResult> results = run(commands(asRoot));
  gatherProgram(results, evidence);
  evidence.jobDisabled = outputOf(results[Place::disabledJobs], isDisabledIn);
  evidence.backgroundAllowed = backgroundOf(results[Place::backgroundItems], asRoot);
  evidence.jobFileArguments = argumentsOfFile(results[Place::jobFile]);
  evidence.appleSilicon = processorOf(results[Place::processor]);
  evidence.profiles = profilesOf(results[Place::profiles], asRoot);
  const auto running = outputOf(results[Place::processes], processesIn);
  if (!running.value) {
    evidence.daemons = notGathered<std::vector<DaemonProcess>>(running.whyNot);
    evidence.otherPrograms = notGathered<std::vector<std::string>>(running.whyNot);
    return;
  }
  evidence.daemons = gathered(daemonsIn(*running.value));
  evidence.otherPrograms = outputOf(results[Place::controller], [&running](const std::string& entries) {
    return otherProgramsIn(entries, *running.value);
  });
}

}  // namespace brisko::client
