#include "state/stream_directory.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <tuple>
#include <utility>

#include "contract/stream_files.h"
#include "platform/io.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "util/number.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

constexpr mode_t kMonitorLockMode = 0660;
constexpr size_t kRequestedDigits = 7;

bool IsLater(const timespec& one, const timespec& other) {
  return one.tv_sec > other.tv_sec || (one.tv_sec == other.tv_sec && one.tv_nsec > other.tv_nsec);
}

// Each request is a process, so requests came in the order in which these started.
struct Asker {
  int64_t start = 0;  // in clock ticks since the machine did
  int64_t pid = 0;    // tells the order within a tick

  bool IsAfter(const Asker& other) const {
    return std::tie(start, pid) > std::tie(other.start, other.pid);
  }

  static Asker This() {
    return {static_cast<int64_t>(orvo::StartOf(getpid()).value_or(0)), getpid()};
  }

  // 0 for what is missing.
  static Asker Parse(const std::string& text) {
    const auto space = text.find(' ');
    return {LeadingNumber(text),
            space == std::string::npos ? 0 : LeadingNumber(text.substr(space))};
  }

  std::string Text() const { return std::to_string(start) + ' ' + std::to_string(pid); }

  // A record from before the machine started last may be of a later time.
  bool IsPossible() const {
    timespec now{};
    return clock_gettime(CLOCK_BOOTTIME, &now) == 0 && start / sysconf(_SC_CLK_TCK) <= now.tv_sec;
  }
};

}  // namespace

StreamDirectory::StreamDirectory(const std::string& kind, std::string streamId)
    : streamId_(std::move(streamId)),
      path_(kind.empty() || streamId_.empty() ? "" : StreamPath(kind, streamId_)) {}

std::string StreamDirectory::FilePath(const std::string& name) const {
  return path_.empty() || name.empty() ? path_ : path_ + "/" + name;
}

StateFile StreamDirectory::File(const char* name) const {
  return StateFile(FilePath(name));
}

bool StreamDirectory::Exists() const {
  return VerifyFileExist(path_, 0);
}

std::string StreamDirectory::RecordPath() const {
  return FilePath("video_metadata");
}

StateFile StreamDirectory::Film() const {
  return File("film");
}

StateFile StreamDirectory::AudioId() const {
  return File("audio_id");
}

StateFile StreamDirectory::AudioFormat() const {
  return File("audio_format");
}

StateFile StreamDirectory::MonitorPid() const {
  return File("monitor.pid");
}

bool StreamDirectory::RecordMonitor(pid_t pid) const {
  if (const auto start = orvo::StartOf(pid)) {
    File("monitor.start").Replace(std::to_string(pid) + ' ' + std::to_string(*start));
  }
  return MonitorPid().Write(pid);
}

StreamDirectory::MonitorRecord StreamDirectory::ReadMonitor() const {
  const auto text = MonitorPid().TryRead();
  const auto recorded = File("monitor.start").TryRead();
  if (!text || !recorded) {
    return {std::nullopt, false};
  }
  if (text->empty()) {
    return {};
  }
  const pid_t pid = LeadingInt(*text);
  const auto start = orvo::StartOf(pid);
  const std::string number = std::to_string(pid) + ' ';
  // Other programs may record a pid alone.
  const bool isOther =
      start && recorded->rfind(number, 0) == 0 && *recorded != number + std::to_string(*start);
  return {isOther ? std::nullopt : std::optional(pid)};
}

std::optional<pid_t> StreamDirectory::Monitor() const {
  return ReadMonitor().pid;
}

std::optional<orvo::Process> StreamDirectory::OpenMonitor() const {
  const MonitorRecord record = ReadMonitor();
  if (!record.isReadable) {
    return std::nullopt;
  }
  const pid_t pid = record.pid.value_or(-1);
  orvo::Process process = pid < 1 ? orvo::Process() : orvo::Process::Open(pid);
  // Now that the process is held, its number cannot pass to another one. Without its start, it may
  // be another one already.
  const bool isHeld = process && orvo::StartOf(pid) && Monitor() == pid;
  return isHeld ? std::move(process) : orvo::Process();
}

bool StreamDirectory::IsMonitored() const {
  const MonitorRecord record = ReadMonitor();
  return !record.isReadable || PlatProcAlive(record.pid.value_or(-1));
}

