// The daemon in a steady hold beside a well-known daemon that watches a battery on another system, and beside
// the least that such a daemon does, all at the same time.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <signal.h>
#include <unistd.h>

#include "base/plain_files.h"
#include "figures.h"
#include "running.h"
#include "sim/process/scratch.h"

namespace brisko::bench {
namespace {

constexpr const char* upowerd = "/usr/libexec/upowerd";
constexpr const char* busProgram = "/usr/bin/dbus-daemon";
constexpr const char* deviceProgram = "/usr/bin/umockdev-run";

void pauseFor(double seconds) { ::usleep(static_cast<useconds_t>(seconds * 1e6)); }

void put(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

// --- The other daemon, on a bus of its own and a battery that rests at 80 %

std::string busSettings(const std::string& socket) {
  return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
         "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\"><busconfig><type>system</type>"
         "<listen>unix:path=" +
         socket +
         "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\"/>"
         "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>";
}

constexpr const char* battery =
    "P: /devices/LNXSYSTM:00/PNP0C0A:00/power_supply/BAT0\n"
    "E: SUBSYSTEM=power_supply\nE: POWER_SUPPLY_NAME=BAT0\n"
    "A: type=Battery\nA: present=1\nA: status=Not charging\nA: technology=Li-ion\nA: energy_full=52000000\n"
    "A: energy_full_design=52000000\nA: energy_now=41600000\nA: capacity=80\nA: power_now=0\n"
    "A: voltage_now=12000000\n\n"
    "P: /devices/LNXSYSTM:00/ACPI0003:00/power_supply/AC\n"
    "E: SUBSYSTEM=power_supply\nE: POWER_SUPPLY_NAME=AC\nA: type=Mains\nA: online=1\n\n";

// The process that this one has started; none as long as it has started none.
std::optional<long> childOf(pid_t parent) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
    const std::string name = entry.path().filename().string();
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name.front())) == 0) continue;
    std::string line;
    for (std::ifstream status(entry.path() / "status"); std::getline(status, line);) {
      if (line.starts_with("PPid:") && std::atol(line.c_str() + 5) == parent) return std::atol(name.c_str());
    }
  }
  return std::nullopt;
}

class OtherDaemon {
 public:
  OtherDaemon() {
    const std::string socket = scratch_.path("bus");
    put(scratch_.path("bus.conf"), busSettings(socket));
    put(scratch_.path("battery"), battery);
    bus_ = std::make_unique<Running>(
        std::vector<std::string>{busProgram, "--config-file=" + scratch_.path("bus.conf"), "--nofork",
                                 "--nopidfile"},
        "");
    while (!std::filesystem::exists(socket) && tries_-- > 0) pauseFor(0.1);
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + socket).c_str(), 1);
    device_ = std::make_unique<Running>(
        std::vector<std::string>{deviceProgram, "--device", scratch_.path("battery"), "--", upowerd}, "");
    while (!pid_ && tries_-- > 0) {
      pauseFor(0.1);
      pid_ = childOf(device_->pid());
    }
  }
  [[nodiscard]] std::optional<long> pid() const { return pid_; }

 private:
  sim::ScratchFolder scratch_{"brisko-beside"};
  int tries_ = 100;
  std::unique_ptr<Running> bus_;
  std::unique_ptr<Running> device_;
  std::optional<long> pid_;
};

// --- Ours, each on a virtual Mac of its own

class HoldingMac {
 public:
  explicit HoldingMac(const std::vector<std::string>& program) {
    vmac({"new", scratch_.path("mac"), "--charge", "80", "--speed", "1"});
    const std::string data = scratch_.path("mac/volume/Library/Application Support/Brisko");
    std::error_code ignored;
    std::filesystem::create_directories(data, ignored);
    put(data + "/config.json", R"({"enabled":true,"limit":80,"hysteresis":5})");
    vmac({"key", scratch_.path("mac"), "CHTE=01000000"});
    process_ = std::make_unique<Running>(program, scratch_.path("mac"));
  }
  [[nodiscard]] pid_t pid() const { return process_->pid(); }

 private:
  void vmac(std::vector<std::string> words) {
    words.insert(words.begin(), sibling("brisko-vmac"));
    static_cast<void>(Running(words, scratch_.path("mac")).wait());
  }
  sim::ScratchFolder scratch_{"brisko-beside"};
  std::unique_ptr<Running> process_;
};

// --- What is measured

