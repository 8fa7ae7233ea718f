#include "webapi/streams/recent_streams.h"

#include <ctime>
#include <optional>

#include "platform/io.h"
#include "platform/plat.h"
#include "stream/cmaf/warmed_streams.h"
#include "util/file_lock.h"
#include "util/json_utils.h"
#include "util/state_reading.h"

namespace webapi {
namespace {

constexpr char kFile[] = "/tmp/Mirevo/recent";
constexpr mode_t kMode = 0600;
constexpr Json::ArrayIndex kMost = 50;

// Nothing if the list cannot be read now. A damaged one counts as empty: it tells the past only.
std::optional<Json::Value> Load() {
  Json::Value list(Json::arrayValue);
  const auto reading = orvo::ReadStateJson(orvo::SystemPath(kFile), list);
  if (reading == orvo::JsonReading::kUnreadable) {
    return std::nullopt;
  }
  return list.isArray() ? list : Json::Value(Json::arrayValue);
}

}  // namespace

void RememberStream(const Ticket& ticket, const char* event) {
  if (LibOrvoQMX::IsCmafWarmed(ticket.StreamId())) {
    return;
  }
  const std::string path = orvo::SystemPath(kFile);
  const auto lock = orvo::FileLock::Wait(path + ".lock");
  const auto known = lock.IsHeld() ? Load() : std::nullopt;
  if (!known) {
    return;
  }
  Json::Value entry(Json::objectValue);
  entry["event"] = event;
  entry["path"] = ticket.Record()["path"];
  entry["account"] = ticket.Parameter("account");
  entry["kind"] = ticket.Kind();
  entry["time"] = static_cast<Json::Int64>(time(nullptr));
  Json::Value list(Json::arrayValue);
  list.append(entry);
  for (const Json::Value& older : *known) {
    if (list.size() < kMost) {
      list.append(older);
    }
  }
  orvo::ReplaceFile(path, LibMirevo::FormatJson(list), kMode);
}

Json::Value RecentStreams() {
  return Load().value_or(Json::Value(Json::arrayValue));
}

}  // namespace webapi
