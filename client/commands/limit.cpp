#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/setting_keys.h"

namespace brisko::client {
namespace {

std::string limitSentence(std::int64_t limit) {
  if (limit >= 100) return "The limit is 100 %, which means no limit.";
  return "The limit is " + std::to_string(limit) + " %.";
}

}  // namespace

ExitStatus runLimit(const Context& context) {
  const auto& words = context.invocation.words;
  const SettingKey& key = *findSetting("limit");
  if (words.empty()) {
    const State state = readState(context.volume);
    return showSettings(context, state, limitSentence(state.settings.limit),
                        {{"limit", state.settings.limit}});
  }
  const auto value = settingValue(key, words.front());
  if (!value) {
    return misuse(context, "the limit is " + allowedValues(key) + ", not \"" + words.front() +
                               "\"; for example: brisko limit 80");
  }
  return changeAndReport(context, readState(context.volume), {{"limit", *value}},
                         limitSentence(value->get<std::int64_t>()));
}

}  // namespace brisko::client
