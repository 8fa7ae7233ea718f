// The segments of an HLS stream: when a request may have one, and when the transcoder has to start
// anew for it. Members of the stream.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>

#include "platform/plat.h"
#include "state/stream_lock.h"
#include "state/stream_watch.h"
#include "stream/http_live_stream.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A transcoder that is at most this many segments behind is waited for.
constexpr int kReach = 4;

// Below the largest int, so that a segment's successor has a number too.
int ParseNumber(const std::string& text) {
  const long number = std::strtol(text.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long>(number, std::numeric_limits<int>::min(),
                                           std::numeric_limits<int>::max() - 1));
}

// Is `file` there, and younger than `reference`, which is there too?
bool IsYounger(const std::string& file, const std::string& reference) {
  struct stat one {};
  struct stat other {};
  if (stat(file.c_str(), &one) != 0 || stat(reference.c_str(), &other) != 0) {
    return false;
  }
  return one.st_mtim.tv_sec > other.st_mtim.tv_sec || (one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
                                                       one.st_mtim.tv_nsec > other.st_mtim.tv_nsec);
}

}  // namespace

std::string HttpLiveStream::GetSegmentTsPath(int fragment) const {
  char name[32];
  snprintf(name, sizeof(name), "%s-%05d.ts", "slice", fragment);
  return GetQMXFileFullPath(name);
}

int HttpLiveStream::CalculateSeekTime(int fragment) {
  if (fragment < 0) {
    return -1;
  }
  if (IsPreAnalysisAvailable()) {
    return m_planner.GetSeekTime(static_cast<unsigned>(fragment));
  }
  const int64_t start = int64_t{fragment} * SegmentLength() * 1000;
  return start <= std::numeric_limits<int>::max() ? static_cast<int>(start) : -1;
}

double HttpLiveStream::GetSegmentTimeDelta(int fragment) const {
  return static_cast<double>(m_seekTime - int64_t{fragment} * SegmentLength() * 1000) / 1000.0;
}

int HttpLiveStream::GetSeekTimeInMillisecond() const {
  return m_seekTime;
}

std::string HttpLiveStream::WriteSequence() {
  const std::string path = GetQMXFileFullPath("request_sequence");
  // Without it two requests could take their times in one order and write them in the other, and
  // both be the latest.
  const StreamLock lock(path, 0666);
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    return "";
  }
  char text[48];
  snprintf(text, sizeof(text), "%lld.%09ld", static_cast<long long>(now.tv_sec), now.tv_nsec);
  m_sequence = text;
  SaveFile(path, m_sequence);
  return m_sequence;
}

bool HttpLiveStream::CheckSequence() const {
  // Compared as texts.
  return m_sequence.empty() || m_sequence >= ReadFile(GetQMXFileFullPath("request_sequence"));
}

bool HttpLiveStream::HasSegment(int fragment) const {
  return VerifyFileExist(GetSegmentTsPath(fragment), 0);
}

bool HttpLiveStream::IsTransAndSegNeedToRestart(const std::string& fragment) const {
  if (m_streamId.empty() || fragment.empty()) {
    return false;
  }
  const int64_t number = ParseNumber(fragment);
  const std::string seekTime = ReadFile(GetQMXFileFullPath("seek_time"));
  if (!seekTime.empty()) {
    const int64_t start = ParseNumber(seekTime);
    if (start <= number && number <= start + kReach) {
      return false;
    }
  }
  if (HasSegment(static_cast<int>(number))) {
    return false;
  }
  if (IsFFmpegRun()) {
    return !HasSegment(static_cast<int>(std::max<int64_t>(number - kReach, 0)));
  }
  return true;
}

bool HttpLiveStream::VerifyFragmentIsReady(const std::string& fragment) const {
  if (fragment.empty()) {
    return false;
  }
  const int number = ParseNumber(fragment);
  // Asked first: a transcoder that ends between two questions has completed what it leaves.
  const bool isRunning = IsFFmpegRun();
  if (!HasSegment(number)) {
    return false;
  }
  return !isRunning || HasSegment(number + 1);
}

// Is there nobody left who could produce another segment? The latest restart has named its monitor,
// and that one has ended.
bool HttpLiveStream::IsPipelineOver() const {
  const std::string path = GetQMXFileFullPath("monitor.pid");
  if (!IsYounger(path, GetQMXFileFullPath("request_sequence"))) {
    return false;
  }
  // Read after the look at its age, so that it is that monitor's. Empty while it is being written.
  const std::string monitor = ReadFile(path);
  return !monitor.empty() && !PlatProcAlive(ParseNumber(monitor));
}

std::string HttpLiveStream::ReadFragment(const std::string& fragment) {
  if (m_streamId.empty() || m_streamKind.empty() || m_profileValue.empty() || fragment.empty()) {
    return "";
  }
  const int number = ParseNumber(fragment);
  // No watch for a segment that is there.
  if (VerifyFragmentIsReady(fragment)) {
    return GetSegmentTsPath(number);
  }
  const std::string directory = GetQMXFileFullPath("");
  const Clock::time_point end = Clock::now() + kFragmentTimeout;
  const StreamWatch watch(directory);
  Clock::time_point lastRunning = Clock::now();
  for (;;) {
    const orvo::UniqueFd monitor =
        OpenRunningProcess(ParseNumber(ReadFile(GetQMXFileFullPath("monitor.pid"))));
    const bool isOvertaken = !CheckSequence();
    if (!IsPipelineOver()) {
      lastRunning = Clock::now();
    }
    const bool isOver = Clock::now() - lastRunning >= kSettled;
    // A segment whose transcoder a newer request has just stopped may be half. Its successor tells.
    if (VerifyFragmentIsReady(fragment) && (!isOvertaken || HasSegment(number + 1))) {
      return GetSegmentTsPath(number);
    }
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    if (isOvertaken || isOver || left.count() <= 0 || !VerifyFileExist(directory, 0)) {
      return "";
    }
    watch.Wait(monitor, static_cast<int>(std::min(left, kLookAgain).count()));
  }
}

}  // namespace LibOrvoQMX
