// Makes a virtual Mac in a folder and operates it: changes by a user, the weather or a fault, and the work of
// the launch service.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "sim/dump_import/dump_import.h"
#include "sim/machine/app_bundle.h"
#include "sim/machine/change_arguments.h"
#include "sim/machine/changes.h"
#include "sim/machine/client_requirement.h"
#include "sim/machine/machine.h"
#include "sim/machine/machine_store.h"
#include "sim/machine/machine_text.h"
#include "sim/machine/models.h"
#include "sim/process/launch_service.h"
#include "sim/seam/live/control_messages.h"
#include "tools/live_view/live_view.h"
#include "tools/vmac/control_client.h"

namespace brisko::vmac {
namespace {

using virtual_mac::Change;
using virtual_mac::ChangeKind;
using virtual_mac::Machine;
using virtual_mac::MachineStore;

// Exit statuses.
constexpr int done = 0;
constexpr int failed = 1;  // reported in one line on standard error
constexpr int misused = 2;

int complain(const std::string& text) {
  static_cast<void>(std::fprintf(stderr, "brisko-vmac: %s\n", text.c_str()));
  return failed;
}

int misuse(const std::string& text) {
  static_cast<void>(complain(text));
  return misused;
}

void print(const std::string& text) { static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout)); }

int withMachine(const std::string& folder, const std::function<int(MachineStore&)>& use) {
  std::string reason;
  const auto store = MachineStore::open(folder, reason);
  return store ? use(*store) : complain(reason);
}

// Advances the machine to now, changes it and wakes the daemon.
int changeMachine(const std::string& folder, const std::function<void(Machine&)>& change) {
  return withMachine(folder, [&](MachineStore& store) {
    {
      const auto update = store.update();
      virtual_mac::advance(update.machine(), virtual_mac::machineTime(update.machine()));
      change(update.machine());
    }
    virtual_mac::wakeHolders(folder);
    return done;
  });
}

int applyChanges(const std::string& folder, const std::vector<Change>& changes) {
  return changeMachine(folder, [&](Machine& machine) {
    for (const Change& change : changes) virtual_mac::apply(machine, change);
  });
}

Change changeTo(ChangeKind kind, double number = 0) {
  Change change;
  change.kind = kind;
  change.number = number;
  return change;
}

// From now on machine time runs `speed` times as fast as real time.
void setSpeed(Machine& machine, double speed) {
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_REALTIME, &now));
  machine.realAnchor = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
  machine.machineAnchor = machine.now;
  machine.speed = speed;
}

template <typename Number = double>
CLI::Range inRangeOf(ChangeKind kind) {
  const virtual_mac::Range& range = virtual_mac::rangeOf(kind);
  return {static_cast<Number>(range.least), static_cast<Number>(range.most)};
}

const CLI::Range anySpeed(0.001, 1e6);

template <typename Named>
std::vector<std::string> namesOf(const Named& all) {
  std::vector<std::string> names;
  for (const auto& one : all) names.emplace_back(one.name);
  return names;
}

template <typename Kind, std::size_t count>
std::vector<std::string> namesOf(const std::array<std::pair<std::string_view, Kind>, count>& all) {
  std::vector<std::string> names;
  for (const auto& [name, kind] : all) names.emplace_back(name);
  return names;
}

// --- The commands: each has its name and its help, takes its options from the command line and runs.

// The options of a command on one machine.
struct OnMachine {
  std::string folder;

  void addOptions(CLI::App& command) { command.add_option("folder", folder)->required(); }
};

struct New {
  static constexpr const char* name = "new";
  static constexpr const char* help = "make a machine in a new or empty folder";
  std::string folder;
  std::string model = "air13";
  std::string dump;
  std::string gate;
  std::string cut;
  std::int64_t macOS = 26;
  double charge = 70;
  double uptime = 3600;
  double speed = 1;
  std::optional<std::int64_t> start;  // seconds since 1970
  bool noLight = false;
  bool noLimit = false;
  bool unplugged = false;

