// The whole daemon in this process, on a live machine, while clients on separate threads send every kind of
// request at the same time. Mainly for ThreadSanitizer: the threads of requests must not race with the main
// thread.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "daemon/entry.h"
#include "platform/run_loop.h"
#include "sim/seam/live/live_folder.h"
#include "support/files.h"
#include "support/testing.h"
#include "tools/vmac/control_client.h"

namespace brisko::daemon_storm_test {
namespace {

using namespace test;
using virtual_mac::ChangeKind;
using virtual_mac::ControlRequestKind;
using vmac::ControlClient;

bool waitUntil(const std::function<bool()>& seen) {
  constexpr int timeout = 10'000;  // milliseconds
  for (int waited = 0; waited < timeout; ++waited) {
    if (seen()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

class DaemonStorm : public ::testing::Test {
 protected:
  // By default a real second is a minute of machine time.
  explicit DaemonStorm(double speed = 60) : folder(test::machineFromNow({}, speed)) { folder.name(); }

  // Runs the daemon until the clients are done.
  template <class Body>
  void runWhile(Body body) {
    std::thread clients([&] {
      EXPECT_TRUE(waitUntil([&] { return ControlClient::connect(folder.path()) != nullptr; }));
      body();
      platform::postMain([] { platform::stopMain(); });
    });
    EXPECT_EQ(enter({"brisko-daemon", "--app", "/Applications/Brisko.app"}), 0);
    clients.join();
  }

  [[nodiscard]] std::unique_ptr<ControlClient> client(std::string_view name = "app") const {
    return ControlClient::connect(folder.path(), virtual_mac::findClient(name)->signature);
  }

  // Sends `count` requests on a separate thread and reads the replies; returns their number.
  int ask(int count, const std::function<void(ControlClient&, int)>& request,
          std::string_view name = "app") const {
    const auto app = client(name);
    if (app == nullptr) return 0;
    std::thread asking([&] {
      for (int number = 0; number < count; ++number) request(*app, number);
    });
    int replies = 0;
    while (replies < count && app->nextReply()) ++replies;
    asking.join();
    return replies;
  }

  static void together(const std::vector<std::function<void()>>& pieces) {
    std::vector<std::thread> threads;
    threads.reserve(pieces.size());
    for (const auto& piece : pieces) threads.emplace_back(piece);
    for (std::thread& thread : threads) thread.join();
  }

  [[nodiscard]] std::string volume(const std::string& path) const { return folder.path() + "/volume" + path; }
  [[nodiscard]] std::string log() const { return test::contents(volume("/Library/Logs/Brisko/daemon.log")); }

  test::LiveFolder folder;
};

void applyLimit(ControlClient& app, int number) {
  static_cast<void>(
      app.send(ControlRequestKind::applySettings, "{\"limit\":" + std::to_string(60 + number % 30) + "}"));
}

void release(ControlClient& app, int) { static_cast<void>(app.send(ControlRequestKind::releaseCharge)); }

TEST_F(DaemonStorm, answersEveryRequestOnceWhileTheMachineChanges) {
  constexpr int each = 150;
  runWhile([&] {
    together({
        [&] { EXPECT_EQ(ask(each, applyLimit), each); },
        [&] { EXPECT_EQ(ask(each, applyLimit), each); },
        [&] { EXPECT_EQ(ask(each, release), each); },
        [&] { EXPECT_EQ(ask(1, applyLimit, "unsigned"), 0); },
        [&] {
          for (int time = 0; time < 20; ++time) {
            folder.change({.kind = time % 2 == 0 ? ChangeKind::unplug : ChangeKind::plug, .number = 30});
          }
        },
    });
    // The last request decides.
    EXPECT_EQ(ask(1, [](ControlClient& app, int) { applyLimit(app, 17); }), 1);
  });
  EXPECT_THAT(test::contents(volume("/Library/Application Support/Brisko/config.json")),
              HasSubstr("\"limit\":77"));
}

TEST_F(DaemonStorm, survivesClientsThatDisconnectOrSendGarbage) {
  runWhile([&] {
    together({
        [&] { EXPECT_EQ(ask(50, applyLimit), 50); },
        [&] {
          for (int time = 0; time < 50; ++time) applyLimit(*client(), time);
        },
        [&] {
          for (int time = 0; time < 50; ++time) static_cast<void>(client()->say("{\"id\":"));
        },
        [&] {
          const auto unreadable = [](ControlClient& app, int) {
            static_cast<void>(app.send(ControlRequestKind::applySettings, "[[[["));
          };
          EXPECT_EQ(ask(50, unreadable), 50);
        },
    });
  });
}

TEST_F(DaemonStorm, warnsForEachClientOfAnUnsignedDaemon) {
  folder.change({.kind = ChangeKind::daemonTeam});
  const std::string warning = "XPC with no signature check";
  const auto warnings = [&] {
    const std::string text = log();
    std::size_t count = 0;
    for (std::size_t at = text.find(warning); at != std::string::npos; at = text.find(warning, at + 1))
      ++count;
    return count;
  };
  runWhile([&] {
    const std::size_t before = warnings();
    const auto many = [&] {
      for (int time = 0; time < 20; ++time) EXPECT_EQ(ask(2, release, "unsigned"), 2);
    };
    together({many, many});
    EXPECT_TRUE(waitUntil([&] { return warnings() >= before + 40; }));
  });
}

TEST_F(DaemonStorm, writesNoFileAfterAPurge) {
  runWhile([&] {
    const auto purge = [](ControlClient& app, int) {
      static_cast<void>(app.send(ControlRequestKind::purgeAllData));
    };
    together({
        [&] { EXPECT_EQ(ask(50, applyLimit), 50); },
        [&] { EXPECT_EQ(ask(5, purge), 5); },
    });
    EXPECT_EQ(ask(5, applyLimit), 5);
  });
  EXPECT_FALSE(test::exists(volume("/Library/Application Support/Brisko")));
  EXPECT_FALSE(test::exists(volume("/Library/Logs/Brisko")));
}

// The process exits while clients are active, so what their threads still use must not be destroyed. No test
// code runs after that, so the last exit hook reports a failure.
std::atomic<bool> gRestartAnswered{false};

class DaemonStormAtRealSpeed : public DaemonStorm {
 protected:
  DaemonStormAtRealSpeed() : DaemonStorm(1) {}
};

TEST_F(DaemonStormAtRealSpeed, endsWithARestart) {
  static_cast<void>(
      std::atexit([] { ::_exit(gRestartAnswered && !::testing::Test::HasFailure() ? 0 : 98); }));
  runWhile([&] {
    std::thread applying([&] { static_cast<void>(ask(100'000, applyLimit)); });
    std::thread releasing([&] { static_cast<void>(ask(100'000, release)); });
    const auto app = client();
    static_cast<void>(app->send(ControlRequestKind::restart));
    const auto reply = app->nextReply();
    gRestartAnswered = reply && reply->done;
    applying.join();
    releasing.join();
    ADD_FAILURE() << "still running";
  });
}

}  // namespace
}  // namespace brisko::daemon_storm_test
