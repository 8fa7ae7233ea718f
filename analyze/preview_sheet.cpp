#include "preview_sheet.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavutil/display.h>
#include <libavutil/frame.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>

#include "picture_filter.h"
#include "transcoder/filters.h"
#include "video_reader.h"

namespace orvo::analyze {
namespace {

constexpr int kLongerSide = 160;  // of one picture
constexpr int kShortest = 16;
constexpr int kColumns = 20;
constexpr int kMostPictures = 300;
constexpr double kLeastSeconds = 2;  // between two pictures
constexpr int kMostPackets = 2000;   // that are read for one picture
constexpr int kQuality = 6;          // of the JPEG, from 2 (best) to 31

struct FreeContext {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
using Codec = std::unique_ptr<AVCodecContext, FreeContext>;

struct Size {
  int width = 0;
  int height = 0;
};

// The planes of a picture with a color for each 2 x 2 pixels, and by how much they are smaller.
constexpr std::array kShifts = {0, 1, 1};
constexpr std::array<uint8_t, 3> kBlack = {0, 128, 128};

Frame NewPicture(Size size) {
  Frame frame(av_frame_alloc());
  if (frame == nullptr) {
    return nullptr;
  }
  frame->format = AV_PIX_FMT_YUVJ420P;
  frame->width = size.width;
  frame->height = size.height;
  return av_frame_get_buffer(frame.get(), 0) < 0 ? nullptr : std::move(frame);
}

void Blacken(AVFrame& picture) {
  for (size_t plane = 0; plane < kShifts.size(); ++plane) {
    const int rows = picture.height >> kShifts[plane];
    std::memset(picture.data[plane], kBlack[plane],
                static_cast<size_t>(picture.linesize[plane]) * static_cast<size_t>(rows));
  }
}

// By how many quarters of a turn, clockwise, the film has to be turned.
int QuartersOf(const AVStream& video) {
  const auto* const matrix = reinterpret_cast<const int32_t*>(
      av_stream_get_side_data(&video, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
  const double degrees = matrix == nullptr ? 0 : -av_display_rotation_get(matrix);
  return std::isfinite(degrees) ? (static_cast<int>(std::lround(degrees / 90)) % 4 + 4) % 4 : 0;
}

int Even(double length) {
  return std::clamp(static_cast<int>(std::lround(length / 2)) * 2, kShortest, kLongerSide);
}

// The size of an upright picture.
Size TileSize(const AVStream& video, int quarters) {
  const AVCodecParameters& coded = *video.codecpar;
  const AVRational shape =
      video.sample_aspect_ratio.num > 0 ? video.sample_aspect_ratio : coded.sample_aspect_ratio;
  const double pixel = shape.num > 0 && shape.den > 0 ? av_q2d(shape) : 1;
  const double ratio = coded.width > 0 && coded.height > 0 ? pixel * coded.width / coded.height : 1;
  const double upright = quarters % 2 == 1 ? 1 / ratio : ratio;
  return upright >= 1 ? Size{kLongerSide, Even(kLongerSide / upright)}
                      : Size{Even(kLongerSide * upright), kLongerSide};
}

// The filters that make a picture of this size, with the range and the colors of a JPEG.
std::string FiltersOf(const AVStream& video, Size size) {
  using transcoder::JoinFilters;
  const AVCodecParameters& coded = *video.codecpar;
  const auto range =
      transcoder::HighRangeOf({coded.color_trc, coded.color_primaries, coded.color_space,
                               coded.color_range == AVCOL_RANGE_JPEG});
  const std::string scale =
      "scale=" + std::to_string(size.width) + ":" + std::to_string(size.height) + ":flags=area";
  const bool isMapped = range && avfilter_get_by_name("zscale") != nullptr;
  return JoinFilters(JoinFilters(scale, isMapped ? transcoder::ToneMapping(*range) : ""),
                     "scale=out_color_matrix=bt601:out_range=full,format=yuvj420p");
}

// Copies a picture, turned by quarters, to this place of the sheet.
void Place(const AVFrame& tile, int quarters, AVFrame& sheet, int left, int top) {
  for (size_t plane = 0; plane < kShifts.size(); ++plane) {
    const int width = tile.width >> kShifts[plane];
    const int height = tile.height >> kShifts[plane];
    uint8_t* const corner = sheet.data[plane] +
                            ptrdiff_t{top >> kShifts[plane]} * sheet.linesize[plane] +
                            (left >> kShifts[plane]);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const std::array<Size, 4> places = {
            {{x, y}, {height - 1 - y, x}, {width - 1 - x, height - 1 - y}, {y, width - 1 - x}}};
        const Size place = places[static_cast<size_t>(quarters)];
        corner[ptrdiff_t{place.height} * sheet.linesize[plane] + place.width] =
            tile.data[plane][ptrdiff_t{y} * tile.linesize[plane] + x];
      }
    }
  }
}

// Decodes single key frames.
class KeyframeDecoder {
 public:
  bool Open(const AVStream& video) {
    const AVCodec* const decoder = avcodec_find_decoder(video.codecpar->codec_id);
    codec_.reset(decoder == nullptr ? nullptr : avcodec_alloc_context3(decoder));
    if (codec_ == nullptr || avcodec_parameters_to_context(codec_.get(), video.codecpar) < 0) {
      return false;
    }
    codec_->thread_count = 1;
    codec_->skip_frame = AVDISCARD_NONKEY;
    return avcodec_open2(codec_.get(), decoder, nullptr) >= 0;
  }

