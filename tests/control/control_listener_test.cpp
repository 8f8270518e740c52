// What platform/control_listener.h promises, over real sockets and threads.

#include "platform/control_listener.h"

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/run_loop.h"
#include "sim/seam/live/folder_socket.h"
#include "sim/seam/live/live_folder.h"
#include "support/testing.h"
#include "tools/vmac/control_client.h"

namespace brisko::control_listener_test {
namespace {

using namespace test;
using platform::ControlRequests;
using platform::postMain;
using platform::Reply;
using virtual_mac::ControlRequestKind;
using vmac::ControlClient;

// Threads of the service may still run when the process exits, so the objects that they use are never
// destroyed.
const std::string& serviceName = *new std::string("com.brisko.daemon.xpc");
const std::string& goodRequirement = *new std::string(
    "anchor apple generic and identifier \"com.brisko.Brisko\" and certificate leaf[subject.OU] = \"" +
    std::string(virtual_mac::appTeam) + "\"");

const virtual_mac::ClientSignature& named(std::string_view name) {
  return virtual_mac::findClient(name)->signature;
}

// Waits for other threads until `seen` returns true.
bool waitUntil(const std::function<bool()>& seen) {
  constexpr int timeout = 10'000;  // milliseconds
  for (int waited = 0; waited < timeout; ++waited) {
    if (seen()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

// Requests that are not yet answered.
class Waiting {
 public:
  void add(const Reply& reply) {
    const std::lock_guard lock(mutex_);
    replies_.push_back(reply);
  }
  // Answers the requests from number `from` up to, but not including, `to`, once they have arrived.
  void give(std::size_t from, std::size_t to) {
    ASSERT_TRUE(waitUntil([&] {
      const std::lock_guard lock(mutex_);
      return replies_.size() >= to;
    }));
    const std::lock_guard lock(mutex_);
    for (std::size_t index = from; index < to; ++index) replies_[index](true, std::nullopt);
  }

 private:
  std::mutex mutex_;
  std::vector<Reply> replies_;
};

// A service that answers everything at once and records the requests.
class Service {
 public:
  std::function<std::optional<std::string>()> requirement = [] { return std::nullopt; };
  // What happens to a request after it was recorded.
  std::function<void(const Reply&)> answer = [](const Reply& reply) { reply(true, std::nullopt); };

  [[nodiscard]] ControlRequests requests() {
    return {.applySettings =
                [this](const std::vector<std::uint8_t>& settings, const Reply& reply) {
                  note("apply " + std::string(settings.begin(), settings.end()), reply);
                },
            .purgeAllData = [this](const Reply& reply) { note("purge", reply); },
            .releaseCharge = [this](const Reply& reply) { note("release", reply); },
            .restart = [this](const Reply& reply) { note("restart", reply); }};
  }
  [[nodiscard]] std::vector<std::string> received() {
    const std::lock_guard lock(mutex_);
    return received_;
  }

 private:
  void note(const std::string& request, const Reply& reply) {
    {
      const std::lock_guard lock(mutex_);
      received_.push_back(request);
    }
    answer(reply);
  }

  std::mutex mutex_;
  std::vector<std::string> received_;
};

// The only instance, never destroyed for the same reason.
template <typename Thing>
Thing& lasting() {
  static Thing& thing = *new Thing;
  return thing;
}

class ControlListener : public ::testing::Test {
 protected:
  ControlListener() { folder.name(); }

  // Serves until `body`, which runs the clients on a separate thread, returns.
  template <class Body>
  void serve(Body body) {
    platform::listenForControl(serviceName, service.requirement, service.requests());
    std::thread clients([&] {
      body();
      postMain([] { platform::stopMain(); });
    });
    platform::runMain();
    clients.join();
  }

  [[nodiscard]] std::unique_ptr<ControlClient> client(std::string_view name = "app") const {
    auto connected = ControlClient::connect(folder.path(), named(name));
    EXPECT_NE(connected, nullptr);
    return connected;
  }

  [[nodiscard]] std::vector<std::string> received() const { return service.received(); }
  [[nodiscard]] bool receives(std::size_t count) const {
    return waitUntil([&] { return received().size() >= count; });
  }

  test::LiveFolder folder;
  Service& service = lasting<Service>();
  Waiting& waiting = lasting<Waiting>();
};

bool isDone(ControlClient& client) {
  const auto reply = client.nextReply();
  return reply && reply->done && !reply->error;
}

TEST_F(ControlListener, carriesTheFourRequestsAndAReplyToEach) {
  serve([&] {
    const auto app = client();
    for (const auto kind : {ControlRequestKind::applySettings, ControlRequestKind::purgeAllData,
                            ControlRequestKind::releaseCharge, ControlRequestKind::restart}) {
      EXPECT_TRUE(app->send(kind));
      EXPECT_TRUE(isDone(*app));
    }
  });
  EXPECT_THAT(received(), ElementsAre("apply ", "purge", "release", "restart"));
}

TEST_F(ControlListener, carriesTheTextOfARefusal) {
  service.answer = [](const Reply& reply) { reply(false, "/a/\xC3\xBC \"b\"\n: no"); };
  serve([&] {
    const auto app = client();
    EXPECT_TRUE(app->send(ControlRequestKind::purgeAllData));
    const auto reply = app->nextReply();
    EXPECT_TRUE(reply && !reply->done && reply->error == "/a/\xC3\xBC \"b\"\n: no");
  });
}

TEST_F(ControlListener, carriesSettingsByteForByte) {
  std::string everyByte;
  for (int byte = 0; byte < 256; ++byte) everyByte += static_cast<char>(byte);
  const std::vector<std::string> all{"",
                                     "\n",
                                     "{\"limit\":70}",
                                     everyByte,
                                     std::string(1'000'000, '['),
                                     "{}\n{\"id\":1,\"request\":\"restart\"}\n",
                                     "end"};
  serve([&] {
    const auto app = client();
    for (const std::string& settings : all) {
      EXPECT_TRUE(app->send(ControlRequestKind::applySettings, settings));
      EXPECT_TRUE(isDone(*app));
    }
  });
  ASSERT_EQ(received().size(), all.size());
  for (std::size_t index = 0; index < all.size(); ++index) {
    EXPECT_TRUE(received()[index] == "apply " + all[index]) << index;
  }
}

TEST_F(ControlListener, deliversRequestsOnThreadsThatBlockAllSignals) {
  const std::thread::id mainThread = std::this_thread::get_id();
  service.answer = [mainThread](const Reply& reply) {
    EXPECT_NE(std::this_thread::get_id(), mainThread);
    sigset_t blocked;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) {
      EXPECT_EQ(::sigismember(&blocked, signal), 1) << signal;
    }
    reply(true, std::nullopt);
  };
  serve([&] {
    const auto app = client();
    EXPECT_TRUE(app->send(ControlRequestKind::restart));
    EXPECT_TRUE(isDone(*app));
  });
  sigset_t blocked;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  EXPECT_EQ(::sigismember(&blocked, SIGHUP), 0);
}

TEST_F(ControlListener, acceptsRepliesFromTheMainThreadInAnyOrder) {
  service.answer = [this](const Reply& reply) { waiting.add(reply); };
  std::vector<std::int64_t> order;
  serve([&] {
    const auto app = client();
    for (std::size_t time = 1; time <= 3; ++time) {
      EXPECT_TRUE(app->send(ControlRequestKind::releaseCharge));
      ASSERT_TRUE(receives(time));
    }
    for (const std::size_t index : {2U, 0U, 1U}) {
      postMain([this, index] { waiting.give(index, index + 1); });
      order.push_back(app->nextReply()->id);
    }
  });
  EXPECT_THAT(order, ElementsAre(3, 1, 2));
}

TEST_F(ControlListener, keepsTheOrderOfAClientsRequests) {
  std::vector<std::string> expected;
  serve([&] {
    const auto app = client();
    for (int number = 0; number < 200; ++number) {
      const std::string settings = std::to_string(number);
      expected.push_back("apply " + settings);
      EXPECT_TRUE(app->send(ControlRequestKind::applySettings, settings));
    }
    for (int number = 0; number < 200; ++number) EXPECT_TRUE(isDone(*app));
  });
  EXPECT_EQ(received(), expected);
}

TEST_F(ControlListener, answersEachOfTenThousandRequestsOnce) {
  constexpr int clients = 4;
  constexpr int each = 2500;
  service.answer = [](const Reply& reply) { postMain([reply] { reply(true, std::nullopt); }); };
  std::array<std::multiset<std::int64_t>, clients> answered;
  serve([&] {
    std::vector<std::thread> threads;
    for (auto& ids : answered) {
      threads.emplace_back([&] {
        const auto app = client();
        std::thread asking([&] {
          for (int time = 0; time < each; ++time)
            EXPECT_TRUE(app->send(ControlRequestKind::applySettings, "{}"));
        });
        for (int time = 0; time < each; ++time) {
          const auto reply = app->nextReply();
          ASSERT_TRUE(reply);
          ids.insert(reply->id);
        }
        asking.join();
        app->closeWriting();
        EXPECT_FALSE(app->nextReply()) << "one too many";
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  EXPECT_EQ(received().size(), std::size_t{clients * each});
  for (const auto& ids : answered) {
    EXPECT_EQ(std::set<std::int64_t>(ids.begin(), ids.end()).size(), std::size_t{each});
    EXPECT_EQ(*ids.rbegin(), each);
  }
}

TEST_F(ControlListener, servesAClientWhileAnotherWaits) {
  service.answer = [this](const Reply& reply) { waiting.add(reply); };
  serve([&] {
    const auto first = client();
    EXPECT_TRUE(first->send(ControlRequestKind::purgeAllData));
    ASSERT_TRUE(receives(1));
    const auto second = client();
    EXPECT_TRUE(second->send(ControlRequestKind::releaseCharge));
    ASSERT_TRUE(receives(2));
    waiting.give(1, 2);
    EXPECT_TRUE(isDone(*second));
    waiting.give(0, 1);
    EXPECT_TRUE(isDone(*first));
  });
}

TEST_F(ControlListener, survivesAClientThatDisconnectsBeforeItsReply) {
  static constexpr std::size_t gone = 20;
  service.answer = [this](const Reply& reply) { waiting.add(reply); };
  serve([&] {
    for (std::size_t time = 1; time <= gone; ++time) {
      EXPECT_TRUE(client()->send(ControlRequestKind::applySettings, "{}"));
      ASSERT_TRUE(receives(time));
    }
    postMain([this] { waiting.give(0, gone); });
    const auto app = client();
    EXPECT_TRUE(app->send(ControlRequestKind::restart));
    ASSERT_TRUE(receives(gone + 1));
    postMain([this] { waiting.give(gone, gone + 1); });
    EXPECT_TRUE(isDone(*app));
  });
}

TEST_F(ControlListener, answersAClientThatClosedItsSide) {
  service.answer = [](const Reply& reply) {
    platform::postMainAfter(20, [reply] { reply(true, std::nullopt); });
  };
  serve([&] {
    const auto app = client();
    EXPECT_TRUE(app->send(ControlRequestKind::restart));
    EXPECT_TRUE(app->send(ControlRequestKind::restart));
    app->closeWriting();
    EXPECT_TRUE(isDone(*app));
    EXPECT_TRUE(isDone(*app));
    EXPECT_FALSE(app->nextReply());
  });
}

// --- Misbehaving clients

TEST_F(ControlListener, waitsForTheOtherHalfOfARequest) {
  const std::string whole = lineOf(named("app")) +
                            lineOf(virtual_mac::ControlRequest{ControlRequestKind::applySettings, 1, 12}) +
                            "{\"limit\":70}";
  serve([&] {
    const auto app = ControlClient::connect(folder.path());
    ASSERT_NE(app, nullptr);
    for (const char byte : whole.substr(0, whole.size() - 1)) {
      EXPECT_TRUE(app->say(std::string_view(&byte, 1)));
      std::this_thread::yield();
    }
    const auto other = client();
    EXPECT_TRUE(other->send(ControlRequestKind::restart));
    EXPECT_TRUE(isDone(*other));
    EXPECT_THAT(received(), ElementsAre("restart"));
    EXPECT_TRUE(app->say("}"));
    EXPECT_TRUE(isDone(*app));
  });
  EXPECT_THAT(received(), ElementsAre("restart", "apply {\"limit\":70}"));
}

TEST_F(ControlListener, dropsHalfARequestWhenItsClientDisconnects) {
  const std::string request = lineOf(virtual_mac::ControlRequest{ControlRequestKind::applySettings, 1, 12});
  serve([&] {
    for (const std::string& half :
         {request + "{\"limit\":", request, request.substr(0, request.size() - 1)}) {
      EXPECT_TRUE(client()->say(half));
    }
    const auto app = client();
    EXPECT_TRUE(app->say(request.substr(0, 9)));
    app->closeWriting();
    EXPECT_FALSE(app->nextReply());
  });
  EXPECT_THAT(received(), IsEmpty());
}

TEST_F(ControlListener, disconnectsAClientThatSendsGarbage) {
  const std::string tooMuch = std::to_string(virtual_mac::largestSettings + 1);
  const std::vector<std::string> garbage{
      "\n",
      "hello\n",
      "[]\n",
      "7\n",
      "{}\n",
      std::string(40, '\0') + "\n",
      std::string(4000, '[') + "\n",
      "{\"id\":1}\n",
      "{\"request\":\"restart\"}\n",
      "{\"id\":\"1\",\"request\":\"restart\"}\n",
      "{\"id\":9223372036854775808,\"request\":\"restart\"}\n",
      "{\"id\":1.5,\"request\":\"restart\"}\n",
      "{\"id\":1,\"request\":7}\n",
      "{\"id\":1,\"request\":\"dance\"}\n",
      "{\"id\":1,\"request\":\"Restart\"}\n",
      "{\"id\":1,\"request\":\"restart\"} {}\n",
      "{\"id\":1,\"request\":\"applySettings\"}\n",
      "{\"id\":1,\"request\":\"applySettings\",\"bytes\":-1}\n",
      "{\"id\":1,\"request\":\"applySettings\",\"bytes\":\"2\"}\n{}",
      "{\"id\":1,\"request\":\"applySettings\",\"bytes\":" + tooMuch + "}\n",
      "{\"id\":1,\"request\":\"applySettings\",\"bytes\":99999999999999999999}\n",
      std::string(virtual_mac::longestControlLine + 1, ' '),
  };
  serve([&] {
    for (const std::string& words : garbage) {
      const auto bad = client();
      EXPECT_TRUE(bad->say(words));
      EXPECT_FALSE(bad->nextReply()) << words;
    }
    const auto app = client();
    EXPECT_TRUE(app->send(ControlRequestKind::restart));
    EXPECT_TRUE(isDone(*app));
  });
  EXPECT_THAT(received(), ElementsAre("restart"));
}

TEST_F(ControlListener, acceptsALineOfTheMaximumLength) {
  std::string line = lineOf(virtual_mac::ControlRequest{ControlRequestKind::restart, 1, 0});
  line.insert(1, std::string(virtual_mac::longestControlLine + 1 - line.size(), ' '));
  serve([&] {
    const auto app = client();
    EXPECT_TRUE(app->say(line));
    EXPECT_TRUE(isDone(*app));
    EXPECT_TRUE(app->say(line.insert(1, " ")));
    EXPECT_FALSE(app->nextReply());
  });
}

TEST_F(ControlListener, acceptsSettingsOfTheMaximumLength) {
  serve([&] {
    const auto app = client();
    EXPECT_TRUE(app->send(ControlRequestKind::applySettings, std::string(virtual_mac::largestSettings, ' ')));
    EXPECT_TRUE(isDone(*app));
  });
}

TEST_F(ControlListener, disconnectsAClientWithoutAnIdentity) {
  serve([&] {
    for (const std::string& words :
         {lineOf(virtual_mac::ControlRequest{ControlRequestKind::restart, 1, 0}), std::string("{}\n"),
          std::string("{\"apple\":1,\"identifier\":\"\",\"team\":\"\"}\n"),
          std::string("{\"apple\":true,\"identifier\":\"\"}\n"),
          std::string("{\"apple\":true,\"identifier\":null,\"team\":\"\"}\n")}) {
      const auto somebody = ControlClient::connect(folder.path());
      ASSERT_NE(somebody, nullptr);
      EXPECT_TRUE(somebody->say(words));
      static_cast<void>(somebody->send(ControlRequestKind::restart));
      EXPECT_FALSE(somebody->nextReply()) << words;
    }
  });
  EXPECT_THAT(received(), IsEmpty());
}

// Otherwise a client that sends requests without end would fill the daemon's memory.
TEST_F(ControlListener, stopsReadingFromAClientWithManyUnansweredRequests) {
  constexpr std::size_t unanswered = 256;
  constexpr std::size_t all = 300;
  const std::string settings(50'000, ' ');  // so long that unread requests overflow the socket's buffer
  service.answer = [this](const Reply& reply) { waiting.add(reply); };
  serve([&] {
    const auto app = client();
    std::atomic<bool> allSent = false;
    std::thread asking([&] {
      for (std::size_t time = 0; time < all; ++time) {
        EXPECT_TRUE(app->send(ControlRequestKind::applySettings, settings));
      }
      allSent = true;
    });
    ASSERT_TRUE(receives(unanswered));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(received().size(), unanswered);
    EXPECT_FALSE(allSent);
    waiting.give(0, 1);
    ASSERT_TRUE(receives(unanswered + 1));
    waiting.give(1, unanswered);
    ASSERT_TRUE(receives(all));
    waiting.give(unanswered, all);
    for (std::size_t time = 0; time < all; ++time) EXPECT_TRUE(isDone(*app));
    asking.join();
  });
}

// The main thread continues although a client does not read its replies.
TEST_F(ControlListener, doesNotWaitForAClientToRead) {
  service.answer = [](const Reply& reply) { postMain([reply] { reply(false, std::string(10'000, 'x')); }); };
  serve([&] {
    const auto silent = client();
    for (int time = 0; time < 256; ++time) EXPECT_TRUE(silent->send(ControlRequestKind::restart));
    ASSERT_TRUE(receives(30));  // more than fits into the socket's buffer
    const auto app = client();
    EXPECT_TRUE(app->send(ControlRequestKind::restart));
    EXPECT_TRUE(app->nextReply());
    for (int time = 0; time < 256; ++time) {
      const auto reply = silent->nextReply();
      ASSERT_TRUE(reply);
      EXPECT_EQ(reply->error, std::string(10'000, 'x'));
    }
  });
}

// --- The requirement

TEST_F(ControlListener, admitsOnlyClientsThatMeetTheRequirement) {
  service.requirement = [] { return goodRequirement; };
  serve([&] {
    for (const char* name : {"wrong-team", "wrong-app", "unsigned"}) {
      const auto stranger = client(name);
      static_cast<void>(stranger->send(ControlRequestKind::purgeAllData));
      EXPECT_FALSE(stranger->nextReply()) << name;
    }
    const auto app = client();
    EXPECT_TRUE(app->send(ControlRequestKind::restart));
    EXPECT_TRUE(isDone(*app));
  });
  EXPECT_THAT(received(), ElementsAre("restart"));
}

TEST_F(ControlListener, admitsEveryClientWithoutARequirement) {
  serve([&] {
    for (const char* name : {"app", "wrong-team", "wrong-app", "unsigned"}) {
      const auto somebody = client(name);
      EXPECT_TRUE(somebody->send(ControlRequestKind::releaseCharge));
      EXPECT_TRUE(isDone(*somebody)) << name;
    }
  });
}

TEST_F(ControlListener, admitsNoClientWithAnInvalidRequirement) {
  const std::vector<std::string> wrong{"", "anchor apple generic", goodRequirement + " ",
                                       goodRequirement.substr(1), goodRequirement.substr(0, 60)};
  std::atomic<std::size_t> connections = 0;
  service.requirement = [&connections, wrong] { return wrong[connections++ % wrong.size()]; };
  serve([&] {
    for (std::size_t time = 0; time < wrong.size(); ++time) {
      const auto app = client();
      static_cast<void>(app->send(ControlRequestKind::restart));
      EXPECT_FALSE(app->nextReply()) << time;
    }
  });
  EXPECT_THAT(received(), IsEmpty());
  EXPECT_EQ(connections, wrong.size());
}

TEST_F(ControlListener, readsTheRequirementForEachConnectionOffTheMainThread) {
  const std::thread::id mainThread = std::this_thread::get_id();
  std::atomic<int> connections = 0;
  service.requirement = [&]() -> std::optional<std::string> {
    EXPECT_NE(std::this_thread::get_id(), mainThread);
    if (++connections == 2) return std::nullopt;
    return goodRequirement;
  };
  serve([&] {
    for (const bool isLetIn : {false, true, false}) {
      const auto stranger = client("unsigned");
      for (int time = 0; time < 2; ++time) {
        static_cast<void>(stranger->send(ControlRequestKind::restart));
        EXPECT_EQ(stranger->nextReply().has_value(), isLetIn);
      }
    }
  });
  EXPECT_EQ(connections, 3);
}

// --- Threads, sockets, processes

std::ptrdiff_t entriesOf(const std::string& directory) {
  const std::filesystem::directory_iterator all(directory);
  return std::distance(begin(all), end(all));
}

TEST_F(ControlListener, leavesNoThreadAndNoDescriptorBehind) {
  std::thread([] {}).join();  // with the first thread of a process a sanitizer may start its own
  const auto before = entriesOf("/proc/self/task");
  serve([&] {
    const auto threads = entriesOf("/proc/self/task");
    EXPECT_EQ(threads, before + 1) << "the service has no thread yet";
    const auto descriptors = entriesOf("/proc/self/fd");
    for (int time = 0; time < 50; ++time) {
      const auto app = client();
      EXPECT_TRUE(app->send(ControlRequestKind::restart));
      if (time % 2 == 0) {
        EXPECT_TRUE(isDone(*app));
      }
    }
    EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/task") == threads; }));
    EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/fd") == descriptors; }));
  });
}

TEST_F(ControlListener, letsClientsAboveItsMaximumWait) {
  constexpr std::size_t room = 64;
  serve([&] {
    std::vector<std::unique_ptr<ControlClient>> clients;
    for (std::size_t number = 0; number < room; ++number) {
      clients.push_back(client());
      EXPECT_TRUE(clients.back()->send(ControlRequestKind::restart));
      EXPECT_TRUE(isDone(*clients.back()));
    }
    const auto late = client();
    EXPECT_TRUE(late->send(ControlRequestKind::purgeAllData));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(received().size(), room);
    clients.pop_back();
    EXPECT_TRUE(isDone(*late));
  });
}

TEST_F(ControlListener, isReachedThroughASocketThatOnlyItsOwnerCanOpen) {
  const mode_t before = ::umask(0);
  serve([&] {
    struct stat found {};
    ASSERT_EQ(::stat((folder.path() + "/" + serviceName).c_str(), &found), 0);
    EXPECT_TRUE(S_ISSOCK(found.st_mode));
    EXPECT_EQ(found.st_mode & 0777U, 0600U);
  });
  ::umask(before);
}

TEST_F(ControlListener, takesOverTheSocketOfADeadProcess) {
  const int descriptor = ::open(folder.path().c_str(), O_PATH | O_DIRECTORY);
  const int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
  const sockaddr_un address = virtual_mac::socketAddressIn(descriptor, serviceName);
  ASSERT_EQ(::bind(stale, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(stale);
  ::close(descriptor);
  EXPECT_EQ(ControlClient::connect(folder.path()), nullptr);
  serve([&] {
    const auto app = client();
    EXPECT_TRUE(app->send(ControlRequestKind::restart));
    EXPECT_TRUE(isDone(*app));
  });
}

TEST_F(ControlListener, leavesTheServiceToTheProcessThatOwnsIt) {
  const int lock = ::open((folder.path() + "/" + serviceName + ".lock").c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(::flock(lock, LOCK_EX), 0);
  serve([&] { EXPECT_EQ(ControlClient::connect(folder.path()), nullptr); });
  // When that process has ended, the next one gets the service.
  ::close(lock);
  serve([&] { EXPECT_NE(client(), nullptr); });
}

TEST_F(ControlListener, isUnreachableWithoutAProcess) {
  EXPECT_EQ(ControlClient::connect(folder.path()), nullptr);
  EXPECT_EQ(ControlClient::connect(folder.path() + "/nowhere"), nullptr);
}

TEST(ControlListenerWithoutAMachine, doesNothing) {
  platform::listenForControl(serviceName, [] { return std::nullopt; }, {});
  postMain([] { platform::stopMain(); });
  platform::runMain();
}

TEST(ControlListenerInLongFolder, isReachableDespiteTheLongPath) {
  const test::ScratchFolder scratch;
  const std::string path = scratch.path() + "/" + std::string(120, 'x') + "/" + std::string(120, 'x');
  std::string reason;
  const auto store = virtual_mac::MachineStore::create(path, test::machineFromNow(), reason);
  ASSERT_NE(store, nullptr) << reason;
  ::setenv("BRISKO_VIRTUAL_MAC", path.c_str(), 1);
  platform::listenForControl(
      serviceName, [] { return std::nullopt; },
      {.applySettings = {}, .purgeAllData = {}, .releaseCharge = {}, .restart = [](const Reply& reply) {
         reply(true, std::nullopt);
       }});
  std::thread clients([&] {
    const auto app = ControlClient::connect(path, named("app"));
    EXPECT_NE(app, nullptr);
    EXPECT_TRUE(app && app->send(ControlRequestKind::restart) && isDone(*app));
    postMain([] { platform::stopMain(); });
  });
  platform::runMain();
  clients.join();
}

}  // namespace
}  // namespace brisko::control_listener_test
