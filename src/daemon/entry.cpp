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

// Opens the null device for every standard stream that is closed at the start. Otherwise the first file
// opened would take its number, and every line meant for the stream would go into that file.
void occupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR));
  }
}

// Whoever read a standard stream may be gone. The signal that comes of it would end the process, with the
// charge held or with another status than the one meant; and on a Mac it is raised for the whole process, so
// that no thread can shut it out for the others. Ignored, it leaves a write that fails.
void outliveClosedPipes() { std::signal(SIGPIPE, SIG_IGN); }

// The status ends the process either way; whether anybody could read the text changes nothing.
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
