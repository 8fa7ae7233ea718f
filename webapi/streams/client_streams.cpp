#include "webapi/streams/client_streams.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "platform/io.h"
#include "util/md5.h"
#include "util/qmxutils.h"
#include "util/state_reading.h"
#include "webapi/access/ticket.h"

namespace webapi {
namespace {

constexpr size_t kLongestList = 65536;
constexpr char kBeginning[] = ".of-";

}  // namespace

ClientStreams::ClientStreams(std::string path, const std::string& lines, orvo::FileLock lock)
    : path_(std::move(path)), lock_(std::move(lock)) {
  for (const std::string& id : LibOrvoQMX::StringExplode(lines, "\n")) {
    if (Ticket::Exists(id)) {
      ids_.push_back(id);
    }
  }
}

void ClientStreams::ForgetEmpty(time_t before) {
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(Ticket::FolderPath(), failure)) {
    const std::string name = entry.path().filename();
    struct stat status {};
    const bool isOld = name.starts_with(kBeginning) && stat(entry.path().c_str(), &status) == 0 &&
                       status.st_mtime < before;
    const auto list = isOld ? HoldFile(name) : std::nullopt;
    if (list && list->ids_.empty()) {
      unlink(list->path_.c_str());
    }
  }
}

std::optional<ClientStreams> ClientStreams::Hold(const Request& request) {
  return HoldFile(kBeginning + LibMirevo::GetMD5(request.MadeBy().client));
}

std::optional<ClientStreams> ClientStreams::HoldFile(const std::string& name) {
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
