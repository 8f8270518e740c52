#include "support/virtual_mac.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <unistd.h>

#include "sim/machine/client_requirement.h"
#include "sim/machine/control_requests.h"
#include "sim/machine/journal_text.h"
#include "sim/seam/file_events.h"
#include "sim/seam/simulated/driver.h"
#include "support/files.h"

namespace brisko::test {

namespace {

using virtual_mac::Change;
using virtual_mac::ChangeKind;
using virtual_mac::JournalEntry;

const virtual_mac::Model& modelNamed(std::string_view name) {
  const virtual_mac::Model* model = virtual_mac::findModel(name);
  if (model == nullptr) throw std::invalid_argument("no model is named " + std::string(name));
  return *model;
}

}  // namespace

VirtualMac::VirtualMac(const virtual_mac::MachineOptions& options, std::string_view model)
    : store_(virtual_mac::MachineStore::inMemory(virtual_mac::makeMachine(modelNamed(model), options))) {
  if (store_ == nullptr || !virtual_mac::makeVolume(volume_.path())) {
    throw std::runtime_error("no memory for a virtual Mac");
  }
  store_->setVolumeRoot(volume_.path());
  virtual_mac::attachMachine(store_.get());
}

VirtualMac::~VirtualMac() {
  virtual_mac::attachMachine(nullptr);
  if (fileEventQueue_ >= 0) ::close(fileEventQueue_);
}

int VirtualMac::fileEventQueue() {
  if (fileEventQueue_ < 0) fileEventQueue_ = virtual_mac::openFileEventQueueForProcesses();
  return fileEventQueue_;
}

virtual_mac::Machine VirtualMac::machine() const { return store_->view().machine(); }

VirtualMac& VirtualMac::change(const Change& change) {
  virtual_mac::apply(store_->update().machine(), change);
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
  const auto update = store_->update();
  if (!virtual_mac::plan(update.machine(), update.machine().now + seconds, change)) {
    throw std::length_error("no more changes can be planned");
  }
  return *this;
}

std::uint64_t VirtualMac::ask(virtual_mac::RequestKind kind, std::string_view client) {
  change({.kind = ChangeKind::request,
          .number = static_cast<double>(kind),
          .status = virtual_mac::clientNumber(client)});
  return machine().control.sent;
}

std::uint64_t VirtualMac::apply(std::string_view settings, std::string_view client) {
  Change change{.kind = ChangeKind::request,
                .number = static_cast<double>(virtual_mac::RequestKind::applySettings),
                .status = virtual_mac::clientNumber(client)};
  if (settings.size() < change.text.size()) {
    change.text = virtual_mac::shortText(settings);
  } else {
    const std::string file = "/sent/" + std::to_string(machine().control.sent + 1);
    write(file, settings);
    change.text = virtual_mac::shortText("@" + file);
  }
  this->change(change);
  return machine().control.sent;
}

virtual_mac::ClientRequest VirtualMac::request(std::uint64_t number) const {
  const virtual_mac::Machine now = machine();
  const virtual_mac::ClientRequest* found = virtual_mac::findRequest(now, number);
  if (found == nullptr) throw std::invalid_argument("no such request");
  return *found;
}

std::string VirtualMac::reply(std::uint64_t number) const {
  const virtual_mac::ClientRequest asked = request(number);
  if (asked.stage == virtual_mac::RequestStage::refused) return "refused";
  if (asked.answers == 0) return "";
  if (!asked.hasError) return asked.done ? "done" : "not done";
  return asked.error.data();
}

VirtualMac& VirtualMac::pass(double seconds) {
  const auto update = store_->update();
  virtual_mac::advance(update.machine(), update.machine().now + seconds);
  return *this;
}

std::vector<std::uint8_t> VirtualMac::key(std::string_view name) const {
  return sim::keyBytes(machine(), name);
}

Writes VirtualMac::writes() const {
  Writes texts;
  for (const JournalEntry& entry : journal()) texts.push_back(sim::journalText(entry));
  return texts;
}

std::vector<double> VirtualMac::pendingWakes() const {
  const virtual_mac::Machine now = machine();
  std::vector<double> dates;
  for (const virtual_mac::ScheduledEvent& event : now.sleep.events) {
    if (event.pending) dates.push_back(event.date);
  }
  return dates;
}

std::vector<JournalEntry> VirtualMac::journal() const {
  const auto look = store_->view();
  const virtual_mac::Journal& journal = look.journal();
  const std::uint64_t oldest =
      journal.written < journal.entries.size() ? 0 : journal.written - journal.entries.size();
  std::vector<JournalEntry> entries;
  for (std::uint64_t index = std::max(journalFrom_, oldest); index < journal.written; ++index) {
    entries.push_back(journal.entries[index % journal.entries.size()]);
  }
  return entries;
}

void VirtualMac::keepReads() { store_->update().journal().reads = true; }
void VirtualMac::forgetJournal() { journalFrom_ = store_->view().journal().written; }

std::string VirtualMac::path(std::string_view unmapped) const {
  return volume_.path() + std::string(unmapped);
}

void VirtualMac::write(std::string_view unmapped, std::string_view text) {
  const std::filesystem::path file = path(unmapped);
  std::filesystem::create_directories(file.parent_path());
  put(file.string(), text);
}

std::string VirtualMac::read(std::string_view unmapped) const {
  std::ifstream stream(path(unmapped), std::ios::binary);
  std::ostringstream text;
  if (stream) text << stream.rdbuf();
  return text.str();
}

bool VirtualMac::exists(std::string_view unmapped) const {
  std::error_code ignored;
  return std::filesystem::exists(std::filesystem::symlink_status(path(unmapped), ignored));
}

void VirtualMac::settings(std::string_view json) {
  write("/Library/Application Support/Brisko/config.json", json);
}

std::vector<std::string> VirtualMac::logLines() const {
  constexpr std::size_t stampWidth = 22;  // "2026-03-01T08:15:30Z" and two blanks
  std::vector<std::string> lines = stampedLogLines();
  for (std::string& line : lines) line.erase(0, stampWidth);
  return lines;
}

std::vector<std::string> VirtualMac::stampedLogLines() const {
  std::istringstream text(read("/Library/Logs/Brisko/daemon.log"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

}  // namespace brisko::test
