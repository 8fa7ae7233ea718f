#include "webapi/status.h"

#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "platform/plat.h"
#include "policy/platform_utils.h"
#include "policy/trans_loading.h"
#include "util/qmxutils.h"
#include "webapi/ticket.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;
using LibMirevo::TransLoading;
using libmrv::util::PlatformUtils;

// The file in memory into which a transcoder writes its progress.
constexpr char kProgressFile[] = "/memfd:orvo-progress";
constexpr std::streamoff kProgressTail = 1024;

// A stream whose last request is younger than this is being watched, in seconds.
constexpr time_t kIdle = 30;

// The first child of a process; -1 without any.
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

// The newest value behind `key` ("\nname=") in the progress text, a list of name=value lines; ""
// without one.
std::string Newest(const std::string& progress, const std::string& key) {
  const auto found = progress.rfind(key);
  if (found == std::string::npos) {
    return "";
  }
  const auto value = found + key.size();
  return progress.substr(value, progress.find('\n', value) - value);
}

// Adds how fast the transcoder works (1 is the film's own speed) and where in the film it is.
void AddProgress(pid_t pid, Json::Value& transcoder) {
  // A transcoder that cuts segments has FFmpeg as a child of its own.
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
  transcoder["speed"] = std::strtod(Newest(progress, "\nspeed=").c_str(), nullptr);
  transcoder["position"] = std::strtod(Newest(progress, "\nout_time_us=").c_str(), nullptr) / 1e6;
}

// The stream's transcoder; -1 when none runs. That of a progressive stream is what "monitor.pid"
// names, that of another kind a child of the monitor there.
pid_t TranscoderOf(const Ticket& ticket) {
  const pid_t monitor = PlatReadPidFile(ticket.Folder() + "/monitor.pid");
  return ticket.Kind() == "HTTP" ? monitor : ChildOf(monitor);
}

Json::Value DescribeStream(const Ticket& ticket) {
  const Json::Value& record = ticket.Record();
  Json::Value stream(Json::objectValue);
  stream["stream_id"] = ticket.StreamId();
  stream["kind"] = ticket.Kind();
  stream["path"] = record["path"];
  stream["profile"] = record["profile_key"];
  stream["start"] = ticket.StartSeconds();
  stream["playing"] = PlatProcAlive(ticket.OwnerPid()) || time(nullptr) - ticket.LastUse() < kIdle;
  return stream;
}

Json::Value DescribeTranscoder(const Ticket& ticket, pid_t pid, const Json::Value& registered) {
  Json::Value transcoder(Json::objectValue);
  transcoder["pid"] = pid;
  transcoder["stream_id"] = ticket.StreamId();
  transcoder["kind"] = "remux";
  for (const Json::Value& entry : registered) {
    if (entry["PID"].asInt() == pid) {
      transcoder["kind"] = entry["hardware_transcode"] == true ? "hardware" : "software";
    }
  }
  AddProgress(pid, transcoder);
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
    const auto ticket = Ticket::Take(id);
    if (!ticket) {
      continue;
    }
    data["streams"].append(DescribeStream(*ticket));
    const pid_t pid = TranscoderOf(*ticket);
    if (PlatProcAlive(pid)) {
      data["transcoders"].append(DescribeTranscoder(*ticket, pid, registered));
    }
  }
  data["volumes"] = DescribeVolumes();
  data["platform"] = DescribePlatform();
  return Answer::Success(data);
}

}  // namespace webapi
