#include "service/control_service.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/files.h"
#include "base/json_file.h"
#include "base/log.h"
#include "base/options.h"
#include "base/process_flags.h"
#include "base/settings.h"
#include "base/volume_path.h"
#include "hardware/charge_gate.h"
#include "native/native_limit.h"
#include "platform/code_signature.h"
#include "platform/run_loop.h"
#include "policy/evaluation.h"
#include "state/charge_state_record.h"

namespace brisko {
namespace {

using platform::Reply;

constexpr const char* serviceName = "com.brisko.daemon.xpc";
constexpr double removalSeconds = 30;  // time for the app to remove the service after a release
constexpr double restartDelay = 0.3;   // seconds; lets the reply arrive first

// --- New settings

std::optional<Json> objectIn(const std::vector<std::uint8_t>& bytes) {
  const std::string text(bytes.begin(), bytes.end());
  std::optional<Json> value = parseJson(text);
  if (!value || !value->is_object()) return std::nullopt;
  return value;
}

// Keys that were not sent stay as they are in the file.
void takeSettings(const Json& received) {
  Json merged = readJsonObject(onVolume(gConfigPath)).value_or(Json::object());
  merged.update(received);
  writeConfig(parseConfig(merged), std::nullopt, std::nullopt, std::nullopt);
  evaluate();
}

void applySettings(const std::vector<std::uint8_t>& bytes, const Reply& reply) {
  std::optional<Json> received = objectIn(bytes);
  if (!received) return reply(false, "Unreadable settings.");
  platform::postMain([received = std::move(*received), reply] {
    takeSettings(received);
    reply(true, std::nullopt);
  });
}

// --- Erasing all data

constexpr std::array dataFolders = {"/Library/Application Support/Brisko", "/Library/Logs/Brisko"};

// None when the folder is gone or was never there; otherwise the text for the user.
std::optional<std::string> removeFolder(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::exists(onVolume(path), error)) return std::nullopt;
  removeTree(onVolume(path), error);
  if (!error) return std::nullopt;
  return path + ": " + error.message();
}

std::vector<std::string> removeData() {
  std::vector<std::string> failures;
  for (const char* path : dataFolders) {
    if (auto failure = removeFolder(path)) failures.push_back(std::move(*failure));
  }
  return failures;
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string all;
  for (const std::string& text : texts) {
    if (!all.empty()) all += separator;
    all += text;
  }
  return all;
}

// The flag is set before the files are removed, so that nothing creates one again. The limit is handed back
// before the flag is set, so that its log line and statistics still have a file.
void purge(const Reply& reply) {
  handBackNative();
  if (gateIsMacOSLimit()) gReleased = true;
  gPurged = true;
  const std::vector<std::string> failures = removeData();
  log("data purge requested: " + (failures.empty() ? "OK" : joined(failures, "; ")));
  if (failures.empty()) return reply(true, std::nullopt);
  reply(false, failures.front());
}

// --- Releasing the charge

// The service was not removed after the release with this token, and no other release followed.
void takeChargeAgain(std::int64_t token) {
  if (!gReleased || gReleaseToken != token) return;
  gReleased = false;
  log("still running 30 s after the release — the removal didn't happen, Brisko takes the charge again");
  evaluate();
}

void release(const Reply& reply) {
  handBackNative();
  gReleased = true;
  gState = ChargeState::allow;
  gReleaseToken += 1;
  log("charge released by the app — the service is about to be removed");
  reply(true, std::nullopt);
  platform::postMainAfter(removalSeconds, [token = gReleaseToken] { takeChargeAgain(token); });
}

void releaseCharge(const Reply& reply) {
  // Keys that we write are given back by the exit that follows. The gate was found before the service began
  // to listen, so it may be read from this thread.
  if (!gateIsMacOSLimit()) return reply(true, std::nullopt);
  platform::postMain([reply] { release(reply); });
}

// --- Restarting

void restart(const Reply& reply) {
  reply(true, std::nullopt);
  platform::postMainAfter(restartDelay, [] {
    log("restart requested by the app — exiting so launchd loads the current binary");
    std::exit(0);
  });
}

// Called for every connection, off the main thread, where writing the log is not allowed.
std::optional<std::string> requirementOnClient() {
  std::optional<std::string> requirement = clientCodeRequirement();
  if (!requirement) {
    platform::postMain([] {
      log("⚠️ XPC with no signature check (binary not signed by a team) — development build");
    });
  }
  return requirement;
}

}  // namespace

std::optional<std::string> clientCodeRequirement() {
  const std::optional<std::string> team = platform::teamIdentifier();
  if (!team || team->empty()) return std::nullopt;
  return "anchor apple generic and identifier \"com.brisko.Brisko\" and certificate leaf[subject.OU] = \"" +
         *team + "\"";
}

platform::ControlRequests controlRequests() {
  return {
      .applySettings = applySettings,
      .purgeAllData = [](const Reply& reply) { platform::postMain([reply] { purge(reply); }); },
      .releaseCharge = releaseCharge,
      .restart = restart,
  };
}

void startXPCListener() {
  platform::listenForControl(serviceName, requirementOnClient, controlRequests());
  log(std::string("XPC listening on ") + serviceName);
}

}  // namespace brisko
