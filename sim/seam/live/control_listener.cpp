#include "platform/control_listener.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sim/machine/client_requirement.h"
#include "sim/machine/machine_store.h"
#include "sim/seam/live/control_messages.h"
#include "sim/seam/live/folder_socket.h"
#include "sim/seam/live/readable.h"

namespace brisko::platform {

namespace {

using virtual_mac::ControlRequest;
using virtual_mac::ControlRequestKind;

constexpr int mostConnections = 64;              // at once; further clients wait until one is free
constexpr std::size_t mostUnanswered = 256;      // requests of a client; then reading from it stops
constexpr std::size_t mostTakenAtOnce = 65'536;  // bytes

// The replies to one client that were not sent yet. They come from any thread, also after the client has
// disconnected.
class Outbox {
 public:
  Outbox() : bell_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~Outbox() {
    if (bell_ >= 0) ::close(bell_);
  }
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;

  // Readable once there are replies; -1 when it could not be created.
  [[nodiscard]] int bell() const { return bell_; }

  void put(const std::string& line) {
    {
      const std::lock_guard lock(mutex_);
      lines_ += line;
      ++count_;
    }
    static_cast<void>(::eventfd_write(bell_, 1));
  }

  struct Lines {
    std::string text;
    std::size_t count;
  };
  // Everything added since the last call.
  [[nodiscard]] Lines take() {
    eventfd_t rings = 0;
    static_cast<void>(::eventfd_read(bell_, &rings));
    const std::lock_guard lock(mutex_);
    return {std::exchange(lines_, {}), std::exchange(count_, 0)};
  }

