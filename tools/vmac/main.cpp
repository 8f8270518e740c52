// Makes a virtual Mac in a folder and operates it: what a user, the weather or a fault does to the machine,
// and what the launch service does for the daemon.

#include <CLI/CLI.hpp>
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

// ---------------------------------------------------------------------------------------------------------

struct NewMachine {
  std::string folder;
  std::string model = "air13";
  std::string dump;
  std::string pack;
  std::string gate;
  std::string cut;
  std::int64_t macOS = 26;
  double charge = 70;
  double uptime = 3600;
  double speed = 1;
  bool noLight = false;
  bool noLimit = false;
  bool unplugged = false;
};

const std::vector<std::pair<std::string, virtual_mac::GateKind>> gateNames{
    {"chte", virtual_mac::GateKind::chte},
    {"ch0b0c", virtual_mac::GateKind::ch0b0c},
    {"firmware-band", virtual_mac::GateKind::firmwareBand},
    {"none", virtual_mac::GateKind::none},
};
const std::vector<std::pair<std::string, virtual_mac::CutKind>> cutNames{
    {"chie", virtual_mac::CutKind::chie},
    {"ch0i", virtual_mac::CutKind::ch0i},
    {"ch0j", virtual_mac::CutKind::ch0j},
    {"none", virtual_mac::CutKind::none},
};

template <typename Kind>
std::vector<std::string> namesOf(const std::vector<std::pair<std::string, Kind>>& pairs) {
  std::vector<std::string> names;
  for (const auto& pair : pairs) names.push_back(pair.first);
  return names;
}

template <typename Kind>
std::optional<Kind> kindNamed(const std::vector<std::pair<std::string, Kind>>& pairs,
                              const std::string& name) {
  for (const auto& pair : pairs) {
    if (pair.first == name) return pair.second;
  }
  return std::nullopt;
}

virtual_mac::MachineOptions optionsOf(const NewMachine& wish) {
  virtual_mac::MachineOptions options;
  options.gate = kindNamed(gateNames, wish.gate);
  options.cut = kindNamed(cutNames, wish.cut);
  if (wish.noLight) options.magSafeLight = false;
  options.macOS = wish.macOS;
  options.chargeLimit = !wish.noLimit;
  options.uptime = wish.uptime;
  options.percent = wish.charge;
  options.plugged = !wish.unplugged;
  // A live machine starts with the present time of day.
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_REALTIME, &now));
  options.startTime = static_cast<double>(now.tv_sec);
  return options;
}

int makeNew(const NewMachine& wish) {
  std::optional<Machine> machine;
  std::string reason;
  if (wish.dump.empty()) {
    machine = virtual_mac::makeMachine(*virtual_mac::findModel(wish.model), optionsOf(wish));
  } else {
    machine = machineFromDumpFile(wish.dump, optionsOf(wish), reason);
  }
  if (!machine) return complain(reason);
  setSpeed(*machine, wish.speed);
  if (!MachineStore::create(wish.folder, *machine, reason)) return complain(reason);
  return done;
}

void addNew(CLI::App& program, std::function<int()>& chosen) {
  static NewMachine wish;
  CLI::App* command = program.add_subcommand("new", "make a machine in a new or empty folder");
  command->add_option("folder", wish.folder, "the machine's folder")->required();
  std::vector<std::string> models;
  for (const auto& model : virtual_mac::models()) models.emplace_back(model.name);
  command->add_option("--model", wish.model, "kind of Mac")
      ->check(CLI::IsMember(models))
      ->capture_default_str();
  command->add_option("--from", wish.dump,
                      "take the battery from the registry dump of a real Mac (plist or JSON)");
  command->add_option("--gate", wish.gate, "the keys that stop charging")
      ->check(CLI::IsMember(namesOf(gateNames)));
  command->add_option("--cut", wish.cut, "the key that cuts the adapter")
      ->check(CLI::IsMember(namesOf(cutNames)));
  command->add_flag("--no-light", wish.noLight, "a Mac without the MagSafe light");
  command->add_option("--macos", wish.macOS, "major version of macOS")
      ->check(CLI::Range(11, 99))
      ->capture_default_str();
  command->add_flag("--no-limit", wish.noLimit,
                    "a macOS without a charge limit of its own (it has one from 26 on)");
  command->add_option("--charge", wish.charge, "percent")
      ->check(CLI::Range(0.0, 100.0))
      ->capture_default_str();
  command->add_option("--uptime", wish.uptime, "seconds since boot")
      ->check(CLI::Range(0.0, 1e9))
      ->capture_default_str();
  command->add_option("--speed", wish.speed, "machine seconds in a real second")
      ->check(CLI::Range(0.001, 1e6))
      ->capture_default_str();
  command->add_flag("--unplugged", wish.unplugged, "without its adapter");
  command->callback([&chosen] { chosen = [] { return makeNew(wish); }; });
}

