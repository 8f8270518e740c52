#include "daemon/entry.h"

#include <csignal>
#include <string_view>

#include <fcntl.h>
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

// Opens the null device for every standard stream that is closed at the start. Otherwise the first file that
// is opened would get its number, and every line meant for the stream would be written to that file.
void occupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR));
  }
}

// A standard stream may be a closed pipe. The signal would end the process, with the charge held or with a
// wrong status; and on a Mac it is sent to the whole process, so no thread can block it for the others. If it
// is ignored, only the write fails.
void outliveClosedPipes() { std::signal(SIGPIPE, SIG_IGN); }

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
