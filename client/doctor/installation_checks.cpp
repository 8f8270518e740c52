// What an installation, its copy or somebody's hand may have left wrong.
#include <algorithm>

#include "client/doctor/checks.h"
#include "client/why.h"

namespace brisko::client {
namespace {

bool isKnownToLaunchd(const Evidence& evidence) {
  return evidence.state.system.job && evidence.state.system.job->installed;
}

// Killed by the kernel before it ran, which a broken signature causes.
bool wasKilledAtItsStart(const Evidence& evidence) {
  const auto& job = evidence.state.system.job;
  return job && !job->processId && job->lastSignal.find("Killed") != std::string::npos;
}

// Another check names why the daemon cannot keep running.
bool endIsExplained(const Evidence& evidence) {
  const auto findsIt = [&evidence](CheckResult (*check)(const Evidence&)) {
    return check(evidence).outcome == Outcome::found;
  };
  return findsIt(checkNumbers) || findsIt(checkKnownMac) || findsIt(checkController) ||
         findsIt(checkSignature) || findsIt(checkQuarantine) || findsIt(checkProcessor);
}

// launchd was about to start it.
bool startedMeanwhile(const Evidence& evidence) { return evidence.laterJob && evidence.laterJob->processId; }

std::string octal(std::uint32_t mode) {
  std::string text;
  for (unsigned shift = 9; shift > 0; shift -= 3) text += static_cast<char>('0' + (mode >> (shift - 3) & 7U));
  return text;
}

}  // namespace

bool daemonRuns(const Evidence& evidence) {
  return evidence.state.system.job && evidence.state.system.job->processId;
}

bool isSettling(const Evidence& evidence) {
  constexpr double startSeconds = 90;
  const SystemFacts& system = evidence.state.system;
  const double up = evidence.state.now - system.bootedAt.value_or(0);
  return system.asleep || (system.bootedAt && up >= 0 && up < startSeconds);
}

CheckResult checkInstalled(const Evidence& evidence) {
  if (!evidence.installed.value) return notLookedAt(evidence.installed.whyNot);
  const InstalledFiles& files = *evidence.installed.value;
  if (files.program || files.job || isKnownToLaunchd(evidence) || daemonRuns(evidence)) return clear();
  return found("The daemon is not installed, so nothing limits the charge.");
}

CheckResult checkInstalledWhole(const Evidence& evidence) {
  if (!evidence.installed.value) return notLookedAt(evidence.installed.whyNot);
  const InstalledFiles& files = *evidence.installed.value;
  if (files.job && !files.program) return found("The job is installed, but not the program that it starts.");
  if (files.program && !files.job) return found("The program is installed, but not the job that starts it.");
  if (!files.unfinished.empty())
    return found("An installation was interrupted: it left " + files.unfinished.front() + ".");
  return clear();
}

CheckResult checkJobLoaded(const Evidence& evidence) {
  const auto& job = evidence.state.system.job;
  if (evidence.state.volume.isForeign()) return notLookedAt(onAnotherVolume);
  if (!job) return notLookedAt(launchdSilent);
  if (!job->installed) {
    const bool hasJobFile = evidence.installed.value && evidence.installed.value->job;
    if (!hasJobFile || evidence.jobDisabled.value == true || evidence.backgroundAllowed.value == false)
      return clear();
    return found("launchd does not know the job, so nothing limits the charge.");
  }
  if (job->processId || isSettling(evidence) || startedMeanwhile(evidence) || endIsExplained(evidence))
    return clear();
  const std::string signal = job->lastSignal.empty() ? "" : " It was last ended by: " + job->lastSignal + ".";
  return found("The job is loaded, but the daemon does not run, so nothing limits the charge." + signal,
               "sudo launchctl kickstart -k system/com.brisko.daemon");
}

CheckResult checkJobEnabled(const Evidence& evidence) {
  if (!evidence.jobDisabled.value) return notLookedAt(evidence.jobDisabled.whyNot);
  return *evidence.jobDisabled.value
             ? found("The job is disabled, so the daemon does not start with the Mac.")
             : clear();
}

CheckResult checkLoginItems(const Evidence& evidence) {
  if (!evidence.backgroundAllowed.value) return notLookedAt(evidence.backgroundAllowed.whyNot);
  if (*evidence.backgroundAllowed.value || daemonRuns(evidence)) return clear();
  return found("The daemon is switched off in System Settings, so macOS does not start it.");
}

CheckResult checkSignature(const Evidence& evidence) {
  const auto& signature = evidence.signature;
  if (signature.value && !signature.value->valid)
    return found("The program's signature is broken (" + signature.value->reason +
                 "), so macOS ends it at every start.");
  if (signature.value) return clear();
  if (wasKilledAtItsStart(evidence))
    return found("macOS killed the program at its start; its signature was not looked at (" +
                 signature.whyNot + ").");
  return notLookedAt(signature.whyNot);
}

CheckResult checkQuarantine(const Evidence& evidence) {
  if (!evidence.quarantined.value) return notLookedAt(evidence.quarantined.whyNot);
  return *evidence.quarantined.value ? found("The program is in quarantine, so macOS refuses to start it.")
                                     : clear();
}

CheckResult checkProcessor(const Evidence& evidence) {
  if (!evidence.appleSilicon.value) return notLookedAt(evidence.appleSilicon.whyNot);
  return *evidence.appleSilicon.value ? clear()
                                      : found("This Mac has no Apple silicon, which the daemon needs.");
}

CheckResult checkRights(const Evidence& evidence) {
  constexpr std::uint32_t writableByOthers = 022;
  if (!evidence.rights.value) return notLookedAt(evidence.rights.whyNot);
  const auto isOwned = [](const FileRights& file) {
    return file.owner == 0 && (file.group == 0 || !file.fromInstaller);
  };
  const auto wrong = std::find_if(
      evidence.rights.value->begin(), evidence.rights.value->end(),
      [&](const FileRights& file) { return !isOwned(file) || (file.mode & writableByOthers) != 0; });
  if (wrong == evidence.rights.value->end()) return clear();
  if (!isOwned(*wrong))
    return found(wrong->path + " does not belong to root, so its owner could run programs as root.");
  return found(wrong->path + " can be changed by others than root (mode " + octal(wrong->mode) +
               "), who could run programs as root.");
}

CheckResult checkVersion(const Evidence& evidence) {
  if (!evidence.installedVersion.value) return notLookedAt(evidence.installedVersion.whyNot);
  const auto& status = evidence.state.status;
  if (!status || !daemonRuns(evidence)) return clear();
  if (!status->daemonVersion.empty() && status->daemonVersion != *evidence.installedVersion.value)
    return found("Version " + status->daemonVersion + " runs, but " + *evidence.installedVersion.value +
                 " is installed.");
  const auto& changed = evidence.programChangedAt.value;
  if (changed && status->startedAt && *changed > *status->startedAt)
    return found("The program was replaced after the daemon started, so the old one still runs.");
  return clear();
}

}  // namespace brisko::client
