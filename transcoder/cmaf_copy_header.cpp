#include "transcoder/cmaf_copy_header.h"

#include <algorithm>
#include <array>
#include <string>

#include "transcoder/fragment_reader.h"

namespace orvo::transcoder {
namespace {

// Their containers state all that a header has.
constexpr std::array kCodecs = {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_AAC,
                                AV_CODEC_ID_OPUS, AV_CODEC_ID_FLAC, AV_CODEC_ID_MP3};

// A turned picture, or one with a high dynamic range, has data beside its parameters. The shape of
// the pixels may stand in the pictures alone.
bool IsDescribed(const AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  const bool isPicture = codec.codec_type == AVMEDIA_TYPE_VIDEO;
  if (isPicture && stream.sample_aspect_ratio.num <= 0) {
    return false;
  }
  return std::find(kCodecs.begin(), kCodecs.end(), codec.codec_id) != kCodecs.end() &&
         stream.nb_side_data == 0;
}

// Containers do not tell the sample size of FLAC, but its STREAMINFO does: five bits from the last
// bit of byte 12 on, one less than the size (RFC 9639, 8.2). Browsers compare it with the entry's.
int FlacSampleBits(const AVCodecParameters& codec) {
  constexpr int kStreamInfoSize = 34;
  if (codec.extradata_size < kStreamInfoSize) {
    return codec.bits_per_raw_sample;
  }
  const uint8_t* const info = codec.extradata;
  return ((info[12] & 1) << 4 | info[13] >> 4) + 1;
}

// An MP4 file in memory that has nothing but a header.
class HeaderFile {
 public:
  explicit HeaderFile(const AvFunctions& av) : av_(av) {
    av_.avformat_alloc_output_context2(&context_, nullptr, "mp4", nullptr);
  }
  ~HeaderFile() {
    (void)TakeBytes();
    av_.avformat_free_context(context_);
  }
  HeaderFile(const HeaderFile&) = delete;
  HeaderFile& operator=(const HeaderFile&) = delete;

  // "" on failure.
  std::string Write(const AVStream& track, uint32_t clock) {
    if (context_ == nullptr || av_.avio_open_dyn_buf(&context_->pb) != 0 || !Add(track, clock)) {
      return "";
    }
    AVDictionary* options = nullptr;
    av_.av_dict_set(&options, "movflags", "empty_moov+default_base_moof+frag_custom", 0);
    av_.av_dict_set(&options, "use_editlist", "0", 0);
    av_.av_dict_set(&options, "video_track_timescale", std::to_string(clock).c_str(), 0);
    const int result = av_.avformat_write_header(context_, &options);
    av_.av_dict_free(&options);
    av_.avio_flush(context_->pb);
    return result >= 0 ? TakeBytes() : "";
  }

 private:
  bool Add(const AVStream& track, uint32_t clock) {
    AVStream* const stream = av_.avformat_new_stream(context_, nullptr);
    if (stream == nullptr || av_.avcodec_parameters_copy(stream->codecpar, track.codecpar) < 0) {
      return false;
    }
    const bool isHevc = track.codecpar->codec_id == AV_CODEC_ID_HEVC;
    stream->codecpar->codec_tag = isHevc ? MKTAG('h', 'v', 'c', '1') : 0;
    if (track.codecpar->codec_id == AV_CODEC_ID_FLAC) {
      stream->codecpar->bits_per_raw_sample = FlacSampleBits(*track.codecpar);
    }
    stream->time_base = {1, static_cast<int>(clock)};
    stream->sample_aspect_ratio = track.sample_aspect_ratio;
    context_->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    return true;
  }

  std::string TakeBytes() {
    uint8_t* bytes = nullptr;
    std::string result;
    if (context_ != nullptr && context_->pb != nullptr) {
      const int size = av_.avio_close_dyn_buf(context_->pb, &bytes);
      context_->pb = nullptr;
      result.assign(reinterpret_cast<const char*>(bytes), static_cast<size_t>(size));
      av_.av_free(bytes);
    }
    return result;
  }

  const AvFunctions& av_;
  AVFormatContext* context_ = nullptr;
};

}  // namespace

std::optional<CmafTrack> DescribeCopy(const AvFunctions& av, const AVStream& stream,
                                      uint32_t clock) {
  if (!IsDescribed(stream)) {
    return std::nullopt;
  }
  FragmentReader reader([](const CmafSample&) {});
  const bool isRead = reader.Add(HeaderFile(av).Write(stream, clock));
  return isRead ? reader.Track() : std::nullopt;
}

}  // namespace orvo::transcoder
