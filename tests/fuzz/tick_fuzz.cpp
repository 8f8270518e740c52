// A daemon process from its start on, tick by tick, with a controller, a registry and power sources that
// return arbitrary data. Only the documented numbers end the process, only the gate's keys and the light are
// written, and the status is always a complete object.
//
// The input is the configuration, the statistics and the calibration, each up to a record separator, and then
// events, each a byte and its arguments. Process-wide state that no header declares is not reset between two
// inputs.
#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <span>

#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "calibration/calibration_record.h"
#include "fuzz/bytes.h"
#include "fuzz/expected_settings.h"
#include "fuzz/fatal.h"
#include "fuzz/require.h"
#include "fuzz/served_machine.h"
#include "fuzz/target.h"
#include "fuzz/volume.h"
#include "hardware/charge_gate.h"
#include "hardware/led.h"
#include "hardware/smc.h"
#include "policy/evaluation.h"
#include "power/sleep.h"
#include "records/statistics.h"
#include "state/charge_state_record.h"
#include "state/machine_abilities.h"
#include "state/native_limit_state.h"
#include "state/sleep_state.h"
#include "state/tick_state.h"

namespace brisko::tick_fuzz {
namespace {

using platform::SmcRecord;

struct Key {
  std::uint8_t size = 1;
  std::array<std::uint8_t, 32> bytes{};
  bool obeys = true;
  bool refuses = false;
};
using Keys = std::map<std::string, Key>;

constexpr std::array keyNames{"CHTE", "CHIE", "ACLC", "AC-W", "TB0T", "CH0B", "CH0C",
                              "bfF0", "bfD0", "bfE0", "CH0I", "CH0J", "CHSC", "bfG0"};

class Controller {
 public:
  Keys keys;
  std::vector<std::string> written;

  platform::KernelStatus exchange(const SmcRecord& input, SmcRecord& output) {
    const std::string name{static_cast<char>(input[3]), static_cast<char>(input[2]),
                           static_cast<char>(input[1]), static_cast<char>(input[0])};
    const auto found = keys.find(name);
    constexpr std::uint8_t unknownKey = 0x84;
    if (found == keys.end()) {
      output[40] = unknownKey;
      return platform::kernelSuccess;
    }
    Key& key = found->second;
    output[28] = key.size;
    if (input[42] == 5) std::copy(key.bytes.begin(), key.bytes.end(), output.begin() + 48);
    if (input[42] == 6) write(name, key, input, output);
    return platform::kernelSuccess;
  }

 private:
  void write(const std::string& name, Key& key, const SmcRecord& input, SmcRecord& output) {
    written.push_back(name);
    if (key.refuses) output[40] = 1;
    if (key.obeys && !key.refuses) std::copy_n(input.begin() + 48, key.bytes.size(), key.bytes.begin());
  }
};

// The keys of all Macs, so that a write to a wrong one succeeds and is noticed.
Keys healthyKeys() {
  Keys keys;
  for (const char* name : keyNames) keys[name] = {};
  for (const char* name : {"CHTE", "TB0T", "bfD0", "bfE0"}) keys[name].size = 4;
  keys["AC-W"].bytes[0] = 0x43;
  keys["TB0T"].bytes = {0, 0, 0xF0, 0x41};  // 30 °C
  return keys;
}

class DaemonRun {
 public:
  DaemonRun(Volume& volume, Bytes& bytes) : volume_(volume), bytes_(bytes) {}

  void run() {
    prepareFiles();
    prepareMachine();
    forget();
    startUp();
    for (int count = 0; count < mostEvents && !bytes_.atEnd() && !ended_; ++count) event(bytes_.byte() % 16);
    if (!ended_) watched(evaluate);
  }

 private:
  static constexpr int mostEvents = 24;

  void prepareFiles() {
    volume_.removeAll(historyDir);
    volume_.remove(statusPath);
    for (const char* path : {defaultConfigPath, statsPath, calibrationPath}) {
      volume_.write(path, bytes_.upTo('\x1e'));
    }
  }

  void prepareMachine() {
    gServed = {};
    controller_.keys = healthyKeys();
    gServed.exchange = [this](const SmcRecord& input, SmcRecord& output) {
      return controller_.exchange(input, output);
    };
    gServed.registry["AppleSmartBattery"] = std::make_shared<const platform::Dictionary>(
        platform::Dictionary{{"Amperage", 0}, {"Voltage", 12000}, {"DesignCapacity", 4500}});
    gServed.sources = {
        std::make_shared<const platform::Dictionary>(platform::Dictionary{{"Type", "InternalBattery"},
                                                                          {"Power Source State", "AC Power"},
                                                                          {"Current Capacity", 80},
                                                                          {"Max Capacity", 100}})};
  }

  // The initial state of a process, as far as headers declare it.
  static void forget() {
    gCliLimit = 80;
    gCliLower = -1;
    gConn = 1;
    gPurged = gDormant = gReleased = gSystemLocked = false;
    gState = ChargeState::allow;
    gHoldSince.reset();
    gCutSince.reset();
    gCutRewrites = 0;
    gDriftLogged = gThermalPaused = gDischargeBroken = false;
    gGateVerified.reset();
    gAtLimit.reset();
    gNativeBefore.reset();
    gNativeFloor.reset();
    gSleepPendingSince.reset();
    gProtectedSeconds = gTopUpSince = 0;
    gCal = {};
  }

