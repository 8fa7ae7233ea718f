#include "transcoder/film_packets.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

namespace orvo::transcoder {
namespace {

constexpr AVRational kMicroseconds = {1, AV_TIME_BASE};

// Enough to see how pictures are reordered, where the codec does not say.
constexpr size_t kPicturesToCompare = 16;
// A track that has not begun by then does not tell where the film starts.
constexpr int kMostBytesBeforeStart = 5'000'000;
constexpr int kPacketOverhead = 500;  // empty ones cost memory, too
// How much earlier a film is entered where an index counts decoding times, in seconds.
constexpr std::array kEarlier = {0.0, 0.5, 4.0, 30.0};

constexpr std::array kReorderingCodecs = {
    AV_CODEC_ID_H264,  AV_CODEC_ID_HEVC, AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO,
    AV_CODEC_ID_MPEG4, AV_CODEC_ID_VC1,  AV_CODEC_ID_WMV3,       AV_CODEC_ID_VVC};

bool IsReordering(AVCodecID codec) {
  return std::find(kReorderingCodecs.begin(), kReorderingCodecs.end(), codec) !=
         kReorderingCodecs.end();
}

bool IsSoundOrPicture(const AVStream& track) {
  const AVMediaType type = track.codecpar->codec_type;
  const bool isCover = (track.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
  return type == AVMEDIA_TYPE_AUDIO || (type == AVMEDIA_TYPE_VIDEO && !isCover);
}

// What the codec's own parameters say; 0 when they say nothing.
size_t StatedReorder(const AvFunctions& av, const AVCodecParameters& codec) {
  const AVCodec* const decoder = av.avcodec_find_decoder(codec.codec_id);
  AVCodecContext* context = decoder != nullptr ? av.avcodec_alloc_context3(decoder) : nullptr;
  int stated = 0;
  if (context != nullptr && av.avcodec_parameters_to_context(context, &codec) >= 0) {
    context->thread_count = 1;
    stated = av.avcodec_open2(context, decoder, nullptr) >= 0 ? context->has_b_frames : 0;
  }
  av.avcodec_free_context(&context);
  return static_cast<size_t>(std::max(stated, 0));
}

// The bytes of a unit's length in packets of H.264 and HEVC; 0 where units have start codes.
int NalLengthOf(const AVCodecParameters& codec) {
  const size_t at = codec.codec_id == AV_CODEC_ID_HEVC ? 21 : 4;
  const bool hasLengths = codec.extradata_size > static_cast<int>(at) && codec.extradata[0] == 1;
  return hasLengths ? (codec.extradata[at] & 3) + 1 : 0;
}

using Bytes = std::basic_string_view<uint8_t>;

// The first unit that is a slice decides: all slices of a picture have one type.
std::optional<bool> SliceIsIdr(AVCodecID codec, uint8_t header) {
  if (codec == AV_CODEC_ID_H264) {
    const int type = header & 0x1F;
    return type == 5 ? std::optional(true) : type == 1 ? std::optional(false) : std::nullopt;
  }
  const int type = header >> 1 & 0x3F;
  return type < 32 ? std::optional(type == 19 || type == 20) : std::nullopt;
}

bool IsIdrWithLengths(AVCodecID codec, Bytes bytes, size_t length) {
  while (bytes.size() > length) {
    size_t size = 0;
    for (size_t i = 0; i < length; ++i) {
      size = size << 8 | bytes[i];
    }
    bytes.remove_prefix(length);
    if (const auto found = SliceIsIdr(codec, bytes.front())) {
      return *found;
    }
    bytes.remove_prefix(std::min(size, bytes.size()));
  }
  return false;
}

bool IsIdrWithStartCodes(AVCodecID codec, Bytes bytes) {
  for (size_t i = 0; i + 3 < bytes.size(); ++i) {
    const bool starts = bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1;
    if (const auto found = starts ? SliceIsIdr(codec, bytes[i + 3]) : std::nullopt) {
      return *found;
    }
  }
  return false;
}

}  // namespace

std::unique_ptr<FilmPackets> FilmPackets::Open(UniqueFd film, Detail detail) {
  auto input = FilmInput::Open(std::move(film), detail);
  if (input == nullptr) {
    return nullptr;
  }
  std::unique_ptr<FilmPackets> packets(new FilmPackets(std::move(input)));
  packets->FindStart();
  return packets;
}

FilmPackets::FilmPackets(std::unique_ptr<FilmInput> input)
    : input_(std::move(input)),
      av_(*AvFunctions::Get()),
      trackCount_(static_cast<int>(input_->Get().nb_streams)) {
  for (int i = 0; i < TrackCount(); ++i) {
    tracks_.push_back(StateOf(Track(i)));
  }
}

FilmPackets::TrackState FilmPackets::StateOf(const AVStream& track) const {
  TrackState state;
  state.nalLength = NalLengthOf(*track.codecpar);
  state.needsTimes = input_->IsMatroska() && IsReordering(track.codecpar->codec_id);
  return state;
}

int FilmPackets::FirstOf(AVMediaType type) const {
  for (int i = 0; i < TrackCount(); ++i) {
    if (Track(i).codecpar->codec_type == type && IsSoundOrPicture(Track(i))) {
      return i;
    }
  }
  return -1;
}

std::optional<int> FilmPackets::Find(AVMediaType type, int number) const {
  std::optional<int> found;
  for (int i = 0; i < TrackCount(); ++i) {
    const bool fits = Track(i).codecpar->codec_type == type && IsSoundOrPicture(Track(i));
    if (!fits || (number >= 0 && number != i)) {
      continue;
    }
    if (found) {
      return std::nullopt;
    }
    found = i;
  }
  return found;
}

// Without a look at its packets no film says where it starts.
void FilmPackets::FindStart() {
  if (input_->Get().start_time != AV_NOPTS_VALUE) {
    filmStart_ = input_->Get().start_time;
    return;
  }
  std::vector<std::optional<int64_t>> starts(tracks_.size());
  int bytes = 0;
  while (LacksAny(starts) && bytes < kMostBytesBeforeStart) {
    AvPacket packet = Read();
    if (packet == nullptr) {
      break;
    }
    auto& start = starts[static_cast<size_t>(packet->stream_index)];
    start = start ? start : StartOf(*packet);
    bytes += packet->size + kPacketOverhead;
    seen_.push_back(std::move(packet));
  }
  std::erase(starts, std::nullopt);
  const auto earliest = std::min_element(starts.begin(), starts.end());
  filmStart_ = earliest == starts.end() ? 0 : **earliest;
}

bool FilmPackets::LacksAny(const std::vector<std::optional<int64_t>>& starts) const {
  for (int i = 0; i < TrackCount(); ++i) {
    if (!starts[static_cast<size_t>(i)] && IsSoundOrPicture(Track(i))) {
      return true;
    }
  }
  return false;
}

// Samples that only bring the decoder into step are no part of the film.
std::optional<int64_t> FilmPackets::StartOf(const AVPacket& packet) const {
  const AVStream& track = Track(packet.stream_index);
  if (packet.pts == AV_NOPTS_VALUE || (track.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
    return std::nullopt;
  }
  size_t size = 0;
  const uint8_t* const skip = av_.av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
  const bool skips = skip != nullptr && size >= 4 && track.codecpar->sample_rate > 0;
  const int64_t samples = skips ? skip[0] | skip[1] << 8 | skip[2] << 16 : 0;
  const int rate = std::max(track.codecpar->sample_rate, 1);
  return av_.av_rescale_q(packet.pts, track.time_base, kMicroseconds) +
         av_.av_rescale_q(samples, {1, rate}, kMicroseconds);
}

void FilmPackets::Choose(const std::vector<int>& tracks) {
  for (int i = 0; i < TrackCount(); ++i) {
    TrackState& state = tracks_[static_cast<size_t>(i)];
    state.isChosen = std::find(tracks.begin(), tracks.end(), i) != tracks.end();
    if (!state.isChosen) {
      input_->LeaveOut(i);
    }
  }
}

bool FilmPackets::Seek(int track, double seconds) {
  const AVStream& stream = Track(track);
  const int64_t wanted = std::llround(seconds * AV_TIME_BASE) + filmStart_;
  // Milliseconds are the coarsest clock.
  const int64_t latest = av_.av_rescale_q(wanted + 500, kMicroseconds, stream.time_base);
  for (const double earlier : kEarlier) {
    const auto back = static_cast<int64_t>(earlier * AV_TIME_BASE);
    const int64_t time = av_.av_rescale_q(wanted - back, kMicroseconds, stream.time_base);
    if (!SeekTo(track, time)) {
      continue;
    }
    const auto first = FirstTimeOf(track);
    if (first && (*first <= latest || wanted - back <= filmStart_)) {
      return true;
    }
  }
  return false;
}

bool FilmPackets::SeekTo(int track, int64_t time) {
  seen_.clear();
  ready_.clear();
  hasEnded_ = false;
  for (TrackState& state : tracks_) {
    state.held.clear();
    state.hasBegun = false;
    state.last = AV_NOPTS_VALUE;
  }
  return input_->Seek(track, time);
}

std::optional<int64_t> FilmPackets::FirstTimeOf(int track) {
  while (AvPacket packet = input_->Read()) {
    const bool isWanted = packet->stream_index == track;
    const int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    seen_.push_back(std::move(packet));
    if (isWanted) {
      return time;
    }
  }
  return std::nullopt;
}

std::optional<FilmPacket> FilmPackets::Next() {
  while (ready_.empty() && !hasEnded_) {
    if (AvPacket packet = ReadChosen()) {
      Take(std::move(packet));
    } else {
      hasEnded_ = true;
      std::for_each(tracks_.begin(), tracks_.end(), [this](TrackState& state) { Release(state); });
    }
  }
  if (ready_.empty()) {
    return std::nullopt;
  }
  FilmPacket packet = std::move(ready_.front());
  ready_.pop_front();
  return packet;
}

// Tracks that appear later have no part in the film.
AvPacket FilmPackets::Read() {
  AvPacket packet;
  do {
    packet = input_->Read();
  } while (packet != nullptr && static_cast<size_t>(packet->stream_index) >= tracks_.size());
  return packet;
}

AvPacket FilmPackets::ReadChosen() {
  AvPacket packet;
  do {
    if (seen_.empty()) {
      packet = Read();
    } else {
      packet = std::move(seen_.front());
      seen_.pop_front();
    }
  } while (packet != nullptr && !tracks_[static_cast<size_t>(packet->stream_index)].isChosen);
  return packet;
}

void FilmPackets::Take(AvPacket packet) {
  TrackState& state = tracks_[static_cast<size_t>(packet->stream_index)];
  FilmPacket film;
  film.isIdr = IsIdr(*packet);
  CountFromStart(*packet);
  film.packet = std::move(packet);
  if (!state.needsTimes || state.hasBegun) {
    Pass(state, std::move(film));
  } else {
    Hold(state, std::move(film));
  }
}

void FilmPackets::CountFromStart(AVPacket& packet) const {
  const int64_t start =
      av_.av_rescale_q(filmStart_, kMicroseconds, Track(packet.stream_index).time_base);
  packet.pts = packet.pts == AV_NOPTS_VALUE ? packet.dts : packet.pts;
  for (int64_t* const time : {&packet.pts, &packet.dts}) {
    *time -= *time == AV_NOPTS_VALUE ? 0 : start;
  }
}

bool FilmPackets::IsIdr(const AVPacket& packet) const {
  const AVCodecID codec = Track(packet.stream_index).codecpar->codec_id;
  const bool isKey = (packet.flags & AV_PKT_FLAG_KEY) != 0;
  if (!isKey || (codec != AV_CODEC_ID_H264 && codec != AV_CODEC_ID_HEVC)) {
    return isKey;
  }
  const Bytes bytes(packet.data, static_cast<size_t>(std::max(packet.size, 0)));
  const int length = tracks_[static_cast<size_t>(packet.stream_index)].nalLength;
  return length > 0 ? IsIdrWithLengths(codec, bytes, static_cast<size_t>(length))
                    : IsIdrWithStartCodes(codec, bytes);
}

void FilmPackets::Hold(TrackState& state, FilmPacket packet) {
  if (!state.isReorderKnown && state.held.empty()) {
    state.reordered = StatedReorder(av_, *Track(packet.Track()).codecpar);
    state.isReorderKnown = state.reordered > 0;
  }
  state.held.push_back(std::move(packet));
  const size_t enough = state.isReorderKnown ? state.reordered + 1 : kPicturesToCompare;
  if (state.held.size() >= enough) {
    Release(state);
  }
}

void FilmPackets::Release(TrackState& state) {
  std::vector<int64_t> shown;
  for (const FilmPacket& held : state.held) {
    shown.push_back(held.packet->pts);
  }
  if (!state.isReorderKnown && !shown.empty()) {
    state.reordered = DecodingTimes::ReorderedIn(shown);
    state.isReorderKnown = true;
  }
  state.times = DecodingTimes(state.reordered);
  const std::vector<int64_t> decoded = state.times.Begin(shown);
  for (size_t i = 0; i < decoded.size(); ++i) {
    state.held[i].packet->dts = decoded[i];
    ready_.push_back(std::move(state.held[i]));
  }
  state.hasBegun = !decoded.empty();
  state.held.clear();
}

// What is stored without a time follows what is stored before it.
void FilmPackets::Pass(TrackState& state, FilmPacket film) {
  AVPacket& packet = *film.packet;
  if (packet.pts == AV_NOPTS_VALUE) {
    packet.pts = state.last == AV_NOPTS_VALUE ? 0 : state.last;
  }
  if (state.needsTimes) {
    packet.dts = state.times.Next(packet.pts);
  } else if (packet.dts == AV_NOPTS_VALUE) {
    packet.dts = packet.pts;
  }
  state.last = packet.dts + std::max<int64_t>(packet.duration, 1);
  ready_.push_back(std::move(film));
}

}  // namespace orvo::transcoder
