#include "transcoder/cmaf_plan.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <optional>

#include "platform/confined_call.h"
#include "platform/io.h"
#include "platform/log.h"
#include "platform/media_file.h"
#include "transcoder/child_stream.h"
#include "transcoder/film_packets.h"
#include "transcoder/film_range.h"

namespace orvo::transcoder {
namespace {

constexpr int64_t kSecond = kPlanClock;
constexpr std::array<int64_t, 3> kFirstLengths = {1 * kSecond, 1 * kSecond, 2 * kSecond};
constexpr int64_t kLength = 4 * kSecond;
// A cut may be this much earlier than wanted, and the last segment is not shorter than twice that.
constexpr int64_t kEarly = kSecond / 4;
constexpr int64_t kLongestGap = 30 * kSecond;
constexpr int64_t kHighestRate = 61;
constexpr int64_t kLowestRate = 5;

constexpr size_t kLongestText = 1 << 20;
constexpr size_t kLooks = 12;          // at key frames, all over the film
constexpr size_t kPicturesToSee = 32;  // for their order
constexpr AVRational kClock = {1, static_cast<int>(kPlanClock)};

// --- Planning ---

int64_t LengthOf(size_t number) {
  return number < kFirstLengths.size() ? kFirstLengths[number] : kLength;
}

// The end of the segment that begins at `start`; nothing if it is the last one.
std::optional<int64_t> NextKey(const std::vector<int64_t>& keys, int64_t start, int64_t length) {
  const auto key = std::lower_bound(keys.begin(), keys.end(), start + length - kEarly);
  return key == keys.end() ? std::nullopt : std::optional(*key);
}

}  // namespace

bool HasUsableKeys(const FilmOutline& film) {
  if (!film.hasPicture || film.keys.empty() || film.isOpen || film.keys.front() > kSecond / 2) {
    return false;
  }
  int64_t last = 0;
  for (const int64_t key : film.keys) {
    if (key - last > kLongestGap) {
      return false;
    }
    last = key;
  }
  return film.end - last <= kLongestGap;
}

CmafPlan PlanCmaf(const FilmOutline& film) {
  const bool usesKeys = HasUsableKeys(film);
  CmafPlan plan{film.rate, film.scale, usesKeys ? film.delay : 0, {0}};
  for (size_t number = 0;; ++number) {
    const int64_t start = plan.cuts.back();
    const int64_t wanted = start + LengthOf(number);
    const auto next = usesKeys ? NextKey(film.keys, start, LengthOf(number))
                               : std::optional(plan.TimeOf(plan.PictureAt(wanted)));
    if (!next || film.end - *next < 2 * kEarly) {
      break;
    }
    plan.cuts.push_back(*next);
  }
  plan.cuts.push_back(std::max(film.end, plan.cuts.back() + plan.Frame()));
  return plan;
}

// --- Reading the film ---

namespace {

int64_t ToTicks(const AvFunctions& av, int64_t time, AVRational clock) {
  return av.av_rescale_q(time, clock, kClock);
}

void ReadRate(const AVStream& track, FilmOutline& film) {
  const AVRational rate = track.avg_frame_rate.num > 0 ? track.avg_frame_rate : track.r_frame_rate;
  if (rate.num <= 0 || rate.den <= 0 || rate.num / rate.den < kLowestRate) {
    return;
  }
  film.rate = rate.num;
  film.scale = rate.den;
  while (film.rate / film.scale >= kHighestRate) {
    film.scale *= 2;
  }
}

// The film's length: that of its pictures, if it is known.
int64_t ReadEnd(const AvFunctions& av, FilmPackets& packets, int track) {
  const AVStream* const pictures = track >= 0 ? &packets.Track(track) : nullptr;
  if (pictures != nullptr && pictures->duration > 0) {
    const int64_t start = pictures->start_time == AV_NOPTS_VALUE ? 0 : pictures->start_time;
    return ToTicks(av, start + pictures->duration, pictures->time_base) -
           ToTicks(av, packets.FilmStart(), AV_TIME_BASE_Q);
  }
  return ToTicks(av, std::max<int64_t>(packets.Format().duration, 0), AV_TIME_BASE_Q);
}

// H.264 and HEVC come with start codes in some files. Such pictures are not copied.
bool IsForMp4(const AVCodecParameters& codec) {
  const bool hasUnits = codec.codec_id == AV_CODEC_ID_H264 || codec.codec_id == AV_CODEC_ID_HEVC;
  return !hasUnits || (codec.extradata_size > 0 && codec.extradata[0] == 1);
}

// The key frame of the track that is shown at or before this time. Nothing at the film's end.
std::optional<FilmPacket> KeyAt(FilmPackets& packets, int track, double seconds) {
  if (!packets.Seek(track, seconds)) {
    return std::nullopt;
  }
  auto packet = packets.Next();
  while (packet && !packet->IsKey()) {
    packet = packets.Next();
  }
  return packet;
}

// How many pictures are stored ahead of one that is shown before them.
size_t ReadOrder(FilmPackets& packets) {
  std::vector<int64_t> shown;
  for (auto packet = packets.Next(); packet && shown.size() < kPicturesToSee;
       packet = packets.Next()) {
    shown.push_back(packet->packet->pts);
  }
  return DecodingTimes::ReorderedIn(shown);
}

// Adds the key frames of the container's index. It knows when they are decoded or when they are
// shown; looks at some of them tell which, and whether each one begins a closed group.
void ReadKeys(const AvFunctions& av, FilmPackets& packets, int track, FilmOutline& film) {
  packets.Choose({track});
  const auto first = KeyAt(packets, track, 0);
  if (!first) {
    return;
  }
  film.isOpen = !first->isIdr;
  const AVStream& stream = packets.Track(track);
  std::vector<int64_t> times;
  const int count = av.avformat_index_get_entries_count(&stream);
  for (int i = 0; i < count; ++i) {
    const AVIndexEntry* const entry =
        av.avformat_index_get_entry(const_cast<AVStream*>(&stream), i);
    if ((entry->flags & AVINDEX_KEYFRAME) != 0) {
      times.push_back(entry->timestamp);
    }
  }
  if (times.empty()) {
    return;
  }
  const int64_t later = first->packet->pts - times.front();
  const size_t step = std::max<size_t>(times.size() / kLooks, 1);
  for (size_t i = 0; i < times.size(); i += step) {
    constexpr double kRounding = 0.002;
    const int64_t shown = times[i] + later;
    const double seconds = static_cast<double>(shown) * av_q2d(stream.time_base);
    const auto key = KeyAt(packets, track, seconds + kRounding);
    film.isOpen = film.isOpen || (key && !key->isIdr);
    if (!key || std::abs(key->packet->pts - shown) > 1) {
      return;
    }
  }
  for (const int64_t time : times) {
    const int64_t shown = ToTicks(av, time + later, stream.time_base);
    if (film.keys.empty() || shown > film.keys.back()) {
      film.keys.push_back(std::max<int64_t>(shown, 0));
    }
  }
}

std::optional<FilmOutline> ReadOutline(const std::string& path) {
  UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  const AvFunctions* const av = AvFunctions::Get();
  const auto packets =
      file.IsOpen() && av != nullptr ? FilmPackets::Open(std::move(file)) : nullptr;
  if (packets == nullptr) {
    return std::nullopt;
  }
  FilmOutline film;
  const int track = packets->FirstOf(AVMEDIA_TYPE_VIDEO);
  film.hasPicture = track >= 0;
  film.end = ReadEnd(*av, *packets, track);
  if (film.hasPicture) {
    ReadRate(packets->Track(track), film);
  }
  if (film.hasPicture && packets->StatesTimes() && IsForMp4(*packets->Track(track).codecpar)) {
    ReadKeys(*av, *packets, track, film);
    packets->Seek(track, 0);
    const CmafPlan rate{film.rate, film.scale, 0, {}};
    film.delay = static_cast<int64_t>(ReadOrder(*packets)) * rate.Frame();
  }
  return film;
}

const char* RangeOf(const std::string& path) {
  const auto range = FindHighRange(path);
  if (!range) {
    return kCmafStandardRange;
  }
  return range->transfer == AVCOL_TRC_ARIB_STD_B67 ? kCmafHlg : kCmafPq;
}

// The plan, behind a line about the pictures.
std::string DescribeFilm(const std::string& path) {
  const auto film = ReadOutline(path);
  if (!film || film->end <= 0) {
    return "";
  }
  const char* const copy = !film->hasPicture      ? kCmafNoPicture
                           : HasUsableKeys(*film) ? kCmafCopied
                           : film->isOpen         ? kCmafOpenGroups
                                                  : kCmafNoIndex;
  const char* const range = film->hasPicture ? RangeOf(path) : kCmafStandardRange;
  return std::string(copy) + " " + range + "\n" + PlanCmaf(*film).Text();
}

}  // namespace

int WriteCmafPlan(const CmafRequest& request) {
  const MediaFile film = MediaFile::Open(request.film);
  const auto text = film.IsOpen() ? CallConfined(Job::kProbe, {.files = {film.Get()}}, kLongestText,
                                                 [&] { return DescribeFilm(film.Address()); })
                                  : std::nullopt;
  const size_t line = text ? text->find('\n') : std::string::npos;
  if (line == std::string::npos || !CmafPlan::Parse(std::string_view(*text).substr(line + 1))) {
    ORVO_LOG("The segments of [%s] cannot be planned", request.film.c_str());
    return kExitFailure;
  }
  const bool isWritten =
      ReplaceFile(request.folder + "/" + kCmafPicturesFile, text->substr(0, line)) &&
      ReplaceFile(request.folder + "/" + kCmafPlanFile, text->substr(line + 1));
  return isWritten ? 0 : kExitFailure;
}

}  // namespace orvo::transcoder