  void startUp() {
    constexpr std::array families{ChargeKeys::chte, ChargeKeys::ch0b0c, ChargeKeys::firmwareBand,
                                  ChargeKeys::macOSLimit};
    constexpr std::array cuts{AdapterCutKey::chie, AdapterCutKey::ch0i, AdapterCutKey::ch0j,
                              AdapterCutKey::none};
    const std::uint8_t gate = bytes_.byte();
    gGate = ChargeGate{families[gate % 4], cuts[gate / 4 % 4]};
    gSystemLocked = gate / 16 % 8 == 7;
    if (gSystemLocked) gGate.reset();
    dischargeSupported = gGate && gGate->cut != AdapterCutKey::none;
    gLedSupported = true;
    gLastStatsTick = gStatsSince = 1.7e9;
    readStats();
    readCalibration();
  }

  void event(int kind) {
    switch (kind) {
      case 0:
        return watched(statisticsTick);
      case 1:
        return watched(ledTick);
      case 2:
        return watched(prepareForSleep);
      case 3:
        return watched([] { systemPowerCallback(platform::PowerMessage::systemWillSleep, 1); });
      case 4:
        return watched([] { systemPowerCallback(platform::PowerMessage::systemHasPoweredOn, 1); });
      case 5:
        return stepClock();
      case 6:
      case 7:
      case 8:
        return changeKey();
      case 9:
        gServed.registry["AppleSmartBattery"] = takeShared();
        return;
      case 10:
        gServed.registry["IOPMrootDomain"] = takeShared();
        return;
      case 11:
        gServed.sources = {takeShared(), takeShared()};
        return;
      case 12:
        gCliLower = bytes_.integer<std::int8_t>();
        return;
      default:
        volume_.stepClock(12);
        return watched(evaluate);
    }
  }

  void stepClock() {
    constexpr std::array steps{31.0, 61.0, 600.0, 86'400.0, 9e5, -1.0, -86'400.0, 1e9};
    volume_.stepClock(steps[bytes_.byte() % steps.size()]);
  }

  void changeKey() {
    const char* name = keyNames[bytes_.byte() % keyNames.size()];
    const std::uint8_t how = bytes_.byte();
    if (how % 4 == 0) {
      controller_.keys.erase(name);
      return;
    }
    Key& key = controller_.keys[name];
    key.size = how < 128 ? how % 5 : how;
    key.obeys = how % 3 != 0;
    key.refuses = how % 5 == 0;
    const auto first = bytes_.array<4>();
    std::copy(first.begin(), first.end(), key.bytes.begin());
  }

  platform::SharedDictionary takeShared() {
    return std::make_shared<const platform::Dictionary>(takeProperties(bytes_));
  }

  template <typename Work>
  void watched(const Work& work) {
    controller_.written.clear();
    ended_ = endsTheProcess(work);
    if (ended_) require(mayEnd());
    const std::vector<std::string> mayBeWritten = gGate ? gGate->writtenKeys() : std::vector<std::string>();
    for (const std::string& key : controller_.written) {
      require(key == "ACLC" ||
              std::find(mayBeWritten.begin(), mayBeWritten.end(), key) != mayBeWritten.end());
    }
    const auto status = volume_.read(statusPath);
    if (!status) return;
    const std::optional<Json> object = parseJson(*status);
    require(object && object->is_object() && object->size() >= 20);
  }

  // A second implementation: whether a file or the power sources contain a number that must end the process.
  [[nodiscard]] bool mayEnd() const {
    const auto text = volume_.read(defaultConfigPath);
    const auto config = text ? parseJson(*text) : std::nullopt;
    const bool isObject = config && config->is_object();
    const auto settings = isObject ? expectedSettings(*config) : Settings{};
    if (!settings) return true;
    constexpr std::int64_t mostMinutes = std::numeric_limits<std::int64_t>::max() / 60;
    if (settings->calSoakMinutes > mostMinutes || settings->calSoakMinutes < -mostMinutes) return true;
    if (!fitsInteger(gProtectedSeconds)) return true;
    if (gCal.phase != CalPhase::idle && !fitsInteger(gCal.soakBanked)) return true;
    return anyPercentageIsBeyond();
  }

  static bool anyPercentageIsBeyond() {
    const auto number = [](const platform::Dictionary& source, const char* key, std::int64_t usual) {
      const platform::Value* value = platform::find(source, key);
      return value == nullptr ? usual : value->asInteger().value_or(usual);
    };
    const auto isBeyond = [&number](const platform::SharedDictionary& source) {
      const auto most = static_cast<double>(number(*source, "Max Capacity", 100));
      const auto percent = static_cast<double>(number(*source, "Current Capacity", 0)) / most * 100;
      return most >= 1 && !fitsInteger(percent);
    };
    return gServed.sources && std::any_of(gServed.sources->begin(), gServed.sources->end(), isBeyond);
  }

  Volume& volume_;
  Bytes& bytes_;
  Controller controller_;
  bool ended_ = false;
};

void tryInput(std::string_view input) {
  static Volume volume;
  Bytes bytes(input);
  DaemonRun(volume, bytes).run();
}

const FuzzTarget target("tick", tryInput);

}  // namespace
}  // namespace brisko::tick_fuzz
