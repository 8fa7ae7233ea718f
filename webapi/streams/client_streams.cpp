#include "webapi/streams/client_streams.h"

#include <algorithm>

#include "accounts/attempts.h"
#include "platform/io.h"
#include "util/md5.h"
#include "util/qmxutils.h"
#include "util/state_reading.h"
#include "webapi/access/ticket.h"

namespace webapi {
namespace {

constexpr size_t kLongestList = 65536;

std::string ClientOf(const Request& request) {
  const std::string& account = request.MadeBy().account;
  return account.empty() ? "address " + accounts::ClientOf(request.ClientAddress())
                         : "account " + account;
}

}  // namespace

ClientStreams::ClientStreams(std::string path, const std::string& lines, orvo::FileLock lock)
    : path_(std::move(path)), lock_(std::move(lock)) {
  for (const std::string& id : LibOrvoQMX::StringExplode(lines, "\n")) {
    if (Ticket::Exists(id)) {
      ids_.push_back(id);
    }
  }
}

std::optional<ClientStreams> ClientStreams::Hold(const Request& request) {
  const std::string name = ".of-" + LibMirevo::GetMD5(ClientOf(request));
  auto lock = Ticket::LockFolder(name);
  const std::string path = Ticket::FolderPath() + "/" + name;
  const auto lines = lock.IsHeld() ? orvo::ReadIfThere(path, kLongestList) : std::nullopt;
  return lines ? std::optional(ClientStreams(path, *lines, std::move(lock))) : std::nullopt;
}

void ClientStreams::Add(const std::string& streamId) {
  if (std::find(ids_.begin(), ids_.end(), streamId) == ids_.end()) {
    ids_.push_back(streamId);
  }
  std::string lines;
  for (const std::string& id : ids_) {
    lines += id + "\n";
  }
  orvo::ReplaceFile(path_, lines, 0600);
}

}  // namespace webapi
