// Texts that users give to the virtual Mac's tools and the lab, one per line: a setting, a key with its
// bytes, a time, a date.
#include <array>
#include <cmath>
#include <ctime>

#include "fuzz/bytes.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "sim/machine/change_arguments.h"
#include "sim/machine/faults.h"
#include "sim/machine/models.h"
#include "sim/scenario/timing.h"

namespace brisko::words_fuzz {
namespace {

using virtual_mac::Change;
using virtual_mac::Machine;

void tryOnMachine(const Change& change) {
  static const Machine fresh = virtual_mac::makeMachine(virtual_mac::models().front(), {});
  Machine machine = fresh;
  virtual_mac::apply(machine, change);
  virtual_mac::advance(machine, machine.now + 5);
  const double level = virtual_mac::level(machine);
  require(level >= 0 && level <= 100);
  require(std::isfinite(machine.battery.temperatureC));
}

void trySetting(const std::string& line) {
  std::string reason;
  const auto change = vmac::parseSetting(line, reason);
  require(change.has_value() == reason.empty());
  if (!change) return;
  const virtual_mac::Fault* fault = virtual_mac::findFault(line.substr(0, line.find('=')));
  require(fault != nullptr && fault->change.kind == change->kind);
  require(change->number >= fault->range().least && change->number <= fault->range().most);
  tryOnMachine(*change);
}

std::string hexOf(const Change& change) {
  std::string text;
  for (std::size_t at = 0; at < change.byteCount; ++at) {
    constexpr std::string_view digits = "0123456789abcdef";
    text += digits[change.bytes[at] / 16];
    text += digits[change.bytes[at] % 16];
  }
  return text;
}

std::string lowered(std::string text) {
  for (char& letter : text) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return text;
}

void tryKeyWrite(const std::string& line) {
  std::string reason;
  const auto change = vmac::parseKeyWrite(line, reason);
  require(change.has_value() == reason.empty());
  if (!change) return;
  require(line.size() > 5 && line[4] == '=');
  require(change->key == virtual_mac::keyCode(line.substr(0, 4)));
  require(hexOf(*change) == lowered(line.substr(5)));
  tryOnMachine(*change);
}

void tryTiming(const std::string& line) {
  const auto timing = lab::parseTiming(line);
  if (!timing) return;
  require(std::isfinite(timing->seconds) && timing->seconds >= 0);
  require(!timing->timeOfDay || (*timing->timeOfDay >= 0 && *timing->timeOfDay < 86400));
  require(timing->timeOfDay || timing->seconds > 0);
  constexpr double now = 1772352000.25;
  const double wait = lab::secondsUntil(*timing, now);
  require(wait > 0 && wait <= timing->seconds + 86400);
}

// A date must equal the calendar date of its time.
void tryDate(const std::string& line) {
  const auto moment = lab::parseDate(line);
  if (!moment) return;
  const auto seconds = static_cast<std::time_t>(*moment);
  std::tm parts{};
  require(::gmtime_r(&seconds, &parts) != nullptr);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  require(std::string_view(text.data(), length).substr(0, line.size()) == line);
}

void tryInput(std::string_view input) {
  Bytes bytes(input);
  while (!bytes.atEnd()) {
    const std::string line(bytes.upTo('\n'));
    trySetting(line);
    tryKeyWrite(line);
    tryTiming(line);
    tryDate(line);
  }
}

const FuzzTarget target("words", tryInput);

}  // namespace
}  // namespace brisko::words_fuzz
