#include "support/virtual_mac.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "base/log.h"
#include "base/options.h"
#include "sim/machine/client_requirement.h"
#include "sim/machine/control_requests.h"
#include "sim/process/log_lines.h"
#include "support/files.h"
#include "support/record_schemas.h"

namespace brisko::test {

namespace {

using virtual_mac::Change;
using virtual_mac::ChangeKind;

const virtual_mac::Model& modelNamed(std::string_view name) {
  const virtual_mac::Model* model = virtual_mac::findModel(name);
  if (model == nullptr) throw std::invalid_argument("no model is named " + std::string(name));
  return *model;
}

}  // namespace

VirtualMac::VirtualMac(const virtual_mac::MachineOptions& options, std::string_view model)
    : Simulation({.machine = virtual_mac::makeMachine(modelNamed(model), options),
                  .keptAlive = false,
                  .started = false}) {}

VirtualMac::~VirtualMac() { checkRecords(root()); }

VirtualMac& VirtualMac::change(const Change& change) {
  Simulation::change(change);
  return *this;
}

VirtualMac& VirtualMac::plugIn(double watts) { return number(ChangeKind::plug, watts); }
VirtualMac& VirtualMac::unplug() { return change({.kind = ChangeKind::unplug}); }
VirtualMac& VirtualMac::charge(double percent) { return number(ChangeKind::charge, percent); }
VirtualMac& VirtualMac::temperature(double celsius) { return number(ChangeKind::temperature, celsius); }

VirtualMac& VirtualMac::number(ChangeKind kind, double number) {
  return change({.kind = kind, .number = number});
}

VirtualMac& VirtualMac::keyBytes(std::string_view key, std::vector<std::uint8_t> bytes) {
  Change change{.kind = ChangeKind::keyBytes, .key = virtual_mac::keyCode(key)};
  change.byteCount = static_cast<std::uint32_t>(std::min(bytes.size(), change.bytes.size()));
  std::copy_n(bytes.begin(), change.byteCount, change.bytes.begin());
  return this->change(change);
}

VirtualMac& VirtualMac::keyOnWrite(std::string_view key, virtual_mac::OnWrite behaviour,
                                   std::uint32_t status) {
  return change({.kind = ChangeKind::keyOnWrite,
                 .key = virtual_mac::keyCode(key),
                 .number = static_cast<double>(behaviour),
                 .status = status});
}

VirtualMac& VirtualMac::removeKey(std::string_view key) {
  return change({.kind = ChangeKind::keyPresent, .key = virtual_mac::keyCode(key), .number = 0});
}

VirtualMac& VirtualMac::property(std::string_view name, virtual_mac::PropertyFault fault) {
  Change change{.kind = ChangeKind::property, .number = static_cast<double>(fault)};
  change.text = virtual_mac::shortText(name);
  return this->change(change);
}

VirtualMac& VirtualMac::later(double seconds, const Change& change) {
  const auto update = store().update();
  if (!virtual_mac::plan(update.machine(), update.machine().now + seconds, change)) {
    throw std::length_error("no more changes can be planned");
  }
  return *this;
}

std::uint64_t VirtualMac::ask(virtual_mac::RequestKind kind, std::string_view client) {
  return Simulation::ask(kind, virtual_mac::clientNumber(client));
}

std::uint64_t VirtualMac::apply(std::string_view settings, std::string_view client) {
  return Simulation::ask(virtual_mac::RequestKind::applySettings, virtual_mac::clientNumber(client),
                         settings);
}

virtual_mac::ClientRequest VirtualMac::request(std::uint64_t number) const {
  const virtual_mac::ClientRequest* found = virtual_mac::findRequest(machine(), number);
  if (found == nullptr) throw std::invalid_argument("no such request");
  return *found;
}

VirtualMac& VirtualMac::pass(double seconds) {
  advance(seconds);
  return *this;
}

void VirtualMac::write(std::string_view unmapped, std::string_view text) {
  notePut(path(unmapped), text);
  if (!Simulation::write(unmapped, text)) throw std::runtime_error("cannot make " + path(unmapped));
}

std::string VirtualMac::read(std::string_view unmapped) const {
  return Simulation::read(unmapped).value_or("");
}

bool VirtualMac::exists(std::string_view unmapped) const { return test::exists(path(unmapped)); }

void VirtualMac::settings(std::string_view json) { write(defaultConfigPath, json); }

std::vector<std::string> VirtualMac::logLines() const {
  std::vector<std::string> lines = stampedLogLines();
  for (std::string& line : lines) line = sim::withoutStamp(line);
  return lines;
}

std::vector<std::string> VirtualMac::newLogLines() {
  std::vector<std::string> lines = logLines();
  const std::size_t seen = std::exchange(linesSeen_, lines.size());
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(std::min(seen, lines.size())));
  return lines;
}

std::vector<std::string> VirtualMac::stampedLogLines() const {
  return sim::linesOf(read(std::string(LogFile::defaultDirectory) + "/daemon.log"));
}

}  // namespace brisko::test