  // The picture, until the next call; null if there is none.
  const AVFrame* Decode(const AVPacket& packet) {
    avcodec_flush_buffers(codec_.get());
    av_frame_unref(frame_.get());
    const bool isDecoded = avcodec_send_packet(codec_.get(), &packet) >= 0 &&
                           avcodec_send_packet(codec_.get(), nullptr) >= 0 &&
                           avcodec_receive_frame(codec_.get(), frame_.get()) >= 0;
    return isDecoded && frame_->width > 0 && frame_->height > 0 ? frame_.get() : nullptr;
  }

 private:
  Codec codec_;
  Frame frame_{av_frame_alloc()};
};

std::string EncodeJpeg(const AVFrame& picture) {
  const AVCodec* const encoder = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
  const Codec codec(encoder == nullptr ? nullptr : avcodec_alloc_context3(encoder));
  const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
  if (codec == nullptr || packet == nullptr) {
    return "";
  }
  codec->width = picture.width;
  codec->height = picture.height;
  codec->pix_fmt = AV_PIX_FMT_YUVJ420P;
  codec->time_base = {1, 1};
  codec->thread_count = 1;
  codec->flags |= AV_CODEC_FLAG_QSCALE;
  codec->global_quality = FF_QP2LAMBDA * kQuality;
  const bool isEncoded = avcodec_open2(codec.get(), encoder, nullptr) >= 0 &&
                         avcodec_send_frame(codec.get(), &picture) >= 0 &&
                         avcodec_receive_packet(codec.get(), packet.get()) >= 0;
  return isEncoded ? std::string(reinterpret_cast<const char*>(packet->data),
                                 static_cast<size_t>(packet->size))
                   : "";
}

class Sheet {
 public:
  bool Open(const std::string& path) {
    std::string ignored;
    if (!reader_.Open(path, ignored) || !decoder_.Open(reader_.Video())) {
      return false;
    }
    quarters_ = QuartersOf(reader_.Video());
    const Size tile = TileSize(reader_.Video(), quarters_);
    Plan(tile);
    const int rows = (layout_.count + layout_.columns - 1) / layout_.columns;
    picture_ = NewPicture({layout_.columns * tile.width, rows * tile.height});
    filters_ =
        FiltersOf(reader_.Video(), quarters_ % 2 == 1 ? Size{tile.height, tile.width} : tile);
    return picture_ != nullptr;
  }

  std::string Make() {
    Blacken(*picture_);
    bool isAny = false;
    for (int n = 0; n < layout_.count; ++n) {
      if (Take(start_ + (n + 0.5) * layout_.seconds)) {
        Place(*tile_, quarters_, *picture_, n % layout_.columns * layout_.width,
              n / layout_.columns * layout_.height);
        isAny = true;
      }
    }
    return isAny ? EncodeJpeg(*picture_) : "";
  }

  const PreviewLayout& Layout() const { return layout_; }

 private:
  void Plan(Size tile) {
    const AVFormatContext& film = reader_.Film();
    const double duration =
        film.duration > 0 ? static_cast<double>(film.duration) / AV_TIME_BASE : kLeastSeconds;
    start_ =
        film.start_time == AV_NOPTS_VALUE ? 0 : static_cast<double>(film.start_time) / AV_TIME_BASE;
    layout_.width = tile.width;
    layout_.height = tile.height;
    layout_.seconds = std::max(kLeastSeconds, duration / kMostPictures);
    layout_.count =
        std::clamp(static_cast<int>(std::ceil(duration / layout_.seconds)), 1, kMostPictures);
    layout_.columns = std::min(kColumns, layout_.count);
  }

  // Makes the small picture of the key frame at or before this second.
  bool Take(double second) {
    const AVPacket* const packet = KeyframeAt(second);
    if (packet == nullptr) {
      return false;
    }
    if (const int64_t time = VideoReader::Time(*packet); time != time_) {
      time_ = time;
      const AVFrame* const frame = decoder_.Decode(*packet);
      tile_ = frame != nullptr ? Filtered(*frame, filters_) : nullptr;
    }
    return tile_ != nullptr;
  }

  // A format without an index may seek to any packet.
  const AVPacket* KeyframeAt(double second) {
    if (!reader_.Seek(reader_.TimeAt(second))) {
      return nullptr;
    }
    const AVPacket* packet = reader_.Next();
    for (int n = 0; packet != nullptr && !IsKeyframe(*packet); ++n) {
      packet = n < kMostPackets ? reader_.Next() : nullptr;
    }
    return packet;
  }

  VideoReader reader_;
  KeyframeDecoder decoder_;
  PreviewLayout layout_;
  double start_ = 0;
  int quarters_ = 0;
  Frame picture_;
  std::string filters_;
  Frame tile_;                     // null if it cannot be shown
  int64_t time_ = AV_NOPTS_VALUE;  // of the key frame in tile_
};

}  // namespace

std::string MakePreviewSheet(const std::string& path, PreviewLayout& layout) {
  av_log_set_level(AV_LOG_QUIET);
  Sheet sheet;
  if (!sheet.Open(path)) {
    return "";
  }
  layout = sheet.Layout();
  return sheet.Make();
}

}  // namespace orvo::analyze
