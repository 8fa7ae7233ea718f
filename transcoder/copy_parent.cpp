#include "transcoder/copy_parent.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "contract/copies.h"
#include "platform/confinement.h"
#include "platform/io.h"
#include "platform/local_message.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "platform/process_launch.h"
#include "transcoder/av_functions.h"
#include "transcoder/child_stream.h"
#include "transcoder/cmaf_packets.h"
#include "transcoder/copy_text.h"
#include "transcoder/sound_graph.h"

namespace orvo::transcoder {
namespace {

// A transcoder that finds no place makes its copy itself.
constexpr size_t kMostClients = 64;

// What a client has asked for. The descriptors belong to the message.
struct Task {
  CopyWork work;
  LocalMessage message;
};

std::optional<Task> ReceiveTask(const UniqueFd& connection) {
  auto message = ReceiveLocally(connection);
  auto work = message ? ParseCopyWork(message->text) : std::nullopt;
  const size_t files = work && std::holds_alternative<FilmCopy>(*work) ? 3 : 2;
  const bool isWhole = work && message->files.size() == files;
  return isWhole ? std::optional(Task{*std::move(work), *std::move(message)}) : std::nullopt;
}

// Runs in the process of the copy. Returns its exit code.
int Do(Task& task) {
  auto& files = task.message.files;
  std::vector<int> kept;
  for (const UniqueFd& file : files) {
    kept.push_back(file.Get());
  }
  CloseAllBut(kept);
  const auto* const copy = std::get_if<FilmCopy>(&task.work);
  return copy != nullptr ? CopyFilm(*copy, std::move(files[0]), files[1].Get(), files[2].Get())
                         : WriteCmafPackets(std::get<CmafRequest>(task.work), std::move(files[0]),
                                            files[1].Get());
}

// The confinement of every copy. It is prepared before this process loses sight of its settings.
class CopyConfinement {
 public:
  CopyConfinement() : confinement_(Job::kTranscoder, {}) {
    options_.streams = StandardStreams::kKept;
    options_.parentDeath.signal = SIGKILL;
    confinement_.AddTo(options_);
  }
  const LaunchOptions& Options() const { return options_; }

 private:
  Confinement confinement_;
  LaunchOptions options_;
};

class Client {
 public:
  explicit Client(UniqueFd connection) : connection_(std::move(connection)) {}

  // What to wait for, two entries.
  void AddTo(std::vector<pollfd>& events) const {
    events.push_back({isLeaving_ ? -1 : connection_.Get(), POLLIN | POLLRDHUP, 0});
    events.push_back({copy_ ? copy_.Descriptor().Get() : -1, POLLIN, 0});
  }

  // Does what these entries ask for. Returns false when the client is done.
  bool Look(const pollfd* events, const LaunchOptions& options) {
    if (events[1].revents != 0) {
      Tell(copy_.Wait());
      return false;
    }
    if (events[0].revents == 0) {
      return true;
    }
    return copy_ ? Leave() : (events[0].revents & (POLLRDHUP | POLLHUP)) == 0 && Begin(options);
  }

 private:
  void Tell(int number) const { SendLocally(connection_, std::to_string(number)); }

  // The exit code is still told.
  bool Leave() {
    isLeaving_ = true;
    copy_.Signal(SIGKILL);
    return true;
  }

  bool Begin(const LaunchOptions& options) {
    auto task = ReceiveTask(connection_);
    copy_ = task ? Fork([&] { return Do(*task); }, options) : Process();
    if (copy_) {
      Tell(kCopyBegun);
    }
    return static_cast<bool>(copy_);
  }

  UniqueFd connection_;
  Process copy_;
  bool isLeaving_ = false;
};

class Server {
 public:
  Server(UniqueFd listener, const LaunchOptions& options)
      : listener_(std::move(listener)), options_(options) {}

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
      if (clients_[i].Look(&events[1 + 2 * i], options_)) {
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
  const LaunchOptions& options_;
  std::vector<Client> clients_;
};

bool HasLibraries() {
  return AvFunctions::Get() != nullptr && SoundGraph::IsAvailable();
}

// 0 or an errno.
int EnterOwnConfinement() {
  Confinement own(Job::kTranscoder, {});
  return own.EnterAsParent();
}

}  // namespace

int ServeCopies() {
  if (!HasLibraries()) {
    return kExitFailure;
  }
  const CopyConfinement confinement;
  UniqueFd listener = ListenLocally(SystemPath(kCopiesSocket));
  const int error = listener.IsOpen() ? EnterOwnConfinement() : errno;
  if (error != 0) {
    ORVO_LOG("Copies start without a common parent: %s", strerror(error));
    return kExitFailure;
  }
  Server server(std::move(listener), confinement.Options());
  for (;;) {
    server.Step();
  }
}

}  // namespace orvo::transcoder
