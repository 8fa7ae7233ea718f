#include "transcoder/fork_server.h"

#include <poll.h>

#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "platform/process.h"

namespace orvo::transcoder {
namespace {

// A transcoder that finds no place does the work itself.
constexpr size_t kMostClients = 64;

class Client {
 public:
  explicit Client(UniqueFd connection) : connection_(std::move(connection)) {}

  // What to wait for, two entries.
  void AddTo(std::vector<pollfd>& events) const {
    events.push_back({isLeaving_ ? -1 : connection_.Get(), POLLIN | POLLRDHUP, 0});
    events.push_back({process_ ? process_.Descriptor().Get() : -1, POLLIN, 0});
  }

  // Does what these entries ask for. Returns false when the client is done.
  bool Look(const pollfd* events, const ForkWorkReader& read) {
    if (events[1].revents != 0) {
      const int code = process_.Wait();
      if (!isLeaving_) {
        Tell(code);
      }
      return false;
    }
    if (events[0].revents == 0) {
      return true;
    }
    return process_ ? Leave() : (events[0].revents & (POLLRDHUP | POLLHUP)) == 0 && Begin(read);
  }

 private:
  void Tell(int number) const { SendLocally(connection_, std::to_string(number)); }

  // Nobody waits while the kernel takes the process apart: with FFmpeg's memory that takes 20 ms,
  // and the process does nothing more.
  bool Leave() {
    isLeaving_ = true;
    process_.Signal(SIGKILL);
    Tell(kExitSignal + SIGKILL);
    return true;
  }

  bool Begin(const ForkWorkReader& read) {
    auto message = ReceiveLocally(connection_);
    const auto work = message ? read(*std::move(message)) : nullptr;
    if (work != nullptr) {
      LaunchOptions options = work->Options();
      options.parentDeath.signal = SIGKILL;
      process_ = Fork([&] { return work->Do(); }, options);
    }
    if (process_) {
      Tell(kForkBegun);
    }
    return static_cast<bool>(process_);
  }

  UniqueFd connection_;
  Process process_;
  bool isLeaving_ = false;
};

class Server {
 public:
  Server(UniqueFd listener, const ForkWorkReader& read)
      : listener_(std::move(listener)), read_(read) {}

  void Step() {
    const bool hasPlace = clients_.size() < kMostClients;
    std::vector<pollfd> events = {{hasPlace ? listener_.Get() : -1, POLLIN, 0}};
    for (const Client& client : clients_) {
      client.AddTo(events);
    }
    if (poll(events.data(), events.size(), -1) < 0) {
      return;
    }
    std::vector<Client> rest;
    for (size_t i = 0; i < clients_.size(); ++i) {
      if (clients_[i].Look(&events[1 + 2 * i], read_)) {
        rest.push_back(std::move(clients_[i]));
      }
    }
    clients_ = std::move(rest);
    UniqueFd connection = events[0].revents != 0 ? AcceptLocally(listener_) : UniqueFd();
    if (connection.IsOpen()) {
      clients_.emplace_back(std::move(connection));
    }
  }

 private:
  UniqueFd listener_;
  const ForkWorkReader& read_;
  std::vector<Client> clients_;
};

}  // namespace

void ServeForks(UniqueFd listener, const ForkWorkReader& read) {
  Server server(std::move(listener), read);
  for (;;) {
    server.Step();
  }
}

}  // namespace orvo::transcoder