struct Measured {
  std::string name;
  long pid = 0;
  ProcessFigures before = {}, after = {};
};

double perMinute(double whole, double seconds) { return whole * 60 / seconds; }

// How long all of them are watched; a few minutes, since the other daemon wakes twice in one.
double secondsToWatch() {
  const char* text = std::getenv("BRISKO_BENCH_SECONDS");
  const double seconds = text == nullptr ? 300 : std::strtod(text, nullptr);
  return std::clamp(seconds, 1.0, 3600.0);
}

double processorSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// In milliseconds a minute, what the daemon has to write in a hold costs at least: files of the same sizes,
// as often, with nothing else around it.
double leastForWrites() {
  constexpr double statuses = 2.5, statistics = 3, lines = 0.2;  // a minute
  constexpr int times = 2000;
  const sim::ScratchFolder folder("brisko-beside");
  const std::string status(440, 's'), totals(83, 't'), line(63, 'l');
  const auto millisecondsOf = [](const auto& write) {
    const double start = processorSeconds();
    for (int count = 0; count < times; ++count) write();
    return (processorSeconds() - start) * 1000 / times;
  };
  const auto overwrite = [&](const char* name, const std::string& text) {
    return millisecondsOf([&] { static_cast<void>(plain::overwriteFile(folder.path(name), text)); });
  };
  const double append = millisecondsOf([&] {
    const Descriptor file = openForAppending(folder.path("day"));
    static_cast<void>(writeAll(file.number(), line));
  });
  return statuses * overwrite("status", status) + statistics * overwrite("totals", totals) + lines * append;
}

void addFigures(std::vector<Figure>& figures, const Measured& process, double seconds) {
  const ProcessFigures& after = process.after;
  const double waits = perMinute(after.waits - process.before.waits, seconds);
  const double processor = perMinute(after.cpuSeconds - process.before.cpuSeconds, seconds) * 1000;
  figures.push_back({process.name + ": resident memory", after.residentKB / 1024, "MB"});
  figures.push_back({process.name + ": private memory", after.privateKB / 1024, "MB"});
  figures.push_back({process.name + ": processor time a minute", processor, "ms"});
  figures.push_back({process.name + ": voluntary switches a minute", waits, ""});
}

}  // namespace

std::vector<Figure> besideFigures() {
  for (const char* program : {upowerd, busProgram, deviceProgram}) {
    if (::access(program, X_OK) == 0) continue;
    std::fprintf(stderr, "There is no %s, so the daemon is not measured beside upowerd.\n", program);
    return {};
  }
  const double seconds = secondsToWatch();
  const HoldingMac daemon({sibling("brisko-daemon")});
  const HoldingMac floor({sibling("brisko-baseline")});
  const HoldingMac machine({sibling("brisko-baseline"), "--no-io"});
  const OtherDaemon other;
  if (!other.pid()) {
    std::fprintf(stderr, "upowerd did not start, so the daemon is not measured beside it.\n");
    return {};
  }
  std::vector<Measured> all{{"brisko-daemon", daemon.pid()},
                            {"the floor program", floor.pid()},
                            {"the virtual Mac alone", machine.pid()},
                            {"upowerd", *other.pid()}};
  pauseFor(5);  // all have started
  for (Measured& process : all) process.before = processFigures(process.pid);
  const double start = realNow();
  pauseFor(seconds);
  const double watched = realNow() - start;
  if (::kill(static_cast<pid_t>(*other.pid()), 0) != 0) {
    std::fprintf(stderr, "upowerd ended while it was watched, so the daemon is not measured beside it.\n");
    return {};
  }
  for (Measured& process : all) process.after = processFigures(process.pid);
  std::vector<Figure> figures;
  for (const Measured& process : all) addFigures(figures, process, watched);
  // In the order of the list: four figures of each process.
  const auto value = [&figures](std::size_t process, std::size_t figure) {
    return figures[process * 4 + figure].value;
  };
  figures[0].kind = figures[2].kind = Target::atMost;
  figures[0].target = value(3, 0) / 2;
  figures[2].target = value(3, 2);
  figures.push_back({"brisko-daemon without the virtual Mac: processor a minute", value(0, 2) - value(2, 2),
                     "ms", Target::atMost, value(3, 2)});
  figures.push_back({"its writes alone, at least: processor a minute", leastForWrites(), "ms"});
  return figures;
}

}  // namespace brisko::bench
