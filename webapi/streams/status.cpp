#include "webapi/streams/status.h"

#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

#include "contract/fragments.h"
#include "platform/plat.h"
#include "policy/platform_utils.h"
#include "policy/trans_loading.h"
#include "state/stream_directory.h"
#include "stream/cmaf/cmaf_runs.h"
#include "stream/http_live_stream.h"
#include "webapi/access/ticket.h"
#include "webapi/choice/engine_rows.h"
#include "webapi/cluster/balancer_client.h"
#include "webapi/cluster/draining.h"
#include "webapi/streams/adapt_playback.h"
#include "webapi/streams/client_report.h"
#include "webapi/streams/cmaf_playback.h"
#include "webapi/streams/direct_playback.h"
#include "webapi/streams/recent_streams.h"
#include "webapi/streams/streaming.h"
#include "webapi/streams/transcoder_work.h"

namespace webapi {
namespace {

using LibMirevo::TransLoading;
using libmrv::util::PlatformUtils;
using LibOrvoQMX::HttpLiveStream;

// A stream counts as watched if its last request is at most this old, in seconds.
constexpr time_t kIdle = 30;

// The number of the last requested piece; 0 before the first request.
int64_t LastPiece(const Ticket& ticket) {
  return std::max<int64_t>(ticket.Directory().LastAskedFor(), 0);
}

// The viewer's approximate position in seconds.
double PositionOf(const Ticket& ticket) {
  if (ticket.Kind() == kDirectKind) {
    return DirectPosition(ticket);
  }
  if (ticket.Kind() == "HLS") {
    HttpLiveStream stream(ticket.StreamId());
    const auto asked = static_cast<int>(LastPiece(ticket));
    return std::max(stream.CalculateSeekTime(asked), 0) / 1000.0;
  }
  if (ticket.Kind() == LibOrvoQMX::kCmafKind) {
    return CmafPosition(ticket);
  }
  if (ticket.Kind() == "SS") {
    return static_cast<double>(LastPiece(ticket) * orvo::kFragmentSeconds);
  }
  return ticket.StartSeconds() + SecondsMade(TranscoderOf(ticket));
}

Json::Value DescribeStream(const Ticket& ticket) {
  const Json::Value& record = ticket.Record();
  const time_t idle = std::max<time_t>(time(nullptr) - ticket.LastUse(), 0);
  Json::Value stream(Json::objectValue);
  stream["stream_id"] = ticket.StreamId();
  stream["kind"] = ticket.Kind();
  stream["path"] = record["path"];
  stream["account"] = ticket.Parameter("account");
  stream["profile"] = record["profile_key"];
  stream["method"] = ticket.Parameter("method");
  stream["start"] = ticket.StartSeconds();
  stream["times"] = ticket.Times();
  stream["client"] = ClientReportOf(ticket);
  stream["position"] = PositionOf(ticket);
  stream["idle_seconds"] = static_cast<Json::Int64>(idle);
  stream["playing"] = PlatProcAlive(ticket.OwnerPid()) || idle < kIdle;
  return stream;
}

Json::Value DescribeTranscoder(const Ticket& ticket, pid_t pid, const Json::Value& registered) {
  Json::Value transcoder = DescribeWork(pid);
  transcoder["stream_id"] = ticket.StreamId();
  transcoder["kind"] = "remux";
  for (const Json::Value& entry : registered) {
    if (entry["PID"].asInt() == pid) {
      transcoder["kind"] = entry["hardware_transcode"] == true ? "hardware" : "software";
    }
  }
  return transcoder;
}

Json::Value DescribeVolumes() {
  std::vector<PlatVolume> volumes;
  VolumeList(volumes);
  Json::Value list(Json::arrayValue);
  for (const PlatVolume& volume : volumes) {
    Json::Value& entry = list.append(Json::Value(Json::objectValue));
    entry["path"] = volume.mountPath;
    entry["free"] = static_cast<Json::UInt64>(volume.freeBytes);
    entry["total"] = static_cast<Json::UInt64>(volume.totalBytes);
    entry["writable"] = volume.writable;
  }
  return list;
}

Json::Value DescribePlatform() {
  PlatformUtils& platform = PlatformUtils::GetInst();
  Json::Value description(Json::objectValue);
  description["profiles"] = platform.GetTransPlatformName();
  description["hardware"] = platform.IsSupportHWTranscode();
  description["hardware_enabled"] = platform.IsHWSettingEnabled();
  description["engines"] = DescribeEngines();
  return description;
}

// May the stream start to encode pictures? It may replace its own transcoder.
bool CanEncode(const Ticket& ticket) {
  TransLoading registry;
  const std::vector<pid_t> own = TranscodersOf(ticket);
  const Json::Value& entries = registry.GetEntries();
  return registry.TransEnable(false) ||
         std::any_of(entries.begin(), entries.end(), [&](const Json::Value& entry) {
           return std::find(own.begin(), own.end(), entry["PID"].asInt()) != own.end();
         });
}

}  // namespace

Answer DescribeStatus() {
  Json::Value data(Json::objectValue);
  Json::Value registered;
  {
    const TransLoading registry;
    registered = registry.GetEntries();
    data["limits"]["software"] = registry.GetLimit(false);
    data["limits"]["hardware"] = registry.GetLimit(true);
  }
  data["streams"] = Json::Value(Json::arrayValue);
  data["transcoders"] = Json::Value(Json::arrayValue);
  for (const std::string& id : Ticket::All()) {
    const auto ticket = Ticket::Read(id);
    if (!ticket) {
      continue;
    }
    data["streams"].append(DescribeStream(*ticket));
    for (const pid_t pid : TranscodersOf(*ticket)) {
      if (PlatProcAlive(pid)) {
        data["transcoders"].append(DescribeTranscoder(*ticket, pid, registered));
      }
    }
  }
  data["recent"] = RecentStreams();
  data["volumes"] = DescribeVolumes();
  data["platform"] = DescribePlatform();
  data["boxes"] = CountBoxes();
  return Answer::Success(data);
}

Room RoomForTranscoders() {
  TransLoading registry;
  const unsigned limit = registry.GetLimit(false);
  const unsigned running = registry.GetEntries().size();
  return {limit, limit - std::min(limit, running),
          !registry.TransEnable(false) && !registry.TransEnable(true)};
}

Answer DescribeHealth(const Request& request) {
  const Room room = RoomForTranscoders();
  const bool isDraining = IsDraining();
  Json::Value data(Json::objectValue);
  data["limit"] = room.limit;
  data["free"] = room.free;
  data["streams"] = static_cast<Json::UInt64>(CountStreams());
  data["draining"] = isDraining;
  const bool asksForReadiness = !request.Text("ready").empty();
  if (asksForReadiness ? isDraining : room.isFull) {
    return (isDraining ? Answer::Failure(kBusy, "This server lets its films run out.")
                       : Answer::Failure("TransEnable"))
        .AddData(data);
  }
  return Answer::Success(data);
}

Answer DescribeStreamState(const Request& request) {
  Answer refusal = Answer::Failure(kInternal);
  const auto ticket = FindStream(request, refusal);
  if (!ticket) {
    return refusal;
  }
  const pid_t pid = MainTranscoderOf(*ticket);
  Json::Value data(Json::objectValue);
  data["method"] = ticket->Parameter("method");
  data["why"] = ticket->Parameter("why");
  if (ticket->Kind() == LibOrvoQMX::kCmafKind) {
    data["not_copied"] = WhyCmafIsNotCopied(*ticket);
  }
  data["profile"] = ticket->Record()["profile_key"];
  data["duration"] = ticket->Record()["duration"];
  data["times"] = ticket->Times();
  data["transcoder"] = PlatProcAlive(pid) ? DescribeWork(pid) : Json::Value();
  data["can_encode"] = CanEncode(*ticket);
  return Answer::Success(data);
}

}  // namespace webapi