  void addOptions(CLI::App& command) {
    command.add_option("folder", folder, "the machine's folder")->required();
    command.add_option("--model", model, "kind of Mac")
        ->check(CLI::IsMember(namesOf(virtual_mac::models())))
        ->capture_default_str();
    command.add_option("--from", dump,
                       "take the battery from the registry dump of a real Mac (plist or JSON)");
    command.add_option("--gate", gate, "the keys that stop charging")
        ->check(CLI::IsMember(namesOf(virtual_mac::gateNames)));
    command.add_option("--cut", cut, "the key that cuts the adapter")
        ->check(CLI::IsMember(namesOf(virtual_mac::cutNames)));
    command.add_flag("--no-light", noLight, "a Mac without the MagSafe light");
    command.add_option("--macos", macOS, "major version of macOS")
        ->check(inRangeOf<int>(ChangeKind::macOS))
        ->capture_default_str();
    command.add_flag("--no-limit", noLimit,
                     "a macOS without a charge limit of its own (it has one from 26 on)");
    command.add_option("--charge", charge, "percent")
        ->check(inRangeOf(ChangeKind::charge))
        ->capture_default_str();
    command.add_option("--uptime", uptime, "seconds since boot")
        ->check(CLI::Range(0.0, 1e9))
        ->capture_default_str();
    command.add_option("--speed", speed, "machine seconds in a real second")
        ->check(anySpeed)
        ->capture_default_str();
    command
        .add_option("--start", start,
                    "the machine's first time of day, in seconds since 1970 (now, by default)")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{4'000'000'000}));
    command.add_flag("--unplugged", unplugged, "without its adapter");
  }

  static std::int64_t present() {
    timespec now{};
    static_cast<void>(::clock_gettime(CLOCK_REALTIME, &now));
    return now.tv_sec;
  }

  [[nodiscard]] virtual_mac::MachineOptions options() const {
    virtual_mac::MachineOptions options;
    options.gate = virtual_mac::kindNamed(virtual_mac::gateNames, gate);
    options.cut = virtual_mac::kindNamed(virtual_mac::cutNames, cut);
    if (noLight) options.magSafeLight = false;
    options.macOS = macOS;
    options.chargeLimit = !noLimit;
    options.uptime = uptime;
    options.percent = charge;
    options.plugged = !unplugged;
    options.startTime = static_cast<double>(start.value_or(present()));
    return options;
  }

  [[nodiscard]] int run() const {
    std::string reason;
    auto machine = dump.empty()
                       ? std::optional(virtual_mac::makeMachine(*virtual_mac::findModel(model), options()))
                       : machineFromDumpFile(dump, options(), reason);
    if (!machine) return complain(reason);
    setSpeed(*machine, speed);
    return MachineStore::create(folder, *machine, reason) ? done : complain(reason);
  }
};

struct Boot {
  static constexpr const char* name = "boot";
  static constexpr const char* help =
      "boot the machine and keep the daemon running on it, as launchd does, until shutdown or Ctrl-C";
  BootOptions options{.daemon = siblingProgram("brisko-daemon")};

  void addOptions(CLI::App& command) {
    command.add_option("folder", options.folder)->required();
    command.add_option("--daemon", options.daemon, "the program to run")->capture_default_str();
    command.add_option("arguments", options.arguments, "of the daemon, after --");
  }
  [[nodiscard]] int run() const { return bootAndWait(options); }
};

struct Shutdown : OnMachine {
  static constexpr const char* name = "shutdown";
  static constexpr const char* help = "end the daemon and turn the machine off";

  [[nodiscard]] int run() const { return shutDownAndWait(folder); }
};

struct Show : OnMachine {
  static constexpr const char* name = "show";
  static constexpr const char* help = "show the state of the machine";
  std::size_t exchanges = 0;

  void addOptions(CLI::App& command) {
    OnMachine::addOptions(command);
    command
        .add_option("--journal", exchanges,
                    "also the last writes to the controller and to the limit of macOS, and what the daemon "
                    "heard of sleep")
        ->type_name("COUNT");
  }
  [[nodiscard]] int run() const {
    return withMachine(folder, [&](MachineStore& store) {
      const auto update = store.update();
      virtual_mac::advance(update.machine(), virtual_mac::machineTime(update.machine()));
      print(machineText(update.machine()));
      if (exchanges > 0) print("journal\n" + journalText(update.journal(), exchanges));
      return done;
    });
  }
};

volatile std::sig_atomic_t gInterrupted = 0;

struct Watch : OnMachine {
  static constexpr const char* name = "watch";
  static constexpr const char* help = "show the machine continuously, until Ctrl-C";

  [[nodiscard]] int run() const {
    std::signal(SIGINT, [](int) { gInterrupted = 1; });
    return withMachine(folder, [&](MachineStore& store) {
      LiveView view(store, stdout);
      const timespec tenth{0, 100'000'000};
      while (gInterrupted == 0) {
        static_cast<void>(view.refresh());
        static_cast<void>(::nanosleep(&tenth, nullptr));
      }
      return done;
    });
  }
};

struct Plug : OnMachine {
  static constexpr const char* name = "plug";
  static constexpr const char* help = "plug in the adapter";
  std::optional<double> watts;

