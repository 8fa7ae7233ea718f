#include "stream/smooth/smooth_fragments.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include "state/stream_watch.h"
#include "util/number.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

using Clock = std::chrono::steady_clock;
using orvo::kTicksPerFragment;
using orvo::kTicksPerSecond;
using std::chrono::milliseconds;

// A request waits for a transcoder that is at most this far behind.
constexpr int64_t kReach = 50 * kTicksPerSecond;
// The latest start that counts. Calculations with it do not overflow.
constexpr int64_t kLatest = std::numeric_limits<int64_t>::max() / 4;
// The longest part of an id.
constexpr size_t kPartLength = 127;

constexpr std::array kMarkers = {"video=", "audio="};

int64_t InRange(int64_t start) {
  return std::clamp(start, -kLatest, kLatest);
}

int64_t TicksOf(int64_t seconds) {
  constexpr int64_t kLatestSecond = kLatest / kTicksPerSecond;
  return std::clamp(seconds, -kLatestSecond, kLatestSecond) * kTicksPerSecond;
}

// The text after the marker: "12" for "Fragments(video=12)" and "video=". Nothing if `text` lacks
// the marker.
std::optional<std::string> TextBehind(const std::string& text, const std::string& marker) {
  const size_t found = text.find(marker);
  if (found == std::string::npos) {
    return std::nullopt;
  }
  const size_t begin = found + marker.size();
  return text.substr(begin, text.find(')', begin) - begin);
}

// The latest start of the fragments of one type in a directory; nothing if there are none.
std::optional<int64_t> LatestStart(const std::string& directory, const std::string& type) {
  const std::string marker = "Fragments(" + type;
  std::optional<int64_t> latest;
  std::error_code failure;
  std::filesystem::directory_iterator entry(directory, failure);
  for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
    const auto digits = TextBehind(entry->path().filename().string(), marker);
    if (digits) {
      latest = std::max(latest.value_or(-kLatest), InRange(LeadingNumber(*digits)));
    }
  }
  return latest;
}

}  // namespace

bool TakeApart(const std::string& id, std::string& start, std::string& type, std::string& quality) {
  const std::vector<std::string> parts = StringExplode(id, "/");
  if (parts.size() != 2) {
    return false;
  }
  quality = parts[0];
  const std::string name = parts[1].substr(0, kPartLength);
  for (const char* marker : kMarkers) {
    if (const auto digits = TextBehind(name, marker); digits) {
      start = *digits;
      type = marker;
    }
  }
  return true;
}

FragmentPlace::FragmentPlace(const StreamDirectory& directory, const orvo::FragmentId& fragment)
    : id(fragment.Text()),
      type(std::string(orvo::NameOf(fragment.track)) + "="),
      folder(directory.FragmentPath(orvo::FragmentFolder(fragment.rate))),
      start(InRange(fragment.start)) {}

FragmentPlace::FragmentPlace(const StreamDirectory& directory, const std::string& text) : id(text) {
  std::string digits;
  std::string quality;
  if (TakeApart(text, digits, type, quality) && IsPlainName(quality)) {
    folder = directory.FragmentPath(quality);
  }
  start = InRange(LeadingNumber(digits));
}

bool FragmentPlace::IsPlain() const {
  const size_t slash = id.find('/');
  return slash != std::string::npos && id.find('\0') == std::string::npos &&
         IsPlainName(id.substr(0, slash)) && IsPlainName(id.substr(slash + 1));
}

int64_t FragmentPlace::StartSecond() const {
  return start / kTicksPerSecond;
}

SmoothFragments::SmoothFragments(StreamDirectory directory) : directory_(std::move(directory)) {}

std::string SmoothFragments::PathOf(const FragmentPlace& place) const {
  return directory_.FragmentPath(place.id);
}

bool SmoothFragments::IsThere(const FragmentPlace& place) const {
  return VerifyFileExist(PathOf(place), 0);
}

bool SmoothFragments::NeedsSeek(const FragmentPlace& place) const {
  const auto recorded = directory_.SeekTime().Number();
  if (!recorded && place.start == 0) {
    return true;
  }
  const int64_t seek = TicksOf(recorded.value_or(0));
  if (recorded && place.start == seek) {
    return false;
  }
  const int64_t newest = LatestStart(place.folder, place.type).value_or(seek);
  return place.start > newest + kReach || place.start < seek;
}

bool SmoothFragments::IsComplete(const FragmentPlace& place, unsigned lookAhead) const {
  if (place.start % kTicksPerFragment != 0) {
    return true;
  }
  const auto latest = LatestStart(place.folder, place.type);
  return latest && *latest >= place.start + kTicksPerFragment * (1 + int64_t{lookAhead});
}

bool SmoothFragments::IsUnderWay() const {
  return directory_.SeekTime().IsLocked() || directory_.IsMonitored();
}

SmoothFragments::Outcome SmoothFragments::Await(const FragmentPlace& place) const {
  // A complete fragment needs no watch.
  if (IsComplete(place, 0)) {
    return Outcome::kComplete;
  }
  if (!IsUnderWay() && IsThere(place)) {
    return Outcome::kNobodyMakesIt;
  }
  const Clock::time_point end = Clock::now() + kFragmentTimeout;
  StreamWatch watch(directory_.Path());
  Clock::time_point lastUnderWay = Clock::now();
  for (;;) {
    // The transcoder makes these directories, and a restart removes them.
    watch.Add(directory_.FragmentsPath());
    watch.Add(std::filesystem::path(PathOf(place)).parent_path());
    const orvo::UniqueFd monitor = OpenRunningProcess(directory_.Monitor().value_or(-1));
    const bool isUnderWay = IsUnderWay();
    if (isUnderWay) {
      lastUnderWay = Clock::now();
    }
    const auto quiet = Clock::now() - lastUnderWay;
    if (IsComplete(place, 0)) {
      return Outcome::kComplete;
    }
    if (!isUnderWay && (quiet >= kSettled || IsThere(place))) {
      return Outcome::kNobodyMakesIt;
    }
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    if (left.count() <= 0) {
      return Outcome::kTimeout;
    }
    const auto untilSettled = std::chrono::ceil<milliseconds>(kSettled - quiet);
    watch.Wait(monitor,
               static_cast<int>(std::min(left, isUnderWay ? kLookAgain : untilSettled).count()));
  }
}

}  // namespace LibOrvoQMX
