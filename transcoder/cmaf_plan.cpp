#include "transcoder/cmaf_plan.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <memory>
#include <optional>

#include "platform/confined_call.h"
#include "platform/io.h"
#include "platform/log.h"
#include "platform/media_file.h"
#include "transcoder/child_stream.h"
#include "transcoder/film_clock.h"
#include "transcoder/film_packets.h"
#include "transcoder/film_range.h"
#include "transcoder/parameter_sets.h"

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
  if (!film.hasPicture || film.keys.empty() || film.isOpen || film.changes ||
      film.keys.front() > kSecond / 2) {
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

bool HasUnits(const AVCodecParameters& codec) {
  return codec.codec_id == AV_CODEC_ID_H264 || codec.codec_id == AV_CODEC_ID_HEVC;
}

// Other codecs are never copied, so their key frames do not matter.
bool IsForMp4(const AVCodecParameters& codec) {
  return HasUnits(codec) || codec.codec_id == AV_CODEC_ID_AV1 || codec.codec_id == AV_CODEC_ID_VP9;
}

// H.264 and HEVC come with start codes in some files. FFmpeg turns those of a transport stream into
// lengths (cmaf_run.cpp). Others are not copied.
bool HasLengths(const AVCodecParameters& codec) {
  return !HasUnits(codec) || (codec.extradata_size > 0 && codec.extradata[0] == 1);
}

bool IsFormat(FilmPackets& packets, std::string_view name) {
  return packets.Format().iformat->name == name;
}

// Can the pictures be copied if all key frames are known?
bool MayCopy(FilmPackets& packets, int track) {
  const AVCodecParameters& codec = *packets.Track(track).codecpar;
  const bool isFitting = packets.StatesTimes() || IsFormat(packets, "flv");
  return IsForMp4(codec) &&
         (IsFormat(packets, "mpegts") ? HasUnits(codec) : isFitting && HasLengths(codec));
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

// Notes what a look at a key frame tells.
void Look(const FilmPackets& packets, const FilmPacket& first, const FilmPacket& key,
          FilmOutline& film) {
  const AVCodecParameters& codec = *packets.Track(key.Track()).codecpar;
  film.isOpen = film.isOpen || !key.isIdr;
  film.changes = film.changes || AnnouncesChange(*key.packet) ||
                 (!HasLengths(codec) && SequenceSets(codec.codec_id, *key.packet) !=
                                            SequenceSets(codec.codec_id, *first.packet));
}

// What the film's first pictures tell. Not every film can be entered at its start again.
struct Beginning {
  std::optional<FilmPacket> key;  // the first key frame
  size_t reordered = 0;           // how many pictures are stored ahead of one that is shown before
};

Beginning ReadBeginning(FilmPackets& packets) {
  Beginning beginning;
  std::vector<int64_t> shown;
  for (auto packet = packets.Next(); packet && shown.size() < kPicturesToSee;
       packet = packets.Next()) {
    if (beginning.key || packet->IsKey()) {
      shown.push_back(packet->packet->pts);
    }
    if (!beginning.key && packet->IsKey()) {
      beginning.key = std::move(packet);
    }
  }
  beginning.reordered = DecodingTimes::ReorderedIn(shown);
  return beginning;
}

// Adds the key frames of the container's index. It knows when they are decoded or when they are
// shown; looks at some of them tell which, and whether each one begins a closed group.
void ReadKeys(const AvFunctions& av, FilmPackets& packets, int track, const FilmPacket& first,
              FilmOutline& film) {
  KeyAt(packets, track, 0);  // loads the index
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
  const int64_t later = first.packet->pts - times.front();
  const size_t step = std::max<size_t>(times.size() / kLooks, 1);
  for (size_t i = 0; i < times.size(); i += step) {
    constexpr double kRounding = 0.002;
    const int64_t shown = times[i] + later;
    const double seconds = static_cast<double>(shown) * av_q2d(stream.time_base);
    const auto key = KeyAt(packets, track, seconds + kRounding);
    if (key) {
      Look(packets, first, *key, film);
    }
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

// The key frame that is shown at this time, in ticks of the track. Films without an index are
// entered a little early.
std::optional<FilmPacket> ExactKeyAt(FilmPackets& packets, int track, int64_t time) {
  constexpr double kEarlier = 1.0;
  const double seconds = static_cast<double>(time) * av_q2d(packets.Track(track).time_base);
  if (!packets.Seek(track, std::max(0.0, seconds - kEarlier))) {
    return std::nullopt;
  }
  auto packet = packets.Next();
  while (packet && (!packet->IsKey() || packet->packet->pts < time - 1)) {
    packet = packets.Next();
  }
  return packet && packet->packet->pts <= time + 1 ? std::move(packet) : std::nullopt;
}

// Adds the key frames that the analysis found, in ticks of kPlanClock from the first one, if the
// film has them where it says. Their last number is the film's end.
void TakeKeys(const AvFunctions& av, FilmPackets& packets, int track, const FilmPacket& first,
              const std::vector<int64_t>& found, FilmOutline& film) {
  if (found.size() < 2) {
    return;
  }
  const AVRational clock = packets.Track(track).time_base;
  const int64_t start = first.packet->pts;
  const size_t count = found.size() - 1;
  const size_t step = std::max<size_t>(count / kLooks, 1);
  for (size_t i = step; i < count; i += step) {
    const auto key = ExactKeyAt(packets, track, start + av.av_rescale_q(found[i], kClock, clock));
    if (!key) {
      return;
    }
    Look(packets, first, *key, film);
  }
  const int64_t begin = ToTicks(av, start, clock);
  for (size_t i = 0; i < count; ++i) {
    if (film.keys.empty() || begin + found[i] > film.keys.back()) {
      film.keys.push_back(std::max<int64_t>(begin + found[i], 0));
    }
  }
  film.end = std::max(begin + found.back(), film.keys.back());
}

// How the pictures are reordered, and where their key frames are: from the container's index or, if
// it has none, from the analysis.
void ReadPictures(const AvFunctions& av, FilmPackets& packets, int track,
                  const std::vector<int64_t>& found, FilmOutline& film) {
  packets.Choose({track});
  const Beginning beginning = ReadBeginning(packets);
  if (!beginning.key) {
    return;
  }
  film.isOpen = !beginning.key->isIdr;
  if (packets.StatesTimes()) {
    ReadKeys(av, packets, track, *beginning.key, film);
  }
  if (!film.isOpen && !film.changes && !HasUsableKeys(film)) {
    film.keys.clear();
    TakeKeys(av, packets, track, *beginning.key, found, film);
  }
  const CmafPlan rate{film.rate, film.scale, 0, {}};
  film.delay = static_cast<int64_t>(beginning.reordered) * rate.Frame();
}

std::optional<FilmOutline> ReadOutline(const std::string& path, const std::vector<int64_t>& found) {
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
  if ((packets->Format().iformat->flags & AVFMT_TS_DISCONT) != 0) {
    film.clockStart = packets->FilmStart();
  }
  film.end = ReadEnd(*av, *packets, track);
  if (film.hasPicture) {
    ReadRate(packets->Track(track), film);
  }
  if (film.hasPicture && MayCopy(*packets, track)) {
    ReadPictures(*av, *packets, track, found, film);
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

// What the film's folder has from an earlier analysis; nothing if there is no such file.
std::vector<int64_t> ReadFoundKeys(const std::string& folder) {
  std::ifstream file(folder + "/" + kCmafKeysFile);
  std::string text;
  return file.is_open() && ReadAll(file, text)
             ? ParseCmafNumbers(text).value_or(std::vector<int64_t>())
             : std::vector<int64_t>();
}

const char* CopyingOf(const FilmOutline& film, const std::string& path) {
  return ClockJumps(path)      ? kCmafClockJumps
         : !film.hasPicture    ? kCmafNoPicture
         : HasUsableKeys(film) ? kCmafCopied
         : film.changes        ? kCmafChanging
         : film.isOpen         ? kCmafOpenGroups
                               : kCmafNoIndex;
}

// The plan, behind a line of CmafKnowledge.
std::string DescribeFilm(const std::string& path, const std::vector<int64_t>& found) {
  const auto film = ReadOutline(path, found);
  if (!film || film->end <= 0) {
    return "";
  }
  const char* const copy = CopyingOf(*film, path);
  const char* const range = film->hasPicture ? RangeOf(path) : kCmafStandardRange;
  return CmafKnowledge{copy, range, film->clockStart}.Text() + "\n" + PlanCmaf(*film).Text();
}

}  // namespace

int WriteCmafPlan(const CmafRequest& request) {
  const MediaFile film = MediaFile::Open(request.film);
  const std::vector<int64_t> found = ReadFoundKeys(request.folder);
  const auto text = film.IsOpen()
                        ? CallConfined(Job::kProbe, {.files = {film.Get()}}, kLongestText,
                                       [&] { return DescribeFilm(film.Address(), found); })
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
