#include "webapi/streams/transcoder_work.h"

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

#include "metadata/qmxmetadata.h"
#include "platform/plat.h"
#include "policy/trans_loading.h"
#include "stream/cmaf/cmaf_runs.h"
#include "webapi/choice/profiles.h"
#include "webapi/http/number.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;

// The memory file into which a transcoder writes its progress.
constexpr char kProgressFile[] = "/memfd:orvo-progress";
constexpr std::streamoff kProgressTail = 1024;

// What a transcoder needs to start would count too much in less of the film than this, in seconds.
constexpr double kTellingPart = 10;

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

}  // namespace

pid_t TranscoderOf(const Ticket& ticket) {
  const pid_t monitor = ticket.Directory().Monitor().value_or(-1);
  return ticket.Kind() == "HTTP" ? monitor : ChildOf(monitor);
}

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

double SecondsMade(pid_t transcoder) {
  Json::Value progress(Json::objectValue);
  AddProgress(transcoder, progress);
  return progress["position"].asDouble();
}

Json::Value DescribeWork(pid_t pid) {
  Json::Value transcoder(Json::objectValue);
  transcoder["pid"] = pid;
  AddProgress(pid, transcoder);
  AddEffort(pid, transcoder);
  return transcoder;
}

void LearnFrom(const Ticket& ticket) {
  const pid_t pid = TranscoderOf(ticket);
  if (ticket.Parameter("method") != "transcode" || !PlatProcAlive(pid)) {
    return;
  }
  const Json::Value work = DescribeWork(pid);
  const double position = work["position"].asDouble();
  LibOrvoQMX::QMXMetaData film(ticket.StreamId(), ticket.Kind());
  if (position >= kTellingPart && film.LoadMetaData()) {
    LearnCost({ticket.ProfileKey(), ticket.ProfileValue()}, film,
              work["cpu_seconds"].asDouble() / position);
  }
}

}  // namespace webapi
