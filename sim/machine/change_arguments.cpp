#include "sim/machine/change_arguments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <tuple>

#include "sim/machine/faults.h"

namespace brisko::vmac {
namespace {

using virtual_mac::Change;
using virtual_mac::Fault;

std::optional<double> parseNumber(std::string_view text) {
  // strtod() accepts more than plain numbers: blanks, a plus sign, other bases, words.
  const bool isPlain = text.find_first_not_of("0123456789.eE+-") == text.npos;
  if (text.empty() || !isPlain || text.front() == '+') return std::nullopt;
  const std::string digits(text);
  char* end = nullptr;
  const double number = std::strtod(digits.c_str(), &end);
  if (*end != '\0' || !std::isfinite(number)) return std::nullopt;
  return number;
}

std::string plain(double number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.15g", number);
  return text.data();
}

std::string rangeText(const Fault& fault) {
  const virtual_mac::Range& range = fault.range();
  return "a number from " + plain(range.least) + " to " + plain(range.most) + " (" + std::string(range.unit) +
         ")";
}

std::optional<std::uint8_t> hexByte(std::string_view digits) {
  std::uint8_t byte = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
  if (error != std::errc{} || end != digits.data() + digits.size()) return std::nullopt;
  return byte;
}

bool takeBytes(std::string_view text, Change& change) {
  if (text.size() % 2 != 0 || text.size() > 2 * change.bytes.size()) return false;
  for (std::size_t at = 0; at < text.size(); at += 2) {
    const auto byte = hexByte(text.substr(at, 2));
    if (!byte) return false;
    change.bytes[change.byteCount++] = *byte;
  }
  return true;
}

// Whether exactly the fault's arguments were given; otherwise sets the reason.
bool hasRequiredArguments(const Fault& fault, const FaultArguments& arguments, std::string& reason) {
  const std::array<std::tuple<bool, const std::string*, const char*>, 4> parts{{
      {fault.asks.key, &arguments.key, "a key"},
      {fault.asks.number, &arguments.number, "a number"},
      {fault.asks.bytes, &arguments.bytes, "bytes"},
      {fault.asks.text, &arguments.property, "a property"},
  }};
  for (const auto& [asked, text, what] : parts) {
    if (asked && text->empty()) reason = std::string(fault.name) + " needs " + what;
    if (!asked && !text->empty()) reason = std::string(fault.name) + " takes no " + std::string(what);
    if (asked == text->empty()) return false;
  }
  return true;
}

bool takeNumber(const Fault& fault, const std::string& text, Change& change, std::string& reason) {
  const auto number = parseNumber(text);
  if (number && *number >= fault.range().least && *number <= fault.range().most) {
    change.number = *number;
    return true;
  }
  reason = std::string(fault.name) + " takes " + rangeText(fault) + ", not \"" + text + "\"";
  return false;
}

bool takeKey(const std::string& name, Change& change, std::string& reason) {
  if (name.size() == 4) {
    change.key = virtual_mac::keyCode(name);
    return true;
  }
  reason = std::string("the name of a key has four characters, not \"") + name + "\"";
  return false;
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

bool asksNumberAlone(const Fault& fault) {
  return fault.asks.number && !fault.asks.key && !fault.asks.bytes && !fault.asks.text;
}

std::string asksText(const Fault& fault) {
  std::string text;
  if (fault.asks.key) text += " --key KEY";
  if (fault.asks.number) text += " --number N (" + std::string(fault.range().unit) + ")";
  if (fault.asks.bytes) text += " --bytes HEX";
  if (fault.asks.text) text += " --property NAME";
  return text;
}

}  // namespace

std::optional<Change> changeOf(std::string_view name, const FaultArguments& arguments, std::string& reason) {
  const Fault* fault = virtual_mac::findFault(name);
  if (fault == nullptr) {
    reason = std::string("there is no fault \"") + std::string(name) +
             "\"; \"brisko-vmac faults\" lists what can happen";
    return std::nullopt;
  }
  if (!hasRequiredArguments(*fault, arguments, reason)) return std::nullopt;
  Change change = fault->change;
  if (fault->asks.key && !takeKey(arguments.key, change, reason)) return std::nullopt;
  if (fault->asks.number && !takeNumber(*fault, arguments.number, change, reason)) return std::nullopt;
  if (fault->asks.bytes && !takeBytes(arguments.bytes, change)) {
    reason = std::string("\"") + arguments.bytes + "\" is not up to 32 bytes in hexadecimal";
    return std::nullopt;
  }
  if (fault->asks.text) change.text = virtual_mac::shortText(arguments.property);
  return change;
}

std::optional<Change> parseSetting(std::string_view text, std::string& reason) {
  const std::size_t equals = text.find('=');
  const std::string_view name = text.substr(0, equals);
  const Fault* fault = virtual_mac::findFault(name);
  if (fault == nullptr || !asksNumberAlone(*fault)) {
    reason = std::string("there is nothing called \"") + std::string(name) + "\" to set";
    return std::nullopt;
  }
  FaultArguments arguments;
  if (equals != std::string_view::npos) arguments.number = text.substr(equals + 1);
  if (name == "limit" && arguments.number == "off")
    arguments.number = "100";  // as the settings of macOS call it
  return changeOf(name, arguments, reason);
}

std::optional<Change> parseKeyWrite(std::string_view text, std::string& reason) {
  FaultArguments arguments;
  arguments.key = text.substr(0, 4);
  if (text.size() > 5 && text[4] == '=') arguments.bytes = text.substr(5);
  auto change = changeOf("key-written", arguments, reason);
  if (!change)
    reason = std::string("\"") + std::string(text) + "\" is not of the form KEY=HEX, e.g. CHTE=01000000";
  return change;
}

std::string faultList() {
  std::string text;
  for (const Fault& fault : virtual_mac::faults()) {
    text += std::string(fault.name) + asksText(fault) + "\n    " + std::string(fault.reason) + "\n";
  }
  return text;
}

std::string settingList() {
  std::string text = "What can be set:\n";
  for (const Fault& fault : virtual_mac::faults()) {
    if (asksNumberAlone(fault)) text += "  " + padded(std::string(fault.name), 20) + rangeText(fault) + "\n";
  }
  return text;
}

}  // namespace brisko::vmac
