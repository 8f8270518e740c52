#include <variant>

#include <sys/wait.h>
#include <unistd.h>

#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "platform/clock.h"
#include "tools/first_light/questions.h"

namespace brisko::first_light {
namespace {

constexpr double patience = 30;  // seconds
constexpr double interval = 0.002;

pid_t start(const std::vector<std::string>& command) {
  std::vector<char*> words;
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::execvp(words[0], words.data());
  ::_exit(127);
}

bool isGivenBack(const ChargeGate& gate) { return !gate.chargingIsStopped() && !gate.adapterIsCut(); }

}  // namespace

int awaitGivenBack(const std::vector<std::string>& command) {
  if (SMCOpen(gConn) != platform::kernelSuccess) return 1;
  const auto detected = ChargeGate::detect(false);
  const auto* gate = std::get_if<ChargeGate>(&detected);
  if (gate == nullptr) return 1;
  answer("before", isGivenBack(*gate) ? "given back" : "held");
  const double begun = platform::uptime();
  const pid_t child = start(command);
  if (child < 0) return 1;
  bool givenBack = isGivenBack(*gate);
  while (!givenBack && platform::uptime() < begun + patience) {
    platform::pause(interval);
    givenBack = isGivenBack(*gate);
  }
  if (givenBack) answer("given back", milliseconds(platform::uptime() - begun));
  static_cast<void>(::waitpid(child, nullptr, 0));
  return givenBack ? 0 : 1;
}

}  // namespace brisko::first_light
