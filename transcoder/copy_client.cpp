#include "transcoder/copy_client.h"

#include <poll.h>
#include <sys/socket.h>

#include <charconv>
#include <csignal>
#include <optional>
#include <string>
#include <utility>

#include "contract/copies.h"
#include "platform/local_message.h"
#include "platform/plat.h"
#include "transcoder/child_stream.h"
#include "transcoder/copy_parent.h"

namespace orvo::transcoder {
namespace {

// A fork takes some milliseconds; after this time the copy is made here.
constexpr int kPatienceMilliseconds = 500;

class RemoteCopy : public Worker {
 public:
  explicit RemoteCopy(UniqueFd connection) : connection_(std::move(connection)) {}

  int Descriptor() const override { return connection_.Get(); }

  void End(int /*signal*/) override { shutdown(connection_.Get(), SHUT_WR); }

  // A parent that ended has killed the copy.
  int Wait() override { return Answer(-1).value_or(kExitSignal + SIGKILL); }

  // The next number that the parent tells in this time.
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

std::unique_ptr<Worker> AskForCopy(const std::string& work, const std::vector<int>& files) {
  UniqueFd connection = ConnectLocally(SystemPath(kCopiesSocket));
  if (!connection.IsOpen() || !SendLocally(connection, work, files)) {
    return nullptr;
  }
  auto worker = std::make_unique<RemoteCopy>(std::move(connection));
  return worker->Answer(kPatienceMilliseconds) == kCopyBegun ? std::move(worker) : nullptr;
}

}  // namespace orvo::transcoder
