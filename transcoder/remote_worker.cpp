#include "transcoder/remote_worker.h"

#include <poll.h>
#include <sys/socket.h>

#include <charconv>
#include <csignal>
#include <optional>
#include <string>
#include <utility>

#include "platform/local_message.h"
#include "platform/plat.h"
#include "transcoder/child_stream.h"
#include "transcoder/fork_server.h"

namespace orvo::transcoder {
namespace {

// A fork takes some milliseconds; after this time the client does the work itself.
constexpr int kPatienceMilliseconds = 500;

class RemoteWorker : public Worker {
 public:
  explicit RemoteWorker(UniqueFd connection) : connection_(std::move(connection)) {}

  int Descriptor() const override { return connection_.Get(); }

  void End(int /*signal*/) override { shutdown(connection_.Get(), SHUT_WR); }

  // A server that ended has killed the process.
  int Wait() override { return Answer(-1).value_or(kExitSignal + SIGKILL); }

  // The next number that the server tells in this time.
  std::optional<int> Answer(int milliseconds) const {
    pollfd event{connection_.Get(), POLLIN, 0};
    if (poll(&event, 1, milliseconds) <= 0) {
      return std::nullopt;
    }
    const auto message = ReceiveLocally(connection_);
    int number = 0;
    const char* const begin = message ? message->text.data() : "";
    const char* const end = begin + (message ? message->text.size() : 0);
    const bool isNumber = std::from_chars(begin, end, number).ptr == end && begin != end;
    return isNumber ? std::optional(number) : std::nullopt;
  }

 private:
  UniqueFd connection_;
};

}  // namespace

std::unique_ptr<Worker> AskForFork(const char* socket, const std::string& text,
                                   const std::vector<int>& files) {
  UniqueFd connection = ConnectLocally(SystemPath(socket));
  if (!connection.IsOpen() || !SendLocally(connection, text, files)) {
    return nullptr;
  }
  auto worker = std::make_unique<RemoteWorker>(std::move(connection));
  return worker->Answer(kPatienceMilliseconds) == kForkBegun ? std::move(worker) : nullptr;
}

}  // namespace orvo::transcoder
