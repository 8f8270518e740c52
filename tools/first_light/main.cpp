#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <variant>
#include <vector>

#include <unistd.h>

#include "base/standard_output.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "platform/clock.h"
#include "platform/host.h"
#include "platform/smc_service.h"
#include "tools/first_light/questions.h"

namespace brisko::first_light {

void answer(std::string_view name, std::string_view value) {
  printLine(std::string(name) + ": " + std::string(value));
}

std::string milliseconds(double seconds) { return std::to_string(std::llround(seconds * 1000)) + " ms"; }

void answerAfter(std::string_view name, std::string_view value, double start) {
  answer(name, std::string(value) + " (" + milliseconds(platform::uptime() - start) + ")");
}

namespace {

using Words = std::vector<std::string>;

int askVersion() {
  answer("macOS", std::to_string(platform::osMajor()));
  return 0;
}

// The key's information, which every controller with a battery sensor has. The record's layout is that of
// hardware/smc.
platform::SmcRecord questionAbout(std::string_view key) {
  constexpr std::size_t commandAt = 42;
  constexpr std::uint8_t keyInfo = 9;
  platform::SmcRecord record{};
  // Little-endian, the first character in the high byte.
  for (std::size_t index = 0; index < 4; ++index) record[index] = static_cast<std::uint8_t>(key[3 - index]);
  record[commandAt] = keyInfo;
  return record;
}

std::string hexadecimal(std::uint32_t number) {
  std::array<char, 16> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "0x%08X", number));
  return text.data();
}

int askController() {
  const platform::SmcOpening opening = platform::openSmc();
  if (opening.status != platform::kernelSuccess) {
    answer("status", hexadecimal(opening.status));
    return 1;
  }
  const double start = platform::uptime();
  platform::SmcRecord output{};
  const platform::SmcExchange exchange =
      platform::exchangeSmc(opening.connection, questionAbout("TB0T"), output);
  answer("status", hexadecimal(exchange.status));
  answerAfter("answered", std::to_string(exchange.answered), start);
  return exchange.status == platform::kernelSuccess ? 0 : 1;
}

int askKeys() {
  if (SMCOpen(gConn) != platform::kernelSuccess) return 1;
  const auto detected = ChargeGate::detect(false);
  const auto* gate = std::get_if<ChargeGate>(&detected);
  if (gate == nullptr) return 1;
  answer("mode", chargeLabel(gate->charge));
  answer("charging", gate->chargingIsStopped() ? "stopped" : "allowed");
  answer("adapter", gate->adapterIsCut() ? "cut" : "connected");
  const auto light = readFirstByte("ACLC");
  answer("light", light ? std::to_string(*light) : "none");
  return 0;
}

int usage() {
  printLine("Usage: brisko-first-light version | controller | keys | limit-client main|thread|loop |");
  printLine("                          watches FOLDER | given-back COMMAND… | power");
  return 2;
}

// A call that blocks ends the process with the signal, after the answers so far.
void endIfBlocked(const std::string& question) {
  if (question == "power") return;
  constexpr unsigned int usual = 10;      // seconds
  constexpr unsigned int givenBack = 60;  // more than it waits itself
  ::alarm(question == "given-back" ? givenBack : usual);
}

int ask(const Words& words) {
  if (words.empty()) return usage();
  const std::string& question = words[0];
  endIfBlocked(question);
  if (question == "version" && words.size() == 1) return askVersion();
  if (question == "controller" && words.size() == 1) return askController();
  if (question == "keys" && words.size() == 1) return askKeys();
  if (question == "limit-client" && words.size() == 2) return askLimitClient(words[1]);
  if (question == "watches" && words.size() == 2) return watchRemovals(words[1]);
  if (question == "given-back" && words.size() > 1) return awaitGivenBack({words.begin() + 1, words.end()});
  if (question == "power" && words.size() == 1) return listenForPower();
  return usage();
}

}  // namespace
}  // namespace brisko::first_light

int main(int count, char** arguments) {
  return brisko::first_light::ask(std::vector<std::string>(arguments + 1, arguments + count));
}