StreamLock StreamDirectory::LockMonitor() const {
  return StreamLock(FilePath("filelock"), kMonitorLockMode);
}

StateFile StreamDirectory::SeekTime() const {
  return File("seek_time");
}

StateFile StreamDirectory::RequestSequence() const {
  return File("request_sequence");
}

bool StreamDirectory::IsMonitorOfLatestRestart() const {
  const auto recorded = MonitorPid().Written();
  const auto asked = RequestSequence().Written();
  return recorded && asked && IsLater(*recorded, *asked);
}

StateFile StreamDirectory::ClientReport() const {
  return File("client_report");
}

StateFile StreamDirectory::AppleTvStatus() const {
  return File("appletv_status");
}

void StreamDirectory::MarkAccess() const {
  orvo::TouchFile(FilePath("access_status"));
}

std::optional<unsigned long> StreamDirectory::SecondsSinceAccess() const {
  const auto accessed = File("access_status").Written();
  if (!accessed) {
    return std::nullopt;
  }
  // time() may lag behind the clock that the file system reads. At the turn of a second the
  // difference would then be negative, which is the greatest of all.
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<unsigned long>(now.tv_sec) - static_cast<unsigned long>(accessed->tv_sec);
}

time_t StreamDirectory::LastAccess() const {
  const auto accessed = File("access_status").Written();
  return accessed ? accessed->tv_sec : 0;
}

// The width is fixed, so one write replaces the older number. Nothing needs to be cut off, and no
// write waits for the disk.
void StreamDirectory::AskFor(int64_t number) const {
  const StateFile file = File("asked_by");
  const StreamLock lock = file.Lock();
  const Asker latest = Asker::Parse(file.Read());
  const Asker own = Asker::This();
  if (latest.IsAfter(own) && latest.IsPossible()) {
    return;
  }
  file.Write(own.Text());
  WriteRequested(number);
}

void StreamDirectory::WriteRequested(int64_t number) const {
  const std::string path = FilePath(orvo::kRequestedFile);
  std::string text = std::to_string(number);
  text.insert(0, kRequestedDigits - std::min(text.size(), kRequestedDigits), '0');
  const orvo::UniqueFd file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!file.IsOpen() || !orvo::WriteAll(file.Get(), text)) {
    orvo::ReplaceFile(path, text);
  }
}

void StreamDirectory::AskForByte(int64_t offset) const {
  orvo::ReplaceFile(FilePath(orvo::kRequestedFile), std::to_string(offset));
}

int64_t StreamDirectory::LastAskedFor() const {
  return File(orvo::kRequestedFile).Number().value_or(-1);
}

std::optional<timespec> StreamDirectory::LastAsked() const {
  return File(orvo::kRequestedFile).Written();
}

std::string StreamDirectory::SegmentPath(int number) const {
  char name[32];
  snprintf(name, sizeof(name), orvo::kSegmentPattern, number);
  return FilePath(name);
}

std::string StreamDirectory::SegmentPattern() const {
  return FilePath(orvo::kSegmentPattern);
}

void StreamDirectory::RemoveSegments() const {
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(path_, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (fnmatch(orvo::kAnySegment, entry->path().filename().c_str(), 0) == 0) {
      unlink(entry->path().c_str());
    }
  }
}

std::string StreamDirectory::IndexPath() const {
  return FilePath(streamId_ + ".m3u8");
}

std::string StreamDirectory::VideoPlaylistPath() const {
  return FilePath("video.m3u8");
}

std::string StreamDirectory::SubtitleTemplatePath() const {
  return FilePath("subtitle.m3u8.tpl");
}

std::string StreamDirectory::SubtitlePlaylistPath(const std::string& name) const {
  return FilePath(name + ".subtitle.m3u8");
}

std::string StreamDirectory::KeptPlanPath() const {
  return FilePath("pre_analysis");
}

std::string StreamDirectory::ManifestPath() const {
  return FilePath(orvo::kManifestFile);
}

std::string StreamDirectory::FragmentsPath() const {
  return FilePath(orvo::kFragmentsFolder);
}

std::string StreamDirectory::FragmentPath(const std::string& id) const {
  return FragmentsPath() + "/" + id;
}

}  // namespace LibOrvoQMX