// ---------------------------------------------------------------------------------------------------------

int show(const std::string& folder, std::size_t exchanges) {
  return withMachine(folder, [&](MachineStore& store) {
    const auto update = store.update();
    virtual_mac::advance(update.machine(), virtual_mac::machineTime(update.machine()));
    print(machineText(update.machine()));
    if (exchanges > 0) print("journal\n" + journalText(update.journal(), exchanges));
    return done;
  });
}

void addShow(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  static std::size_t exchanges = 0;
  CLI::App* command = program.add_subcommand("show", "show the state of the machine");
  command->add_option("folder", folder)->required();
  command
      ->add_option("--journal", exchanges,
                   "also the last writes to the controller and to the limit of macOS, and what the daemon "
                   "heard of sleep")
      ->type_name("COUNT");
  command->callback([&] { chosen = [&] { return show(folder, exchanges); }; });
}

volatile std::sig_atomic_t gInterrupted = 0;

int watch(const std::string& folder) {
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

void addWatch(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  CLI::App* command = program.add_subcommand("watch", "show the machine continuously, until Ctrl-C");
  command->add_option("folder", folder)->required();
  command->callback([&] { chosen = [&] { return watch(folder); }; });
}

// ---------------------------------------------------------------------------------------------------------

void addPlug(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  static std::optional<double> watts;
  CLI::App* plug = program.add_subcommand("plug", "plug in the adapter");
  plug->add_option("folder", folder)->required();
  plug->add_option("--watts", watts, "the adapter's rating; as before without it")
      ->check(CLI::Range(1.0, 500.0));
  plug->callback([&] {
    chosen = [&] {
      return changeMachine(folder, [](Machine& machine) {
        virtual_mac::apply(machine, changeTo(ChangeKind::plug, watts.value_or(machine.adapter.watts)));
      });
    };
  });
  CLI::App* unplug = program.add_subcommand("unplug", "unplug the adapter");
  unplug->add_option("folder", folder)->required();
  unplug->callback([&] { chosen = [&] { return applyChanges(folder, {changeTo(ChangeKind::unplug)}); }; });
}

// Only the kernel notices a client that died by itself; here we play the kernel.
void forgetDeadClient(Machine& machine) {
  const auto client = static_cast<pid_t>(machine.sleep.client);
  if (client != 0 && ::kill(client, 0) != 0 && errno == ESRCH) virtual_mac::forgetPowerClient(machine);
}

void addSleep(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  static bool idle = false;
  CLI::App* command = program.add_subcommand(
      "sleep", "close the lid: the daemon is told, and the machine sleeps once it has answered");
  command->add_option("folder", folder)->required();
  command->add_flag("--idle", idle, "nobody uses the Mac: the daemon is asked first");
  command->callback([&] {
    chosen = [&] {
      return changeMachine(folder, [](Machine& machine) {
        forgetDeadClient(machine);
        virtual_mac::apply(machine, changeTo(idle ? ChangeKind::idleSleep : ChangeKind::closeLid));
      });
    };
  });
}

void addWake(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  static std::optional<double> darkSeconds;
  CLI::App* command = program.add_subcommand("wake", "open the lid");
  command->add_option("folder", folder)->required();
  command
      ->add_option("--dark", darkSeconds,
                   "only for maintenance: display off, asleep again after this many seconds")
      ->type_name("SECONDS")
      ->check(CLI::Range(1.0, 3600.0));
  command->callback([&] {
    chosen = [&] {
      return applyChanges(folder, {darkSeconds ? changeTo(ChangeKind::darkWake, *darkSeconds)
                                               : changeTo(ChangeKind::openLid)});
    };
  });
}

// Parses changes of one form. Returns all of them, or none when one is invalid.
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

void addSet(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  static std::vector<std::string> words;
  CLI::App* command = program.add_subcommand("set", "change the battery, the limit of macOS or the weather");
  command->add_option("folder", folder)->required();
  command->add_option("settings", words, "NAME=NUMBER …, limit=off")->required();
  command->footer(settingList());
  command->callback([&] { chosen = [&] { return applyWords(folder, words, parseSetting); }; });
}

void addSpeed(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  static double speed = 1;
  CLI::App* command = program.add_subcommand("speed", "set how fast the machine's time runs");
  command->add_option("folder", folder)->required();
  command->add_option("speed", speed, "machine seconds in a real second")
      ->required()
      ->check(CLI::Range(0.001, 1e6));
  command->callback([&] {
    chosen = [&] { return changeMachine(folder, [](Machine& machine) { setSpeed(machine, speed); }); };
  });
}

void addKey(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  static std::vector<std::string> writes;
  CLI::App* command = program.add_subcommand("key", "write keys of the controller, as another program would");
  command->add_option("folder", folder)->required();
  command->add_option("writes", writes, "KEY=HEX …")->required();
  command->callback([&] { chosen = [&] { return applyWords(folder, writes, parseKeyWrite); }; });
}

// ---------------------------------------------------------------------------------------------------------

void addFaults(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  static std::string name;
  static FaultArguments said;
  CLI::App* command = program.add_subcommand("fault", "apply a fault that happens to real Macs");
  command->add_option("folder", folder)->required();
  command->add_option("name", name, "a fault's name; \"faults\" lists them")->required();
  command->add_option("--key", said.key, "the controller's key");
  command->add_option("--number", said.number);
  command->add_option("--bytes", said.bytes, "in hexadecimal");
  command->add_option("--property", said.property, "of the registry");
  command->callback([&] {
    chosen = [&] {
      std::string reason;
      const auto change = changeOf(name, said, reason);
      return change ? applyChanges(folder, {*change}) : misuse(reason);
    };
  });
  program.add_subcommand("faults", "list all faults, and why each is believable")->callback([&chosen] {
    chosen = [] {
      print(faultList());
      return done;
    };
  });
}

// ---------------------------------------------------------------------------------------------------------

struct AppRequest {
  std::string_view verb;
  virtual_mac::ControlRequestKind kind;
};
constexpr AppRequest appRequests[] = {
    {"apply", virtual_mac::ControlRequestKind::applySettings},
    {"purge", virtual_mac::ControlRequestKind::purgeAllData},
    {"release", virtual_mac::ControlRequestKind::releaseCharge},
    {"restart", virtual_mac::ControlRequestKind::restart},
};

struct BundleAction {
  std::string_view verb;
  bool (*act)(const std::string& root, std::string& reason);
};
constexpr BundleAction bundleActions[] = {
    {"delete", deleteApp},
    {"move", moveApp},
    {"restore", restoreApp},
};

std::vector<std::string> appVerbs() {
  std::vector<std::string> verbs;
  for (const AppRequest& request : appRequests) verbs.emplace_back(request.verb);
  for (const BundleAction& action : bundleActions) verbs.emplace_back(action.verb);
  return verbs;
}

std::vector<std::string> clientNames() {
  std::vector<std::string> names;
  for (const virtual_mac::KnownClient& client : virtual_mac::knownClients()) names.emplace_back(client.name);
  return names;
}

// A command of the app; only "apply" has settings, which are sent as given.
struct AppOptions {
  std::string verb;
  std::optional<std::string> settings;
  std::string client = "app";
};

// A rejected client gets no answer and cannot tell why.
int request(const std::string& folder, virtual_mac::ControlRequestKind kind, const AppOptions& wish) {
  const auto service = ControlClient::connect(folder, virtual_mac::findClient(wish.client)->signature);
  const bool asked = service != nullptr && service->send(kind, wish.settings.value_or(""));
  const auto reply = asked ? service->nextReply() : std::nullopt;
  if (!reply) return complain("the service of the machine in " + folder + " does not answer");
  if (!reply->done) return complain(reply->error.value_or("refused"));
  print("done\n");
  return done;
}

int runAppCommand(const std::string& folder, const AppOptions& wish) {
  if ((wish.verb == "apply") != wish.settings.has_value()) {
    return misuse(wish.settings ? wish.verb + " takes no settings"
                                : "apply needs settings, e.g. {\"limit\":70}");
  }
  return withMachine(folder, [&](MachineStore& store) {
    for (const AppRequest& known : appRequests) {
      if (known.verb == wish.verb) return request(folder, known.kind, wish);
    }
    std::string reason;
    for (const BundleAction& known : bundleActions) {
      if (known.verb == wish.verb) return known.act(store.volumeRoot(), reason) ? done : complain(reason);
    }
    return misused;
  });
}

void addApp(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  static AppOptions wish;
  CLI::App* command = program.add_subcommand(
      "app", "act as the app: send a request to the daemon, or change the app's bundle");
  command->add_option("folder", folder)->required();
  command->add_option("action", wish.verb)->required()->check(CLI::IsMember(appVerbs()));
  command->add_option("settings", wish.settings, "of apply: a JSON object");
  command->add_option("--as", wish.client, "the client's code signature")
      ->check(CLI::IsMember(clientNames()))
      ->capture_default_str();
  command->callback([&] { chosen = [&] { return runAppCommand(folder, wish); }; });
}

// ---------------------------------------------------------------------------------------------------------

void addBoot(CLI::App& program, std::function<int()>& chosen) {
  static BootOptions options;
  CLI::App* boot = program.add_subcommand(
      "boot",
      "boot the machine and keep the daemon running on it, as launchd does, until shutdown or Ctrl-C");
  boot->add_option("folder", options.folder)->required();
  options.daemon = siblingProgram("brisko-daemon");
  boot->add_option("--daemon", options.daemon, "the program to run")->capture_default_str();
  boot->add_option("arguments", options.arguments, "of the daemon, after --");
  boot->callback([&chosen] { chosen = [] { return bootAndWait(options); }; });
}

void addShutdown(CLI::App& program, std::function<int()>& chosen, std::string& folder) {
  CLI::App* command = program.add_subcommand("shutdown", "end the daemon and turn the machine off");
  command->add_option("folder", folder)->required();
  command->callback([&] { chosen = [&] { return shutDownAndWait(folder); }; });
}

int run(int count, char** arguments) {
  CLI::App program{"Makes and operates a virtual Mac, kept in a folder.", "brisko-vmac"};
  program.require_subcommand(1);
  std::string folder;
  std::function<int()> chosen;
  addNew(program, chosen);
  addBoot(program, chosen);
  addShutdown(program, chosen, folder);
  addShow(program, chosen, folder);
  addWatch(program, chosen, folder);
  addPlug(program, chosen, folder);
  addSet(program, chosen, folder);
  addSpeed(program, chosen, folder);
  addSleep(program, chosen, folder);
  addWake(program, chosen, folder);
  addKey(program, chosen, folder);
  addFaults(program, chosen, folder);
  addApp(program, chosen, folder);
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    const int status = program.exit(error);
    return status == 0 ? done : misused;
  }
  return chosen();
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
