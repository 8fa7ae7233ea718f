#include "transcoder/copy_output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

namespace orvo::transcoder {
namespace {

constexpr int kBuffer = 32768;
constexpr AVRational kMicroseconds = {1, AV_TIME_BASE};
// What is said of the film's file is not true of the copy.
constexpr auto kOfTheFile = std::to_array<const char*>(
    {"creation_time", "company_name", "product_name", "product_version"});

AVRational PixelShape(const AVStream& track) {
  return track.sample_aspect_ratio.num > 0 ? track.sample_aspect_ratio
                                           : track.codecpar->sample_aspect_ratio;
}

}  // namespace

CopyOutput::CopyOutput(Sink sink, const CopyFormat& format)
    : av_(*AvFunctions::Get()), format_(format), sink_(std::move(sink)) {
  auto* buffer = static_cast<unsigned char*>(av_.av_malloc(kBuffer));
  io_ = av_.avio_alloc_context(buffer, kBuffer, 1, this, nullptr, WriteBytes, nullptr);
  av_.avformat_alloc_output_context2(&context_, nullptr, format.name.c_str(), nullptr);
  if (context_ != nullptr) {
    context_->pb = io_;
  }
}

CopyOutput::~CopyOutput() {
  av_.avformat_free_context(context_);
  if (io_ != nullptr) {
    av_.av_free(io_->buffer);
    av_.avio_context_free(&io_);
  }
}

void CopyOutput::Describe(const AVDictionary* film) {
  if (context_ != nullptr) {
    av_.av_dict_copy(&context_->metadata, film, 0);
    for (const char* const name : kOfTheFile) {
      av_.av_dict_set(&context_->metadata, name, nullptr, 0);
    }
  }
}

int CopyOutput::AddTrack(const AVStream& model, const AVCodecParameters& codec) {
  AVStream* const track =
      context_ != nullptr ? av_.avformat_new_stream(context_, nullptr) : nullptr;
  if (track == nullptr || av_.avcodec_parameters_copy(track->codecpar, &codec) < 0 ||
      !CopySideData(model, *track)) {
    return -1;
  }
  track->codecpar->codec_tag = 0;
  track->disposition = model.disposition;
  track->time_base = model.time_base;
  track->avg_frame_rate = model.avg_frame_rate;
  track->sample_aspect_ratio = track->codecpar->sample_aspect_ratio = PixelShape(model);
  av_.av_dict_copy(&track->metadata, model.metadata, 0);
  last_.push_back(AV_NOPTS_VALUE);
  return track->index;
}

// A turned picture says so beside its parameters.
bool CopyOutput::CopySideData(const AVStream& model, AVStream& track) const {
  for (int i = 0; i < model.nb_side_data; ++i) {
    const AVPacketSideData& data = model.side_data[i];
    uint8_t* const copy = av_.av_stream_new_side_data(&track, data.type, data.size);
    if (copy == nullptr) {
      return false;
    }
    std::copy_n(data.data, data.size, copy);
  }
  return true;
}

bool CopyOutput::Begin() {
  AVDictionary* options = nullptr;
  const bool isReady =
      context_ != nullptr && io_ != nullptr &&
      av_.av_dict_parse_string(&options, format_.options.c_str(), "=", ":", 0) >= 0;
  const int result = isReady ? av_.avformat_write_header(context_, &options) : -1;
  av_.av_dict_free(&options);
  return result >= 0;
}

bool CopyOutput::Write(int track, AVPacket& packet, AVRational clock) {
  const AVStream& stream = *context_->streams[track];
  const bool isPicture = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  av_.av_packet_rescale_ts(&packet, clock, stream.time_base);
  Grow(packet, last_[static_cast<size_t>(track)]);
  packet.stream_index = track;
  packet.pos = -1;
  pictures_ += isPicture ? 1 : 0;
  position_ = std::max(
      position_, av_.av_rescale_q(packet.pts + packet.duration, stream.time_base, kMicroseconds));
  return av_.av_interleaved_write_frame(context_, &packet) >= 0;
}

void CopyOutput::Grow(AVPacket& packet, int64_t& last) const {
  packet.dts = std::min(packet.dts, packet.pts);
  if (last != AV_NOPTS_VALUE && packet.dts <= last) {
    packet.dts = last + 1;
    packet.pts = std::max(packet.pts, packet.dts);
  }
  last = packet.dts;
}

bool CopyOutput::Finish() {
  return av_.av_write_trailer(context_) >= 0;
}

int CopyOutput::WriteBytes(void* self, uint8_t* bytes, int size) {
  const auto& own = *static_cast<CopyOutput*>(self);
  const std::string_view text(reinterpret_cast<const char*>(bytes), static_cast<size_t>(size));
  return own.sink_(text) ? size : AVERROR(EPIPE);
}

}  // namespace orvo::transcoder
