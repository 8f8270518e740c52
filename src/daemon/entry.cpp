#include "daemon/entry.h"

#include <csignal>
#include <string_view>

#include <unistd.h>

#include "base/files.h"
#include "base/options.h"
#include "base/process_flags.h"
#include "base/standard_output.h"
#include "daemon/start_up.h"
#include "diagnostics/firmware_test.h"
#include "diagnostics/probe.h"
#include "diagnostics/self_test.h"
#include "hardware/smc.h"
#include "platform/clock.h"
#include "platform/host.h"

namespace brisko {
namespace {

constexpr int statusFailed = 1;

// A standard stream may be a closed pipe. The signal would end the process, with the charge held or with a
// wrong status; and on a Mac it is sent to the whole process, so no thread can block it for the others. If it
// is ignored, only the write fails.
void outliveClosedPipes() { std::signal(SIGPIPE, SIG_IGN); }

// Whoever starts the daemon by hand may have a limit for the size of its files. Then too only the write
// fails.
void outliveFileLimits() { std::signal(SIGXFSZ, SIG_IGN); }

// The exit status is the same whether or not the text could be written.
int fail(std::string_view text, int status) {
  static_cast<void>(writeAll(STDERR_FILENO, text));
  return status;
}

bool isRoot() { return platform::effectiveUserId() == 0; }

int testFirmware() {
  if (!isRoot()) return fail("⛔️ --fwtest has to run as root (sudo).\n", statusFailed);
  return runFirmwareTest();
}

int printVersion() {
  printLine(daemonVersion);
  return 0;
}

int runDaemon() {
  if (!isRoot()) return fail("⛔️ brisko-daemon has to run as root (sudo).\n", statusFailed);
  if (SMCOpen(gConn) != platform::kernelSuccess) {
    return fail("⛔️ Could not open AppleSMC.\n", statusFailed);
  }
  return startUp();
}

}  // namespace

int enter(const std::vector<std::string>& arguments) {
  outliveClosedPipes();
  outliveFileLimits();
  occupyStandardStreams();
  daemonStartedAt = platform::wallNow();
  gDaemonPath = platform::executablePath().value_or("");
  scanArguments(arguments);

  if (gFwTest) return testFirmware();
  if (gSelfTest) return runSelfTests();
  if (gPrintVersion) return printVersion();
  if (gProbeOnly) return runProbe(gProbeJSON);
  return runDaemon();
}

}  // namespace brisko
