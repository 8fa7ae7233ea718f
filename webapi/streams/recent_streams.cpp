#include "webapi/streams/recent_streams.h"

#include <ctime>

#include "platform/io.h"
#include "platform/plat.h"
#include "stream/cmaf/warmed_streams.h"
#include "util/file_lock.h"
#include "util/json_utils.h"

namespace webapi {
namespace {

constexpr char kFile[] = "/tmp/Mirevo/recent";
constexpr mode_t kMode = 0600;
constexpr Json::ArrayIndex kMost = 50;

}  // namespace

void RememberStream(const Ticket& ticket, const char* event) {
  if (LibOrvoQMX::IsCmafWarmed(ticket.StreamId())) {
    return;
  }
  const std::string path = orvo::SystemPath(kFile);
  const auto lock = orvo::FileLock::Wait(path + ".lock");
  Json::Value entry(Json::objectValue);
  entry["event"] = event;
  entry["path"] = ticket.Record()["path"];
  entry["account"] = ticket.Parameter("account");
  entry["kind"] = ticket.Kind();
  entry["time"] = static_cast<Json::Int64>(time(nullptr));
  Json::Value list(Json::arrayValue);
  list.append(entry);
  for (const Json::Value& older : RecentStreams()) {
    if (list.size() < kMost) {
      list.append(older);
    }
  }
  orvo::ReplaceFile(path, LibMirevo::FormatJson(list), kMode);
}

Json::Value RecentStreams() {
  Json::Value list;
  const bool isRead = LibMirevo::ReadJsonFromFileWithoutLock(orvo::SystemPath(kFile), list);
  return isRead && list.isArray() ? list : Json::Value(Json::arrayValue);
}

}  // namespace webapi
