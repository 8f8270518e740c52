#include "client/commands/command.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include "client/setting_keys.h"
#include "client/settings_writer.h"

namespace brisko::client {
namespace {

const char* nameOf(Way way) {
  switch (way) {
    case Way::service:
      return "service";
    case Way::file:
      return "file";
    case Way::none:
      break;
  }
  return "none";
}

}  // namespace

ExitStatus misuse(const Context& context, const std::string& text) {
  context.output.complain(text);
  return ExitStatus::misused;
}

ExitStatus changeAndReport(const Context& context, const State& state, const Json& keys,
                           const std::string& sentence) {
  const ChangeOutcome outcome = changeSettings(state, keys,
                                               {.force = context.invocation.has("--force"),
                                                .waitSeconds = context.waitSeconds,
                                                .commandLine = context.commandLine});
  const bool done = outcome.status == ExitStatus::done;
  const std::string text = !done                  ? outcome.text
                           : outcome.text.empty() ? sentence
                                                  : sentence + " " + outcome.text;
  if (context.json()) {
    context.output.json({{"schema", "brisko.change/1"},
                         {"asked", keys},
                         {"way", nameOf(outcome.way)},
                         {"written", outcome.way != Way::none},
                         {"confirmed", outcome.confirmed},
                         {"status", static_cast<int>(outcome.status)},
                         {"text", text}});
  } else if (done) {
    context.output.remark(text);
  } else {
    context.output.complain(text);
  }
  return outcome.status;
}

void complainOfSettings(const Context& context, const State& state) {
  if (!state.settingsFile.flaw) return;
  context.output.complain(state.settingsFile.path + " is not usable: " + *state.settingsFile.flaw +
                          "; the daemon uses its defaults");
}

ExitStatus showSettings(const Context& context, const State& state, const std::string& text,
                        const Json& values) {
  complainOfSettings(context, state);
  if (context.json()) {
    context.output.json({{"schema", "brisko.settings/1"},
                         {"file", state.settingsFile.object ? "read"
                                  : state.settingsFile.flaw ? "unusable"
                                                            : "missing"},
                         {"settings", values}});
  } else {
    context.output.line(text);
  }
  return state.settingsFile.flaw ? ExitStatus::notDone : ExitStatus::done;
}

ExitStatus runSwitch(const Context& context, const Switch& setting) {
  const auto& words = context.invocation.words;
  if (words.empty()) {
    const State state = readState(context.volume);
    const Json value = configObject(state.settings).at(setting.key);
    return showSettings(context, state, setting.sentence(value.get<bool>()), {{setting.key, value}});
  }
  const auto value = settingValue(*findSetting(setting.key), words.front());
  if (!value) {
    const std::string& command = context.invocation.command;
    return misuse(context, "write \"brisko " + command + " on\" or \"brisko " + command + " off\"");
  }
  const State state = readState(context.volume);
  const bool on = value->get<bool>();
  if (on && state.status && !((*state.status).*setting.supported)) {
    context.output.complain(setting.unsupported);
    return ExitStatus::notDone;
  }
  return changeAndReport(context, state, {{setting.key, on}}, setting.sentence(on));
}

bool isAgreed(const Context& context, const std::string& question) {
  if (context.invocation.has("--yes")) return true;
  if (::isatty(STDIN_FILENO) == 0 || ::isatty(STDOUT_FILENO) == 0) {
    context.output.complain("cannot ask without a terminal; add --yes");
    return false;
  }
  context.output.raw(question + " [y/N] ");
  if (!context.output.flush()) return false;
  const int answer = std::getchar();
  const bool agreed = answer == 'y' || answer == 'Y';
  if (!agreed) context.output.complain("nothing was changed");
  return agreed;
}

}  // namespace brisko::client
