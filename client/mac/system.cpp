#include "client/system.h"

#include <string>
#include <utility>
#include <vector>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/ps/IOPowerSources.h>
#include <Security/Security.h>
#include <sys/sysctl.h>
#include <sys/time.h>

#include "client/child_process.h"
#include "client/launchd_text.h"
#include "platform/macos/cf_value.h"
#include "platform/macos/owned.h"

namespace brisko::client {
namespace {

using platform::Owned;

// None also if the Mac has not slept since its start.
std::optional<double> timeOf(const char* name) {
  timeval moment{};
  std::size_t size = sizeof moment;
  if (::sysctlbyname(name, &moment, &size, nullptr, 0) != 0 || moment.tv_sec == 0) return std::nullopt;
  return static_cast<double>(moment.tv_sec) + static_cast<double>(moment.tv_usec) / 1e6;
}

std::optional<double> adapterWatts() {
  const Owned<CFDictionaryRef> details(IOPSCopyExternalPowerAdapterDetails());
  if (!details) return std::nullopt;
  const platform::Value watts = platform::valueOf(CFDictionaryGetValue(details.get(), CFSTR("Watts")));
  const auto number = watts.asInteger();
  if (!number || *number <= 0) return std::nullopt;
  return static_cast<double>(*number);
}

// Runs a command, given by its absolute path.
CommandResult run(std::vector<std::string> words) {
  constexpr double longest = 1;  // seconds
  return runTogether({{std::move(words), longest}}).front();
}

// What it printed; nothing when it failed.
std::string outputOf(std::vector<std::string> words) {
  CommandResult result = run(std::move(words));
  return result.succeeded() ? std::move(result.output) : std::string();
}

}  // namespace

SystemFacts readSystem() {
  return {.adapterWatts = adapterWatts(),
          .bootedAt = timeOf("kern.boottime"),
          .wokeAt = timeOf("kern.waketime"),
          .job = jobIn(outputOf({"/bin/launchctl", "print", "system/com.brisko.daemon"}))};
}

std::optional<std::string> whyUnusable() { return std::nullopt; }

std::optional<std::string> teamThatSigned(const std::string& path) {
  const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()),
      false));
  Owned<SecStaticCodeRef> code;
  if (!url || SecStaticCodeCreateWithPath(url.get(), kSecCSDefaultFlags, code.out()) != errSecSuccess)
    return std::nullopt;
  Owned<CFDictionaryRef> information;
  if (SecCodeCopySigningInformation(code.get(), kSecCSSigningInformation, information.out()) != errSecSuccess)
    return std::nullopt;
  const platform::Value team =
      platform::valueOf(CFDictionaryGetValue(information.get(), kSecCodeInfoTeamIdentifier));
  const std::string* text = team.asText();
  return text == nullptr ? std::string() : *text;
}

// Never "kickstart -k": that kills the daemon before it can give the charge back.
bool endDaemon(std::string& reason) {
  if (run({"/bin/launchctl", "kill", "SIGTERM", "system/com.brisko.daemon"}).succeeded()) return true;
  reason = "launchd does not run the daemon";
  return false;
}

std::optional<std::string> modelOfMac() {
  std::array<char, 64> name{};
  std::size_t size = name.size() - 1;
  if (::sysctlbyname("hw.model", name.data(), &size, nullptr, 0) != 0) return std::nullopt;
  return std::string(name.data());
}

std::vector<std::string> commandLineFor(ReportCommand command, const std::string& daemon) {
  switch (command) {
    case ReportCommand::job:
      return {
          "/usr/bin/plutil", "-convert", "json", "-o", "-", "/Library/LaunchDaemons/com.brisko.daemon.plist"};
    case ReportCommand::signature:
      return {"/usr/bin/codesign", "-dv", daemon};
    case ReportCommand::powerLog:
      return {"/usr/bin/pmset", "-g", "log"};
    case ReportCommand::powerSchedule:
      return {"/usr/bin/pmset", "-g", "sched"};
  }
  return {};
}

bool openPage(const std::string& path, std::string& reason) {
  return runProgram({"/usr/bin/open", path}, reason);
}

}  // namespace brisko::client
