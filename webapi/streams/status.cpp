#include "webapi/streams/status.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "contract/fragments.h"
#include "platform/plat.h"
#include "policy/platform_utils.h"
#include "policy/trans_loading.h"
#include "state/stream_directory.h"
#include "stream/cmaf/cmaf_runs.h"
#include "stream/http_live_stream.h"
#include "util/qmxutils.h"
#include "webapi/access/ticket.h"
#include "webapi/http/number.h"
#include "webapi/streams/adapt_playback.h"
#include "webapi/streams/cmaf_playback.h"
#include "webapi/streams/direct_playback.h"
#include "webapi/streams/recent_streams.h"
#include "webapi/streams/streaming.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;
using LibMirevo::TransLoading;
using libmrv::util::PlatformUtils;
using LibOrvoQMX::HttpLiveStream;

// The memory file into which a transcoder writes its progress.
constexpr char kProgressFile[] = "/memfd:orvo-progress";
constexpr std::streamoff kProgressTail = 1024;

// A stream counts as watched if its last request is at most this old, in seconds.
constexpr time_t kIdle = 30;

// The first child of a process; -1 if it has none.
pid_t ChildOf(pid_t pid) {
  const std::string name = std::to_string(pid);
  std::ifstream children("/proc/" + name + "/task/" + name + "/children");
  pid_t child = -1;
  return children >> child ? child : -1;
}

std::string FindProgress(pid_t pid) {
  std::error_code failure;
  const fs::path descriptors = "/proc/" + std::to_string(pid) + "/fd";
  for (fs::directory_iterator entry(descriptors, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    std::error_code unreadable;
    if (fs::read_symlink(entry->path(), unreadable).string().rfind(kProgressFile, 0) == 0) {
      return entry->path().string();
    }
  }
  return "";
}

// The newest value of `key` ("\nname=") in the progress text, a list of name=value lines; "" if
// there is none.
std::string Newest(const std::string& progress, const std::string& key) {
  const auto found = progress.rfind(key);
  if (found == std::string::npos) {
    return "";
  }
  const auto value = found + key.size();
  return progress.substr(value, progress.find('\n', value) - value);
}

// The number at the beginning of a value; 0 if there is none ("N/A").
double NumberOf(std::string_view value) {
  return TakeDecimal(value).value_or(0);
}

// Adds the transcoder's speed (1 is the film's own speed) and its position in the film.
void AddProgress(pid_t pid, Json::Value& transcoder) {
  // A transcoder that cuts segments has FFmpeg as its child.
  const std::string own = FindProgress(pid);
  std::ifstream file(own.empty() ? FindProgress(ChildOf(pid)) : own,
                     std::ios::binary | std::ios::ate);
  if (!file.is_open()) {
    return;
  }
  const std::streamoff size = file.tellg();
  file.seekg(size > kProgressTail ? size - kProgressTail : 0);
  std::array<char, kProgressTail> buffer{};
  file.read(buffer.data(), buffer.size());
  std::string progress(1, '\n');
  progress.append(buffer.data(), static_cast<size_t>(file.gcount()));
  transcoder["speed"] = NumberOf(Newest(progress, "\nspeed="));
  transcoder["position"] = NumberOf(Newest(progress, "\nout_time_us=")) / 1e6;
}

// The pid of the stream's transcoder; -1 if none runs. In a progressive stream it is the recorded
// monitor; in other kinds it is the monitor's child.
pid_t TranscoderOf(const Ticket& ticket) {
  const pid_t monitor = ticket.Directory().Monitor().value_or(-1);
  return ticket.Kind() == "HTTP" ? monitor : ChildOf(monitor);
}

// Those of all renditions that run.
std::vector<pid_t> TranscodersOf(const Ticket& ticket) {
  std::vector<pid_t> pids;
  if (ticket.Kind() != LibOrvoQMX::kCmafKind) {
    pids.push_back(TranscoderOf(ticket));
    return pids;
  }
  for (const pid_t monitor : LibOrvoQMX::CmafMonitors(ticket.StreamId())) {
    pids.push_back(ChildOf(monitor));
  }
  return pids;
}

// The one that encodes pictures or, without one, any other.
pid_t MainTranscoderOf(const Ticket& ticket) {
  const std::vector<pid_t> pids = TranscodersOf(ticket);
  const LibMirevo::TransLoading registry;
  for (const Json::Value& entry : registry.GetEntries()) {
    if (std::find(pids.begin(), pids.end(), entry["PID"].asInt()) != pids.end()) {
      return entry["PID"].asInt();
    }
  }
  return pids.empty() ? -1 : pids.front();
}

// The processor time and the age of a process and its first child, in seconds.
struct Effort {
  double cpu = 0;
  double age = 0;
};

// The values of a single process; zeros if it has ended.
Effort EffortOf(pid_t pid) {
  std::string line;
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::getline(file, line);
  // The fields after the name, which may contain any text. The first of them is number 3.
  std::istringstream fields(line.substr(std::min(line.rfind(')') + 1, line.size())));
  std::vector<std::string> words{std::istream_iterator<std::string>(fields), {}};
  constexpr size_t kUser = 14 - 3;
  constexpr size_t kSystem = 15 - 3;
  constexpr size_t kStart = 22 - 3;
  timespec now{};
  if (words.size() <= kStart || clock_gettime(CLOCK_BOOTTIME, &now) != 0) {
    return {};
  }
  const auto seconds = [&](size_t field) {
    return NumberOf(words[field]) / static_cast<double>(sysconf(_SC_CLK_TCK));
  };
  return {seconds(kUser) + seconds(kSystem), static_cast<double>(now.tv_sec) - seconds(kStart)};
}

// Adds the processor load over the process's life, like `ps`.
void AddEffort(pid_t pid, Json::Value& transcoder) {
  const Effort own = EffortOf(pid);
  const double cpu = own.cpu + EffortOf(ChildOf(pid)).cpu;
  transcoder["cpu_seconds"] = cpu;
  transcoder["cpu_percent"] = cpu * 100 / std::max(own.age, 1.0);
}

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
  Json::Value transcoder(Json::objectValue);
  AddProgress(TranscoderOf(ticket), transcoder);
  return ticket.StartSeconds() + transcoder["position"].asDouble();
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
  stream["position"] = PositionOf(ticket);
  stream["idle_seconds"] = static_cast<Json::Int64>(idle);
  stream["playing"] = PlatProcAlive(ticket.OwnerPid()) || idle < kIdle;
  return stream;
}

// Describes a running transcoder without its stream's owner.
Json::Value DescribeWork(pid_t pid) {
  Json::Value transcoder(Json::objectValue);
  transcoder["pid"] = pid;
  AddProgress(pid, transcoder);
  AddEffort(pid, transcoder);
  return transcoder;
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
  return description;
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
  data["profile"] = ticket->Record()["profile_key"];
  data["duration"] = ticket->Record()["duration"];
  data["transcoder"] = PlatProcAlive(pid) ? DescribeWork(pid) : Json::Value();
  return Answer::Success(data);
}

}  // namespace webapi
