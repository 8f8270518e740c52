#include "client/system.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <sys/stat.h>
#include <sys/types.h>

#include "base/files.h"
#include "base/paths.h"
#include "client/child_process.h"
#include "client/linux/machine_facts.h"
#include "sim/machine/machine_store.h"

namespace brisko::client {
namespace {

std::string machineFolder() {
  const char* folder = std::getenv("BRISKO_VIRTUAL_MAC");
  return folder == nullptr ? "" : folder;
}

// The process that offers the control service holds a lock, and the kernel lists the holders of locks. Taking
// the lock to find out would disturb a daemon that is just starting.
std::optional<pid_t> daemonProcess() {
  struct stat lock {};
  const std::string path = machineFolder() + "/com.brisko.daemon.xpc.lock";
  if (::stat(path.c_str(), &lock) != 0) return std::nullopt;
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number, kind, mode, access, process, file;
    if (!(words >> number >> kind >> mode >> access >> process >> file) || kind != "FLOCK") continue;
    const std::size_t inode = file.rfind(':');
    if (inode == std::string::npos || file.substr(inode + 1) != std::to_string(lock.st_ino)) continue;
    const long id = std::strtol(process.c_str(), nullptr, 10);
    if (id > 0) return static_cast<pid_t>(id);
  }
  return std::nullopt;
}

std::vector<std::string> argumentsOf(pid_t process) {
  const std::string bytes = readWholeFile("/proc/" + std::to_string(process) + "/cmdline").value_or("");
  std::vector<std::string> arguments;
  for (std::size_t begin = 0; begin < bytes.size();) {
    const std::size_t end = std::min(bytes.find('\0', begin), bytes.size());
    arguments.push_back(bytes.substr(begin, end - begin));
    begin = end + 1;
  }
  return arguments;
}

// A virtual Mac has no fixed launch service, so the daemon counts as installed once it has run there.
Job jobOfDaemon(const std::string& volumeRoot) {
  Job job;
  const auto process = daemonProcess();
  struct stat status {};
  job.installed = process || ::stat((volumeRoot + statusPath).c_str(), &status) == 0;
  if (!process) return job;
  job.processId = *process;
  job.arguments = argumentsOf(*process);
  return job;
}

}  // namespace

SystemFacts readSystem() {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return {};
  SystemFacts facts = factsOf(store->view().machine());
  facts.job = jobOfDaemon(store->volumeRoot());
  return facts;
}

std::optional<std::string> whyUnusable() {
  if (machineFolder().empty()) {
    return "this computer is not a Mac; BRISKO_VIRTUAL_MAC names the folder of a virtual one";
  }
  std::string reason;
  if (virtual_mac::MachineStore::open(machineFolder(), reason) != nullptr) return std::nullopt;
  return reason;
}

std::optional<std::string> teamThatSigned(const std::string& /*path*/) {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return std::nullopt;
  const auto view = store->view();
  if (!view.machine().system.daemonSignatureReadable) return std::nullopt;
  return std::string(virtual_mac::textOf(view.machine().system.daemonTeam));
}

bool endDaemon(std::string& reason) {
  const auto process = daemonProcess();
  if (process && ::kill(*process, SIGTERM) == 0) return true;
  reason = process ? "you may not end the daemon's process" : "no daemon runs";
  return false;
}

std::optional<std::string> modelOfMac() { return std::nullopt; }

std::vector<std::string> commandLineFor(ReportCommand /*command*/, const std::string& /*daemon*/) {
  return {};
}

bool openPage(const std::string& path, std::string& reason) { return runProgram({"xdg-open", path}, reason); }

}  // namespace brisko::client
