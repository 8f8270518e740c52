#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/nearest_name.h"
#include "client/commands/command.h"
#include "client/doctor/diagnosis.h"
#include "client/doctor/gathering.h"
#include "client/setting_keys.h"
#include "client/settings_writer.h"
#include "platform/host.h"

namespace brisko::client {
namespace {

struct Mending {
  ExitStatus status = ExitStatus::done;
  std::string text = {};
};

// --- Asking for a repair

std::string unknownCheck(const std::string& id) {
  std::vector<std::string> ids;
  for (const Check& check : checks()) ids.emplace_back(check.id);
  const auto nearest = nearestName(id, ids);
  return "unknown check \"" + id + "\"; " +
         (nearest ? "did you mean \"" + *nearest + "\"?"
                  : std::string("brisko doctor names those that found something"));
}

std::string cannotBeMended(const Check& check) {
  return std::string(check.id) + " cannot be fixed from here. " + check.cure;
}

std::string settingsText(const Json& keys) {
  std::string text;
  for (const auto& [name, value] : keys.items())
    text += (text.empty() ? "" : ", ") + name + " is " + valueText(value);
  return text;
}

// The first free name for a file that is moved out of the way.
std::string asideName(const std::string& path) {
  struct stat status {};
  for (int number = 1;; ++number) {
    std::string name = path + ".aside" + (number == 1 ? "" : "-" + std::to_string(number));
    if (::lstat(name.c_str(), &status) != 0) return name;
  }
}

// --- The repairs

Mending moveAside(const Context& context, const Evidence& evidence) {
  const auto number = fatalNumberIn(evidence);
  if (!number) {
    return {ExitStatus::notDone,
            "the file with the number was not found; move the daemon's files away one after the other"};
  }
  const std::string path = context.volume.at(number->path);
  const std::string name = asideName(path);
  if (!isAgreed(context, "Move " + path + " to " + name + "?")) return {ExitStatus::notDone, ""};
  // A link never replaces what is there. One that leads elsewhere is moved itself: macOS would link() its
  // target.
  if (::linkat(AT_FDCWD, path.c_str(), AT_FDCWD, name.c_str(), 0) == 0 && ::unlink(path.c_str()) == 0)
    return {ExitStatus::done, path + " is now " + name + "; the daemon starts without it."};
  const bool forbidden = errno == EACCES || errno == EPERM;
  return {forbidden ? ExitStatus::notAllowed : ExitStatus::notDone,
          path + " cannot be moved: " + std::strerror(errno) +
              (forbidden ? "; run: sudo " + context.commandLine : std::string())};
}

Mending rewriteSettings(const Context& context, const Evidence& evidence) {
  const Json keys = repairedSettings(evidence);
  const std::string sentence = settingsText(keys);
  const std::string others = evidence.state.settingsFile.object ? "the other settings stay"
                                                                : "the other settings become the defaults";
  if (!isAgreed(context, "Write the settings again, so that " + sentence + "? (" + others + ")"))
    return {ExitStatus::notDone, ""};
  const ChangeOutcome outcome =
      changeSettings(evidence.state, keys,
                     {.force = true, .waitSeconds = context.waitSeconds, .commandLine = context.commandLine});
  if (outcome.status != ExitStatus::done) return {outcome.status, outcome.text};
  return {ExitStatus::done,
          "The settings were written: " + sentence + "." + (outcome.text.empty() ? "" : " " + outcome.text)};
}

Mending restartAgain(const Context& context) {
  if (context.volume.isForeign()) return {ExitStatus::misused, anotherVolumesDaemon};
  if (!isAgreed(context, "Restart the daemon? It gives the charge back first."))
    return {ExitStatus::notDone, ""};
  const RestartResult restart = restartDaemon(context);
  return {restart.status, restart.text};
}

Mending mend(const Context& context, const Check& check, const Evidence& evidence) {
  const CheckResult result = check.run(evidence);
  if (result.outcome == Outcome::notLookedAt)
    return {ExitStatus::notDone, std::string(check.id) + " could not look: " + result.text};
  if (result.outcome == Outcome::clear)
    return {ExitStatus::done, std::string(check.id) + " found nothing, so nothing was changed."};
  if (!context.json()) context.output.remark(std::string(check.id) + "  " + result.text);
  switch (check.fix) {
    case Fix::moveAside:
      return moveAside(context, evidence);
    case Fix::rewriteSettings:
      return rewriteSettings(context, evidence);
    case Fix::restart:
      return restartAgain(context);
    case Fix::none:
      break;
  }
  return {ExitStatus::misused, cannotBeMended(check)};
}

ExitStatus mendAndReport(const Context& context, const Check& check) {
  const Mending mending = mend(context, check, gather(context.volume));
  const bool done = mending.status == ExitStatus::done;
  if (context.json()) {
    context.output.json({{"schema", "brisko.fix/1"},
                         {"id", check.id},
                         {"status", static_cast<int>(mending.status)},
                         {"text", mending.text}});
  } else if (done) {
    context.output.remark(mending.text);
  } else if (!mending.text.empty()) {
    context.output.complain(mending.text);
  }
  return mending.status;
}

}  // namespace

ExitStatus runDoctor(const Context& context) {
  if (const auto id = context.invocation.value("--fix")) {
    const Check* check = findCheck(*id);
    if (check == nullptr) return misuse(context, unknownCheck(*id));
    if (check->fix == Fix::none) return misuse(context, cannotBeMended(*check));
    return mendAndReport(context, *check);
  }
  const Diagnosis diagnosis = diagnose(gather(context.volume));
  if (context.json()) {
    context.output.json(jsonOf(diagnosis));
  } else {
    context.output.lines(textOf(diagnosis, context.output.style()));
  }
  return diagnosis.findings.empty() ? ExitStatus::done : ExitStatus::notDone;
}

}  // namespace brisko::client