  void addOptions(CLI::App& command) {
    OnMachine::addOptions(command);
    command.add_option("--watts", watts, "the adapter's rating; default: as before")
        ->check(inRangeOf(ChangeKind::plug));
  }
  [[nodiscard]] int run() const {
    return changeMachine(folder, [&](Machine& machine) {
      virtual_mac::apply(machine, changeTo(ChangeKind::plug, watts.value_or(machine.adapter.watts)));
    });
  }
};

struct Unplug : OnMachine {
  static constexpr const char* name = "unplug";
  static constexpr const char* help = "unplug the adapter";

  [[nodiscard]] int run() const { return applyChanges(folder, {changeTo(ChangeKind::unplug)}); }
};

// Parses changes of one form. Applies all of them, or none when one is invalid.
using Parse = std::optional<Change> (*)(std::string_view, std::string&);
int applyWords(const std::string& folder, const std::vector<std::string>& words, Parse parse) {
  std::vector<Change> changes;
  for (const std::string& word : words) {
    std::string reason;
    const auto change = parse(word, reason);
    if (!change) return misuse(reason);
    changes.push_back(*change);
  }
  return applyChanges(folder, changes);
}

struct Set : OnMachine {
  static constexpr const char* name = "set";
  static constexpr const char* help = "change the battery, the limit of macOS or the weather";
  std::vector<std::string> settings;

  void addOptions(CLI::App& command) {
    OnMachine::addOptions(command);
    command.add_option("settings", settings, "NAME=NUMBER …, limit=off")->required();
    command.footer(settingList());
  }
  [[nodiscard]] int run() const { return applyWords(folder, settings, parseSetting); }
};

struct Speed : OnMachine {
  static constexpr const char* name = "speed";
  static constexpr const char* help = "set how fast the machine's time runs";
  double speed = 1;

  void addOptions(CLI::App& command) {
    OnMachine::addOptions(command);
    command.add_option("speed", speed, "machine seconds in a real second")->required()->check(anySpeed);
  }
  [[nodiscard]] int run() const {
    return changeMachine(folder, [&](Machine& machine) { setSpeed(machine, speed); });
  }
};

// On a Mac the kernel notices that a client has died; here this program does.
void forgetDeadClient(Machine& machine) {
  const auto client = static_cast<pid_t>(machine.sleep.client);
  if (client != 0 && ::kill(client, 0) != 0 && errno == ESRCH) virtual_mac::forgetPowerClient(machine);
}

struct Sleep : OnMachine {
  static constexpr const char* name = "sleep";
  static constexpr const char* help =
      "close the lid: the daemon is told, and the machine sleeps once it has answered";
  bool idle = false;

  void addOptions(CLI::App& command) {
    OnMachine::addOptions(command);
    command.add_flag("--idle", idle, "nobody uses the Mac: the daemon is asked first");
  }
  [[nodiscard]] int run() const {
    return changeMachine(folder, [&](Machine& machine) {
      forgetDeadClient(machine);
      virtual_mac::apply(machine, changeTo(idle ? ChangeKind::idleSleep : ChangeKind::closeLid));
    });
  }
};

struct Wake : OnMachine {
  static constexpr const char* name = "wake";
  static constexpr const char* help = "open the lid";
  std::optional<double> darkSeconds;

  void addOptions(CLI::App& command) {
    OnMachine::addOptions(command);
    command
        .add_option("--dark", darkSeconds,
                    "only for maintenance: display off, asleep again after this many seconds")
        ->type_name("SECONDS")
        ->check(inRangeOf(ChangeKind::darkWake));
  }
  [[nodiscard]] int run() const {
    return applyChanges(
        folder, {darkSeconds ? changeTo(ChangeKind::darkWake, *darkSeconds) : changeTo(ChangeKind::openLid)});
  }
};

struct Key : OnMachine {
  static constexpr const char* name = "key";
  static constexpr const char* help = "write keys of the controller, as another program would";
  std::vector<std::string> writes;

  void addOptions(CLI::App& command) {
    OnMachine::addOptions(command);
    command.add_option("writes", writes, "KEY=HEX …")->required();
  }
  [[nodiscard]] int run() const { return applyWords(folder, writes, parseKeyWrite); }
};

struct ApplyFault : OnMachine {
  static constexpr const char* name = "fault";
  static constexpr const char* help = "apply a fault that happens to real Macs";
  std::string fault;
  FaultArguments said;

