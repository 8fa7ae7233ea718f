// The fragments of a Smooth Streaming stream: when a request may have one, and when the transcoder
// has to start anew for it. Members of the stream, and logging under its name.
#define ORVO_LOG_SOURCE "smooth_stream.cpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <optional>
#include <system_error>

#include "platform/log.h"
#include "platform/plat.h"
#include "state/stream_lock.h"
#include "state/stream_watch.h"
#include "stream/smooth_stream.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// In units of 100 ns.
constexpr int64_t kSecond = 10000000;
constexpr int64_t kFragment = 5 * kSecond;
// A transcoder that is at most this far behind is waited for.
constexpr int64_t kReach = 50 * kSecond;
// Nothing is later, so that any reckoning from it fits.
constexpr int64_t kLatest = std::numeric_limits<int64_t>::max() / 4;
// What a part of an id may tell.
constexpr size_t kPartLength = 127;

int64_t ParseUnits(const std::string& digits, int64_t unit) {
  const int64_t latest = kLatest / unit;
  return unit * std::clamp<int64_t>(std::strtoll(digits.c_str(), nullptr, 10), -latest, latest);
}

int64_t ParseStart(const std::string& digits) {
  return ParseUnits(digits, 1);
}

// "12" of "Fragments(video=12)" with the marker "video="; nothing where `text` lacks the marker.
std::optional<std::string> TextBehind(const std::string& text, const std::string& marker) {
  const size_t found = text.find(marker);
  if (found == std::string::npos) {
    return std::nullopt;
  }
  const size_t begin = found + marker.size();
  return text.substr(begin, text.find(')', begin) - begin);
}

// The latest start among the fragments of one type in a directory; nothing where there are none.
std::optional<int64_t> LatestStart(const std::string& directory, const std::string& type) {
  const std::string marker = "Fragments(" + type;
  std::optional<int64_t> latest;
  std::error_code failure;
  std::filesystem::directory_iterator entry(directory, failure);
  for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
    const auto digits = TextBehind(entry->path().filename().string(), marker);
    if (digits) {
      latest = std::max(latest.value_or(-kLatest), ParseStart(*digits));
    }
  }
  return latest;
}

// Does an id name a file one directory below "smooth", and nothing else?
bool IsPlainId(const std::string& fragment) {
  const size_t slash = fragment.find('/');
  return slash != std::string::npos && fragment.find('\0') == std::string::npos &&
         IsPlainName(fragment.substr(0, slash)) && IsPlainName(fragment.substr(slash + 1));
}

// Where a fragment lies. One whose id cannot be read lies nowhere, and starts at 0.
struct FragmentPlace {
  FragmentPlace(const SmoothStream& stream, const std::string& fragment) {
    std::string digits;
    std::string quality;
    if (stream.ParseFragId(fragment, digits, type, quality) && IsPlainName(quality)) {
      directory = stream.GetQMXFileFullPath("smooth/" + quality);
    }
    start = ParseStart(digits);
  }
  int64_t start = 0;
  std::string type;
  std::string directory;
};

}  // namespace

bool SmoothStream::ParseFragId(const std::string& fragment, std::string& start, std::string& type,
                               std::string& quality) const {
  const std::vector<std::string> parts = StringExplode(fragment, "/");
  if (parts.size() != 2) {
    return false;
  }
  quality = parts[0];
  const std::string name = parts[1].substr(0, kPartLength);
  for (const char* marker : {"video=", "audio="}) {
    if (const auto digits = TextBehind(name, marker); digits) {
      start = *digits;
      type = marker;
    }
  }
  return true;
}

long SmoothStream::CalculateSeekTime(const std::string& fragment) const {
  const long seconds = static_cast<long>(FragmentPlace(*this, fragment).start / kSecond);
  SaveFile(GetQMXFileFullPath("seek_time"), std::to_string(seconds));
  return seconds;
}

bool SmoothStream::IsNeedToSeek(const std::string& fragment) const {
  if (m_streamId.empty() || fragment.empty()) {
    return false;
  }
  const FragmentPlace place(*this, fragment);
  const std::string seekTime = ReadFile(GetQMXFileFullPath("seek_time"));
  if (seekTime.empty() && place.start == 0) {
    return true;
  }
  const int64_t seek = ParseUnits(seekTime, kSecond);
  if (!seekTime.empty() && place.start == seek) {
    return false;
  }
  const int64_t newest = LatestStart(place.directory, place.type).value_or(seek);
  return place.start > newest + kReach || place.start < seek;
}

// Is the fragment's successor there, or is there no such fragment?
bool SmoothStream::IsComplete(const std::string& fragment, unsigned lookAhead) const {
  const FragmentPlace place(*this, fragment);
  if (place.start % kFragment != 0) {
    return true;
  }
  const auto latest = LatestStart(place.directory, place.type);
  return latest && *latest >= place.start + kFragment * (1 + int64_t{lookAhead});
}

bool SmoothStream::VerifyFragmentIsReady(const std::string& fragment, unsigned lookAhead) const {
  if (m_streamId.empty() || fragment.empty()) {
    return false;
  }
  return !IsFFmpegRun() || IsComplete(fragment, lookAhead);
}

// Does a transcoder run, or is a request about to start one?
bool SmoothStream::IsUnderWay() const {
  return IsStreamLocked(GetQMXFileFullPath("seek_time")) || IsFFmpegRun();
}

std::string SmoothStream::ReadFragment(const std::string& fragment) {
  if (m_streamId.empty() || m_streamKind.empty() || m_profileValue.empty() ||
      !IsPlainId(fragment)) {
    ORVO_LOG("Bad parameter");
    return "";
  }
  if (!AwaitFragment(fragment)) {
    ORVO_LOG("ReadFragment: timeout file[%s]", fragment.c_str());
    return "";
  }
  return GetQMXFileFullPath("smooth/" + fragment);
}

// That nothing runs counts for a fragment which is not there only once it has lasted.
bool SmoothStream::AwaitFragment(const std::string& fragment) const {
  const std::string path = GetQMXFileFullPath("smooth/" + fragment);
  // No watch for a fragment that is there.
  if (IsComplete(fragment, 0) || (!IsUnderWay() && VerifyFileExist(path, 0))) {
    return true;
  }
  const Clock::time_point end = Clock::now() + kFragmentTimeout;
  StreamWatch watch(GetQMXFileFullPath(""));
  Clock::time_point lastUnderWay = Clock::now();
  for (;;) {
    // Each is made by the transcoder, and gone with a restart.
    watch.Add(GetQMXFileFullPath("smooth"));
    watch.Add(std::filesystem::path(path).parent_path());
    const orvo::UniqueFd monitor =
        OpenRunningProcess(PlatReadPidFile(GetQMXFileFullPath("monitor.pid")));
    const bool isUnderWay = IsUnderWay();
    if (isUnderWay) {
      lastUnderWay = Clock::now();
    }
    const auto quiet = Clock::now() - lastUnderWay;
    if (IsComplete(fragment, 0) ||
        (!isUnderWay && (quiet >= kSettled || VerifyFileExist(path, 0)))) {
      return true;
    }
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    if (left.count() <= 0) {
      return false;
    }
    const auto untilSettled = std::chrono::ceil<milliseconds>(kSettled - quiet);
    watch.Wait(monitor,
               static_cast<int>(std::min(left, isUnderWay ? kLookAgain : untilSettled).count()));
  }
}

}  // namespace LibOrvoQMX
