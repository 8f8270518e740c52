// Settings that a client sends are merged into those of the file, and answered exactly once. The input is the
// file, a zero byte and what is sent; without a zero byte there is no file.
#include <cmath>
#include <nlohmann/json.hpp>

#include "base/options.h"
#include "base/process_flags.h"
#include "base/settings.h"
#include "fuzz/bytes.h"
#include "fuzz/expected_settings.h"
#include "fuzz/fatal.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "fuzz/volume.h"
#include "platform/run_loop.h"
#include "service/control_service.h"

namespace brisko::control_requests_fuzz {
namespace {

struct Answers {
  int count = 0;
  bool done = false;
  std::optional<std::string> error;
};

Json objectOf(std::string_view text) {
  const std::optional<Json> value = parseJson(text);
  return value && value->is_object() ? *value : Json();
}

Json merged(const Json& file, const Json& sent) {
  Json all = file.is_object() ? file : Json::object();
  for (const auto& [key, value] : sent.items()) all[key] = value;
  return all;
}

// True if the process would have ended.
bool ask(std::string_view sent, Answers& answers) {
  controlRequests().applySettings({sent.begin(), sent.end()},
                                  [&answers](bool done, std::optional<std::string> error) {
                                    answers = {answers.count + 1, done, std::move(error)};
                                  });
  platform::postMain(platform::stopMain);
  const bool ended = endsTheProcess(platform::runMain);
  if (ended) platform::runMain();  // runs the remaining work
  return ended;
}

void tryRequest(const std::optional<std::string_view>& file, std::string_view sent) {
  static const Volume volume;
  gDormant = true;  // so that the tick, which has a target of its own, does nothing
  volume.remove(defaultConfigPath);
  if (file) volume.write(defaultConfigPath, *file);
  const std::optional<std::string> before = volume.read(defaultConfigPath);

  Answers answers;
  const bool ended = ask(sent, answers);
  const Json settings = objectOf(sent);
  if (!settings.is_object()) {
    require(!ended && answers.count == 1 && !answers.done && answers.error == "Unreadable settings.");
    return require(volume.read(defaultConfigPath) == before);
  }
  const auto wanted = expectedSettings(merged(objectOf(file.value_or("")), settings));
  require(ended == !wanted);
  if (ended) return require(answers.count == 0 && volume.read(defaultConfigPath) == before);
  require(answers.count == 1 && answers.done && !answers.error);
  if (!std::isfinite(wanted->blinkSeconds)) return require(volume.read(defaultConfigPath) == before);
  require(readConfig(gConfigPath) == wanted);
}

void tryInput(std::string_view input) {
  Bytes bytes(input);
  const std::string_view first = bytes.upTo('\0');
  if (first.size() == input.size()) {
    tryRequest(std::nullopt, first);
  } else {
    tryRequest(first, bytes.rest());
  }
}

const FuzzTarget target("control_requests", tryInput);

}  // namespace
}  // namespace brisko::control_requests_fuzz
