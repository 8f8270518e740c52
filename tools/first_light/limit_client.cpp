#include <cstdint>
#include <optional>
#include <thread>

#include "platform/clock.h"
#include "platform/run_loop.h"
#include "platform/smart_charge_client.h"
#include "tools/first_light/questions.h"

namespace brisko::first_light {
namespace {

std::string yesOrNo(std::optional<bool> value) {
  if (!value) return "no answer";
  return *value ? "yes" : "no";
}

// In the order in which the daemon uses it. The limit is never set.
void callEverything() {
  double start = platform::uptime();
  const bool present = platform::smartChargeClassPresent();
  answerAfter("class", present ? "yes" : "no", start);
  if (!present) return;
  start = platform::uptime();
  const bool made = platform::makeSmartChargeClient("brisko");
  answerAfter("client", made ? "yes" : "no", start);
  if (!made) return;
  start = platform::uptime();
  answerAfter("supported", yesOrNo(platform::smartChargeLimitSupported()), start);
  start = platform::uptime();
  answerAfter("enabled", yesOrNo(platform::smartChargeLimitEnabled()), start);
  start = platform::uptime();
  const auto limit = platform::smartChargeLimit();
  answerAfter("limit", limit ? std::to_string(*limit) : "no answer", start);
}

}  // namespace

int askLimitClient(const std::string& caller) {
  if (caller == "main") {
    callEverything();
  } else if (caller == "thread") {
    std::thread(callEverything).join();
  } else if (caller == "loop") {
    platform::postMain([] {
      callEverything();
      platform::stopMain();
    });
    platform::runMain();
  } else {
    return 2;
  }
  answer("end", caller);
  return 0;
}

}  // namespace brisko::first_light