 private:
  int bell_;
  std::mutex mutex_;  // guards the members below
  std::string lines_;
  std::size_t count_ = 0;
};

// One client, served from its first message until it has disconnected and all its requests are answered.
class Connection {
 public:
  // Owns the socket. `requirement` is the requirement on this client, if any.
  Connection(int socket, std::optional<std::string> requirement,
             std::shared_ptr<const ControlRequests> requests)
      : socket_(socket), requirement_(std::move(requirement)), requests_(std::move(requests)) {}
  ~Connection() { ::close(socket_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void serve() {
    disconnected_ = outbox_->bell() < 0;
    while (!isFinished()) {
      wait();
      sendReplies();  // first: this makes room for requests that were received already
      receive();
      while (takeMessage()) continue;
    }
  }

 private:
  // Reading stops at the limit of unanswered requests.
  [[nodiscard]] bool mayRead() const { return !inputEnded_ && unanswered_ < mostUnanswered; }

  [[nodiscard]] bool isFinished() const { return disconnected_ || (inputEnded_ && unanswered_ == 0); }

  void wait() {
    const short wanted = mayRead() ? POLLIN : 0;
    std::array<pollfd, 2> events{{{socket_, wanted, 0}, {outbox_->bell(), POLLIN, 0}}};
    // poll() reports a disconnected client again and again; from then on only its unanswered requests matter.
    if (isGone_ && wanted == 0) events[0].fd = -1;
    static_cast<void>(::poll(events.data(), events.size(), -1));
    isGone_ = isGone_ || (events[0].revents & (POLLHUP | POLLERR)) != 0;
  }

  // Waits here for a client that does not read; on this thread that delays nobody else.
  void sendReplies() {
    const Outbox::Lines lines = outbox_->take();
    unanswered_ -= lines.count;
    std::string_view left = lines.text;
    while (!left.empty()) {
      const ssize_t count = ::send(socket_, left.data(), left.size(), MSG_NOSIGNAL);
      if (count < 0 && errno != EINTR) return;  // the client has disconnected
      if (count > 0) left.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  void receive() {
    if (!mayRead()) return;
    const std::size_t before = received_.size();
    received_.resize(before + mostTakenAtOnce);
    const ssize_t count = ::recv(socket_, received_.data() + before, mostTakenAtOnce, MSG_DONTWAIT);
    received_.resize(before + (count > 0 ? static_cast<std::size_t>(count) : 0));
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) inputEnded_ = true;
  }

  // Takes one message from the received bytes. False when none is complete, or none may be taken now.
  bool takeMessage() {
    if (disconnected_ || unanswered_ >= mostUnanswered) return false;
    const std::size_t length = received_.find('\n');
    if (std::min(length, received_.size()) > virtual_mac::longestControlLine) return disconnect();
    if (length == std::string::npos) return false;
    const std::string line = received_.substr(0, length);
    return isAdmitted_ ? takeRequest(line) : admit(line);
  }

  // Without a requirement every client is admitted, provided that it identifies itself.
  bool admit(const std::string& line) {
    const auto client = virtual_mac::parseClient(line);
    if (!client || (requirement_ && !virtual_mac::meets(*client, *requirement_))) return disconnect();
    isAdmitted_ = true;
    received_.erase(0, line.size() + 1);
    return true;
  }

  bool takeRequest(const std::string& line) {
    const auto request = virtual_mac::parseRequest(line);
    if (!request) return disconnect();
    const std::size_t begin = line.size() + 1;
    if (received_.size() - begin < request->bytes) return false;
    const auto settings = received_.begin() + static_cast<std::ptrdiff_t>(begin);
    deliver(*request, {settings, settings + static_cast<std::ptrdiff_t>(request->bytes)});
    received_.erase(0, begin + request->bytes);
    return true;
  }

  void deliver(const ControlRequest& request, std::vector<std::uint8_t> settings) {
    ++unanswered_;
    Reply reply = [outbox = outbox_, id = request.id](bool done, std::optional<std::string> error) {
      outbox->put(virtual_mac::lineOf(virtual_mac::ControlReply{id, done, std::move(error)}));
    };
    switch (request.kind) {
      case ControlRequestKind::applySettings:
        return requests_->applySettings(std::move(settings), std::move(reply));
      case ControlRequestKind::purgeAllData:
        return requests_->purgeAllData(std::move(reply));
      case ControlRequestKind::releaseCharge:
        return requests_->releaseCharge(std::move(reply));
      case ControlRequestKind::restart:
        return requests_->restart(std::move(reply));
    }
  }

  bool disconnect() {
    disconnected_ = true;
    return false;
  }

  const int socket_;
  const std::optional<std::string> requirement_;
  const std::shared_ptr<const ControlRequests> requests_;
  const std::shared_ptr<Outbox> outbox_ = std::make_shared<Outbox>();
  std::string received_;  // and not processed yet
  std::size_t unanswered_ = 0;
  bool isAdmitted_ = false;
  bool inputEnded_ = false;
  bool isGone_ = false;  // the client has closed its end in both directions
  bool disconnected_ = false;
};

// The listening socket. Clients are accepted on the main thread, and each is served by a thread that ends
// with it. A daemon without clients has only one thread.
class Listener {
 public:
  Listener(int socket, std::function<std::optional<std::string>()> requirement, ControlRequests requests)
      : socket_(socket),
        requirement_(std::move(requirement)),
        requests_(std::make_shared<const ControlRequests>(std::move(requests))) {}

  // Accepts all waiting clients. Returns false when there is no room for another.
  bool acceptClients() {
    while (connections_ < mostConnections) {
      const int client = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client >= 0) {
        serve(client);
      } else if (errno == EAGAIN) {
        return true;
      } else if (errno != EINTR && errno != ECONNABORTED) {
        return false;
      }
    }
    return false;
  }

 private:
  void serve(int client) {
    ++connections_;
    auto talk = [this, client] {
      Connection(client, requirement_(), requests_).serve();
      --connections_;
    };
    // Signals belong to the main thread; a new thread inherits this mask.
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
      std::thread(std::move(talk)).detach();
    } catch (const std::system_error&) {
      ::close(client);
      --connections_;
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  const int socket_;
  const std::function<std::optional<std::string>()> requirement_;
  const std::shared_ptr<const ControlRequests> requests_;
  std::atomic<int> connections_{0};
};

// Only one process at a time may offer the service; it holds a lock that the kernel releases when it ends. A
// socket that exists once the lock is taken was left by a dead process.
bool claim(int folder, const std::string& name) {
  const int lock = ::openat(folder, (name + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lock < 0) return false;
  if (::flock(lock, LOCK_EX | LOCK_NB) == 0) return true;  // kept open until the process ends
  ::close(lock);
  return false;
}

// Returns -1 when it cannot be created.
int listenIn(int folder, const std::string& name) {
  if (!claim(folder, name)) return -1;
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (socket < 0) return -1;
  ::unlinkat(folder, name.c_str(), 0);
  const sockaddr_un address = virtual_mac::socketAddressIn(folder, name);
  // The mode is set before the socket has a name, so nobody else can connect at any moment.
  if (::fchmod(socket, 0600) == 0 &&
      ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      ::listen(socket, SOMAXCONN) == 0) {
    return socket;
  }
  ::close(socket);
  return -1;
}

}  // namespace

void listenForControl(const std::string& name, std::function<std::optional<std::string>()> requirement,
                      ControlRequests requests) {
  const virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return;
  const int folder = ::open(store->folder().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  const int socket = listenIn(folder, name);
  ::close(folder);
  if (socket < 0) return;
  // Its threads may outlive main(), so it is never destroyed.
  auto& listener = *new Listener(socket, std::move(requirement), std::move(requests));
  virtual_mac::whenReadable(socket, [&listener] { return listener.acceptClients(); });
}

}  // namespace brisko::platform