  void addOptions(CLI::App& command) {
    OnMachine::addOptions(command);
    command.add_option("name", fault, "a fault's name; \"faults\" lists them")->required();
    command.add_option("--key", said.key, "the controller's key");
    command.add_option("--number", said.number);
    command.add_option("--bytes", said.bytes, "in hexadecimal");
    command.add_option("--property", said.property, "of the registry");
  }
  [[nodiscard]] int run() const {
    std::string reason;
    const auto change = changeOf(fault, said, reason);
    return change ? applyChanges(folder, {*change}) : misuse(reason);
  }
};

struct Faults {
  static constexpr const char* name = "faults";
  static constexpr const char* help = "list all faults, and why each is believable";

  void addOptions(CLI::App&) {}
  [[nodiscard]] int run() const {
    print(faultList());
    return done;
  }
};

// Acts as the app: sends a request to the daemon, or changes the bundle.
struct AppAction {
  std::string_view name;
  std::optional<virtual_mac::ControlRequestKind> request;
  bool (*act)(const std::string& root, std::string& reason) = nullptr;
};
constexpr AppAction appActions[] = {
    {"apply", virtual_mac::ControlRequestKind::applySettings},
    {"purge", virtual_mac::ControlRequestKind::purgeAllData},
    {"release", virtual_mac::ControlRequestKind::releaseCharge},
    {"restart", virtual_mac::ControlRequestKind::restart},
    {"delete", {}, deleteApp},
    {"move", {}, moveApp},
    {"restore", {}, restoreApp},
};

struct App : OnMachine {
  static constexpr const char* name = "app";
  static constexpr const char* help =
      "act as the app: send a request to the daemon, or change the app's bundle";
  std::string action;
  std::optional<std::string> settings;  // only for "apply"; sent unchanged
  std::string client = "app";

  void addOptions(CLI::App& command) {
    OnMachine::addOptions(command);
    command.add_option("action", action)->required()->check(CLI::IsMember(namesOf(appActions)));
    command.add_option("settings", settings, "of apply: a JSON object");
    command.add_option("--as", client, "the client's code signature")
        ->check(CLI::IsMember(namesOf(virtual_mac::knownClients())))
        ->capture_default_str();
  }

  // A rejected client gets no answer and does not know the reason.
  [[nodiscard]] int send(virtual_mac::ControlRequestKind request) const {
    const auto service = ControlClient::connect(folder, virtual_mac::findClient(client)->signature);
    const bool asked = service != nullptr && service->send(request, settings.value_or(""));
    const auto reply = asked ? service->nextReply() : std::nullopt;
    if (!reply) return complain("the service of the machine in " + folder + " does not answer");
    if (!reply->done) return complain(reply->error.value_or("refused"));
    print("done\n");
    return done;
  }

  [[nodiscard]] int run() const {
    if ((action == "apply") != settings.has_value()) {
      return misuse(settings ? action + " takes no settings" : "apply needs settings, e.g. {\"limit\":70}");
    }
    return withMachine(folder, [&](MachineStore& store) {
      const auto* chosen = std::find_if(std::begin(appActions), std::end(appActions),
                                        [&](const AppAction& one) { return one.name == action; });
      if (chosen->request) return send(*chosen->request);
      std::string reason;
      return chosen->act(store.volumeRoot(), reason) ? done : complain(reason);
    });
  }
};

template <typename Command>
void add(CLI::App& program, std::function<int()>& chosen) {
  const auto command = std::make_shared<Command>();
  CLI::App* parser = program.add_subcommand(Command::name, Command::help);
  command->addOptions(*parser);
  parser->callback([command, &chosen] { chosen = [command] { return command->run(); }; });
}

template <typename... Commands>
int runOneOf(int count, char** arguments) {
  CLI::App program{"Makes and operates a virtual Mac, kept in a folder.", "brisko-vmac"};
  program.require_subcommand(1);
  std::function<int()> chosen;
  (add<Commands>(program, chosen), ...);
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    const int status = program.exit(error);
    return status == 0 ? done : misused;
  }
  return chosen();
}

int run(int count, char** arguments) {
  return runOneOf<New, Boot, Shutdown, Show, Watch, Plug, Unplug, Set, Speed, Sleep, Wake, Key, ApplyFault,
                  Faults, App>(count, arguments);
}

}  // namespace
}  // namespace brisko::vmac

int main(int count, char** arguments) {
  try {
    return brisko::vmac::run(count, arguments);
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "brisko-vmac: %s\n", error.what()));
    return 1;
  }
}
